#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <array>
#include <span>
#include <type_traits>

namespace velto {

class Error;
class Exception;

/// One packed argument of a format text. It borrows what it refers to: valid for the call only.
class FormatArgument {
public:
    enum class Kind : std::uint8_t { none, signedInteger, unsignedInteger, floating, character, text, described, pointer };

    /// What "%@" accepts beyond text: anything with description(), and (shared) pointers to it.
    using Describe = std::string (*)(const void* object);

    constexpr FormatArgument() noexcept : signed_(0) {}
    template <PlainInteger T>
    constexpr FormatArgument(T number) noexcept : size_(sizeof(T)) {
        if constexpr (std::signed_integral<T>) {
            kind_ = Kind::signedInteger;
            signed_ = number;
        } else {
            kind_ = Kind::unsignedInteger;
            unsigned_ = number;
        }
    }
    constexpr FormatArgument(char character) noexcept
        : kind_(Kind::signedInteger), size_(sizeof(char)), signed_(character) {}
    constexpr FormatArgument(bool flag) noexcept : kind_(Kind::signedInteger), size_(sizeof(int)), signed_(flag) {}
    constexpr FormatArgument(char16_t unit) noexcept : kind_(Kind::character), size_(2), unsigned_(unit) {}
    constexpr FormatArgument(double number) noexcept : kind_(Kind::floating), floating_(number) {}
    constexpr FormatArgument(float number) noexcept : kind_(Kind::floating), floating_(number) {}
    constexpr FormatArgument(const char* text) noexcept
        : kind_(text == nullptr ? Kind::none : Kind::text),
          text_(text == nullptr ? std::string_view() : std::string_view(text)) {}
    constexpr FormatArgument(std::string_view text) noexcept : kind_(Kind::text), text_(text) {}
    FormatArgument(const std::string& text) noexcept : kind_(Kind::text), text_(text) {}
    FormatArgument(const std::optional<std::string>& text) noexcept
        : kind_(text ? Kind::text : Kind::none), text_(text ? std::string_view(*text) : std::string_view()) {}
    constexpr FormatArgument(const void* pointer) noexcept : kind_(Kind::pointer), pointer_{pointer, nullptr} {}
    template <class T>
        requires requires(const T& object) { { object.description() } -> std::convertible_to<std::string>; }
    FormatArgument(const T& object) noexcept
        : kind_(Kind::described),
          pointer_{&object, [](const void* it) -> std::string { return static_cast<const T*>(it)->description(); }} {}
    template <class T>
        requires requires(const T& object) { { object.description() } -> std::convertible_to<std::string>; }
    FormatArgument(const std::shared_ptr<T>& object) noexcept
        : kind_(object ? Kind::described : Kind::none),
          pointer_{object.get(), [](const void* it) -> std::string { return static_cast<const T*>(it)->description(); }} {}

    Kind kind() const noexcept { return kind_; }
    std::uint8_t size() const noexcept { return size_; }  ///< Bytes of an integer.
    std::int64_t signedValue() const noexcept { return signed_; }
    std::uint64_t unsignedValue() const noexcept { return unsigned_; }
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
    std::uint8_t size_ = 0;
    union {
        std::int64_t signed_;
        std::uint64_t unsigned_;
        double floating_;
        std::string_view text_;
        Described pointer_;
    };
};

/// The packed arguments of one call, borrowed.
using FormatArguments = std::span<const FormatArgument>;

namespace detail {

enum class FormatClass : std::uint8_t { none, integer, character, floating, text, object, pointer };

/// The class of argument that each position of `format` asks for; throws on a malformed text
/// (which a constant evaluation reports as a compile error).
/// Positions above 16 are refused.
struct FormatSignature {
    std::array<FormatClass, 16> classes{};
    std::size_t count = 0;
    friend constexpr bool operator==(const FormatSignature&, const FormatSignature&) = default;
};
constexpr FormatSignature parseFormatSignature(std::string_view format);

template <class T>
constexpr bool formatAccepts(FormatClass wanted);

}  // namespace detail

/// A format literal, checked against its arguments when compiled.
template <class... Arguments>
class BasicFormatString {
public:
    template <class Text>
        requires std::convertible_to<const Text&, const char*>
    consteval BasicFormatString(const Text& text);

    constexpr const char* get() const noexcept { return text_; }

private:
    const char* text_;
};
template <class... Arguments>
using FormatString = BasicFormatString<std::type_identity_t<Arguments>...>;

/// The run-time form: "%@", "%1$C", "%lu", "%0.02f", "%02.2hhX" and the rest. A missing or unfit
/// argument reads "(null)", a surplus one is ignored; never undefined. Digits never depend on
/// the locale.
VELTO_EXPORT std::string formatArguments(std::string_view format, FormatArguments arguments);

template <class... Arguments>
std::string format(FormatString<Arguments...> text, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> packed{FormatArgument(arguments)...};
    return formatArguments(text.get(), packed);
}

}  // namespace velto
