#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <array>
#include <span>
#include <type_traits>

namespace velto {

namespace detail {
/// What "%@" accepts beyond text.
template <class T>
concept Describable = requires(const T& object) {
    { object.description() } -> std::convertible_to<std::string>;
};
template <class T>
std::string describe(const void* object) {
    return static_cast<const T*>(object)->description();
}
}  // namespace detail

/// One packed argument of a format text. It borrows what it refers to: valid for the call only.
class FormatArgument {
public:
    enum class Kind : std::uint8_t {
        none,
        signedInteger,
        unsignedInteger,
        floating,
        text,
        described,
        pointer,
    };

    using Describe = std::string (*)(const void* object);

    constexpr FormatArgument() noexcept : signed_(0) {}
    template <PlainInteger T>
    constexpr FormatArgument(T number) noexcept {
        if constexpr (std::signed_integral<T>) {
            kind_ = Kind::signedInteger;
            signed_ = number;
        } else {
            kind_ = Kind::unsignedInteger;
            unsigned_ = number;
        }
    }
    template <class T>
        requires std::is_enum_v<T>
    constexpr FormatArgument(T value) noexcept
        : FormatArgument(static_cast<std::underlying_type_t<T>>(value)) {}
    constexpr FormatArgument(char character) noexcept
        : kind_(Kind::signedInteger), signed_(character) {}
    constexpr FormatArgument(bool flag) noexcept : kind_(Kind::signedInteger), signed_(flag) {}
    constexpr FormatArgument(char16_t unit) noexcept
        : kind_(Kind::unsignedInteger), unsigned_(unit) {}
    constexpr FormatArgument(double number) noexcept : kind_(Kind::floating), floating_(number) {}
    constexpr FormatArgument(float number) noexcept : kind_(Kind::floating), floating_(number) {}
    constexpr FormatArgument(std::nullptr_t) noexcept : signed_(0) {}
    constexpr FormatArgument(const char* text) noexcept
        : kind_(text == nullptr ? Kind::none : Kind::text),
          text_(text == nullptr ? std::string_view() : std::string_view(text)) {}
    constexpr FormatArgument(std::string_view text) noexcept : kind_(Kind::text), text_(text) {}
    FormatArgument(const std::string& text) noexcept : kind_(Kind::text), text_(text) {}
    FormatArgument(const std::optional<std::string>& text) noexcept
        : kind_(text ? Kind::text : Kind::none),
          text_(text ? std::string_view(*text) : std::string_view()) {}
    constexpr FormatArgument(const void* pointer) noexcept
        : kind_(Kind::pointer), pointer_{pointer, nullptr} {}
    FormatArgument(const Value& value) noexcept : FormatArgument() {
        if (value.isString()) {  // spares the copy of a description
            *this = FormatArgument(value.string());
        } else if (!value.isNone()) {
            *this = FormatArgument(&value);
        }
    }
    template <detail::Describable T>
    FormatArgument(const T& object) noexcept : FormatArgument(&object) {}
    template <detail::Describable T>
    FormatArgument(const T* object) noexcept
        : kind_(object == nullptr ? Kind::none : Kind::described),
          pointer_{object, &detail::describe<T>} {}
    template <detail::Describable T>
    FormatArgument(const std::shared_ptr<T>& object) noexcept
        : FormatArgument(static_cast<const T*>(object.get())) {}

    Kind kind() const noexcept { return kind_; }
    bool isInteger() const noexcept {
        return kind_ == Kind::signedInteger || kind_ == Kind::unsignedInteger;
    }
    std::int64_t signedValue() const noexcept {
        return kind_ == Kind::signedInteger ? signed_ : static_cast<std::int64_t>(unsigned_);
    }
    double floatingValue() const noexcept { return floating_; }
    std::string_view text() const noexcept { return text_; }
    const void* pointer() const noexcept { return pointer_.object; }
    std::string describe() const { return pointer_.describe(pointer_.object); }

private:
    struct Described {
        const void* object;
        Describe describe;
    };
    Kind kind_ = Kind::none;
    union {
        std::int64_t signed_;
        std::uint64_t unsigned_;
        double floating_;
        std::string_view text_;
        Described pointer_;
    };
};
static_assert(std::is_trivially_copyable_v<FormatArgument>);

/// The packed arguments of one call, borrowed.
using FormatArguments = std::span<const FormatArgument>;

namespace detail {

/// What a placeholder asks for. An integer has at most 32 bits, a wide one 64.
enum class FormatClass : std::uint8_t {
    none,
    integer,
    wideInteger,
    floating,
    text,
    object,
    pointer,
};

/// One placeholder, taken apart.
struct FormatDirective {
    std::uint8_t position = 0;  ///< 1 to 16; 0 takes the next argument.
    bool isLeft = false;
    bool hasPlus = false;
    bool hasBlank = false;
    bool hasZero = false;
    bool isAlternate = false;
    std::uint8_t size = 4;  ///< Bytes of an integer.
    char conversion = 0;
    std::int16_t width = 0;
    std::int16_t precision = -1;  ///< Negative when not given.
    FormatClass wants = FormatClass::none;
};

inline constexpr std::size_t maximumFormatArguments = 16;
inline constexpr std::int16_t maximumFormatWidth = 1000;  ///< A translation must not ask for more.

/// Digits at `at`, which moves on; a number beyond the maximum reads as one more than it.
constexpr std::int16_t parseFormatNumber(std::string_view text, std::size_t& at) {
    int number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number > maximumFormatWidth ? number : number * 10 + (text[at] - '0');
    }
    return static_cast<std::int16_t>(number > maximumFormatWidth ? maximumFormatWidth + 1 : number);
}

/// Reads the placeholder whose "%" is at `at`; answers the index after it, or 0 when it is
/// malformed.
constexpr std::size_t parseFormatDirective(std::string_view text,
                                           std::size_t at,
                                           FormatDirective& directive) {
    const auto peek = [&] { return at < text.size() ? text[at] : '\0'; };
    ++at;
    std::size_t afterNumber = at;
    const std::int16_t position = parseFormatNumber(text, afterNumber);
    if (afterNumber > at && afterNumber < text.size() && text[afterNumber] == '$') {
        if (position < 1 || position > static_cast<int>(maximumFormatArguments)) {
            return 0;
        }
        directive.position = static_cast<std::uint8_t>(position);
        at = afterNumber + 1;
    }
    for (bool isFlag = true; isFlag;) {
        switch (peek()) {
            case '-':
                directive.isLeft = true;
                break;
            case '+':
                directive.hasPlus = true;
                break;
            case ' ':
                directive.hasBlank = true;
                break;
            case '0':
                directive.hasZero = true;
                break;
            case '#':
                directive.isAlternate = true;
                break;
            default:
                isFlag = false;
                continue;
        }
        ++at;
    }
    directive.width = parseFormatNumber(text, at);
    if (peek() == '.') {
        ++at;
        directive.precision = parseFormatNumber(text, at);
    }
    if (directive.width > maximumFormatWidth || directive.precision > maximumFormatWidth) {
        return 0;
    }
    switch (peek()) {
        case 'h':
            directive.size = 2;
            if (++at; peek() == 'h') {
                directive.size = 1;
                ++at;
            }
            break;
        case 'l':
            directive.size = 8;
            if (++at; peek() == 'l') {
                ++at;
            }
            break;
        case 'L':
        case 'q':
        case 'j':
        case 'z':
        case 't':
            directive.size = 8;
            ++at;
            break;
        default:
            break;
    }
    directive.conversion = peek();
    switch (directive.conversion) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            directive.wants = directive.size == 8 ? FormatClass::wideInteger : FormatClass::integer;
            break;
        case 'c':
        case 'C':
            directive.wants = FormatClass::integer;
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            directive.wants = FormatClass::floating;
            break;
        case 's':
        case 'S':
            directive.wants = FormatClass::text;
            break;
        case '@':
            directive.wants = FormatClass::object;
            break;
        case 'p':
            directive.wants = FormatClass::pointer;
            break;
        case '%':
            break;
        default:
            return 0;
    }
    return at + 1;
}

/// The class of argument that each position of a text asks for.
struct FormatSignature {
    std::array<FormatClass, maximumFormatArguments> classes{};
    std::size_t count = 0;
    bool isWellFormed = true;
    friend constexpr bool operator==(const FormatSignature&, const FormatSignature&) = default;
};

/// Not well formed: an unknown placeholder, a position asked for as two classes, positions beside
/// placeholders without one, more than 16 arguments.
constexpr FormatSignature parseFormatSignature(std::string_view format) {
    FormatSignature signature;
    std::size_t next = 0;
    bool hasPositions = false;
    for (std::size_t at = format.find('%'); at != format.npos; at = format.find('%', at)) {
        FormatDirective directive;
        at = parseFormatDirective(format, at, directive);
        if (at == 0) {
            signature.isWellFormed = false;
            break;
        }
        if (directive.conversion == '%') {
            continue;
        }
        hasPositions = hasPositions || directive.position != 0;
        const std::size_t index = directive.position != 0 ? directive.position - 1U : next++;
        if (index >= maximumFormatArguments || (hasPositions && next != 0) ||
            (signature.classes[index] != FormatClass::none &&
             signature.classes[index] != directive.wants)) {
            signature.isWellFormed = false;
            break;
        }
        signature.classes[index] = directive.wants;
        signature.count = index < signature.count ? signature.count : index + 1;
    }
    return signature;
}

template <class T>
constexpr bool formatAccepts(FormatClass wanted) {
    using Argument = std::decay_t<T>;
    if constexpr (std::is_integral_v<Argument> || std::is_enum_v<Argument>) {
        return wanted == FormatClass::wideInteger ||
               (wanted == FormatClass::integer && sizeof(Argument) <= 4);
    } else if constexpr (std::is_floating_point_v<Argument>) {
        return wanted == FormatClass::floating;
    } else if constexpr (std::is_convertible_v<Argument, const char*> ||
                         std::is_convertible_v<Argument, std::string_view> ||
                         std::is_same_v<Argument, std::optional<std::string>>) {
        return wanted == FormatClass::text || wanted == FormatClass::object;
    } else if constexpr (std::is_constructible_v<FormatArgument, const Argument&>) {
        constexpr bool isVoid = std::is_pointer_v<Argument> &&
                                !Describable<std::remove_cv_t<std::remove_pointer_t<Argument>>>;
        return wanted == FormatClass::pointer || (wanted == FormatClass::object && !isVoid);
    } else {
        return false;
    }
}

// Never defined: a call that is reached names what is wrong in the compiler's message.
void theFormatTextIsMalformed();
void theFormatTextAsksForAnotherNumberOfArguments();
void anArgumentDoesNotFitItsPlaceholder();

}  // namespace detail

/// A format literal, checked against its arguments when compiled. A placeholder without "l" takes
/// integers of at most 32 bits.
template <class... Arguments>
class BasicFormatString {
public:
    template <class Text>
        requires std::convertible_to<const Text&, const char*>
    consteval BasicFormatString(const Text& text) : text_(text) {
        const detail::FormatSignature signature = detail::parseFormatSignature(text_);
        if (!signature.isWellFormed) {
            detail::theFormatTextIsMalformed();
        }
        if (signature.count != sizeof...(Arguments)) {
            detail::theFormatTextAsksForAnotherNumberOfArguments();
        }
        [[maybe_unused]] std::size_t index = 0;
        if (!(detail::formatAccepts<Arguments>(signature.classes[index++]) && ...)) {
            detail::anArgumentDoesNotFitItsPlaceholder();
        }
    }

    constexpr const char* get() const noexcept { return text_; }

private:
    const char* text_;
};
template <class... Arguments>
using FormatString = BasicFormatString<std::type_identity_t<Arguments>...>;

/// The run-time form: "%@", "%1$C", "%lu", "%0.02f", "%02.2hhX" and the rest. A missing or unfit
/// argument reads "(null)", a surplus one is ignored, a malformed placeholder stands as it is;
/// never undefined. An integer is cut to the stated length. Width and precision of a text count
/// UTF-16 units. Digits never depend on the locale.
VELTO_EXPORT std::string formatArguments(std::string_view format, FormatArguments arguments);

namespace detail {
/// The same with another decimal separator.
VELTO_EXPORT_INTERNAL std::string formatArguments(std::string_view format,
                                                  FormatArguments arguments,
                                                  std::string_view decimalSeparator);
}  // namespace detail

template <class... Arguments>
std::string format(FormatString<Arguments...> text, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> packed{FormatArgument(arguments)...};
    return formatArguments(text.get(), packed);
}

}  // namespace velto
