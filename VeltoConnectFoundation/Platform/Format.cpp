#include <VeltoConnectFoundation/Platform/Format.h>

#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <bit>
#include <charconv>

namespace velto {

namespace {

using detail::FormatDirective;
using Kind = FormatArgument::Kind;

constexpr std::string_view noneText = "(null)";

class Writer {
public:
    Writer(std::string& out, std::string_view decimalSeparator)
        : out_(out), decimalSeparator_(decimalSeparator) {}

    void write(const FormatDirective& directive, const FormatArgument& argument) {
        switch (directive.conversion) {
            case 'd':
            case 'i':
            case 'u':
            case 'x':
            case 'X':
            case 'o':
                if (argument.isInteger()) {
                    return writeInteger(directive, argument.signedValue());
                }
                break;
            case 'c':
            case 'C':
                if (argument.isInteger()) {
                    return writeCharacter(directive, argument.signedValue());
                }
                break;
            case 's':
            case 'S':
            case '@':
                if (argument.kind() == Kind::text) {
                    return writeText(directive, argument.text());
                }
                if (argument.kind() == Kind::described && directive.conversion == '@') {
                    return writeText(directive, argument.describe());
                }
                break;
            case 'p':
                if (argument.kind() == Kind::pointer || argument.kind() == Kind::described) {
                    return writePointer(directive, argument.pointer());
                }
                break;
            default:
                if (argument.kind() == Kind::floating) {
                    return writeFloating(directive, argument.floatingValue());
                }
                break;
        }
        FormatDirective whole = directive;
        whole.precision = -1;
        writeText(whole, noneText);
    }

private:
    /// Pads to the width; `prefix` (sign or base) stays before the zeros of either kind.
    void writePadded(const FormatDirective& directive,
                     std::string_view prefix,
                     std::size_t zeros,
                     std::string_view body,
                     std::size_t bodyUnits,
                     bool fillsWithZeros) {
        const std::size_t units = prefix.size() + zeros + bodyUnits;
        const auto width = static_cast<std::size_t>(directive.width);
        const std::size_t fill = width > units ? width - units : 0;
        if (!directive.isLeft && !fillsWithZeros) {
            out_.append(fill, ' ');
        }
        out_.append(prefix);
        out_.append(!directive.isLeft && fillsWithZeros ? zeros + fill : zeros, '0');
        out_.append(body);
        if (directive.isLeft) {
            out_.append(fill, ' ');
        }
    }

    std::string_view sign(const FormatDirective& directive, bool isNegative) const {
        return isNegative ? "-" : directive.hasPlus ? "+" : directive.hasBlank ? " " : "";
    }

    void writeInteger(const FormatDirective& directive, std::int64_t wide) {
        const int unused = 64 - 8 * directive.size;
        const bool isSigned = directive.conversion == 'd' || directive.conversion == 'i';
        const auto bits = static_cast<std::uint64_t>(wide) << unused;
        const std::int64_t number = std::bit_cast<std::int64_t>(bits) >> unused;
        const bool isNegative = isSigned && number < 0;
        const std::uint64_t magnitude =
            isNegative ? 0 - static_cast<std::uint64_t>(number) : bits >> unused;

        const int base = directive.conversion == 'x' || directive.conversion == 'X' ? 16
                         : directive.conversion == 'o'                              ? 8
                                                                                    : 10;
        std::array<char, 24> buffer;
        char* end = buffer.data();
        if (magnitude != 0 || directive.precision != 0) {
            end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), magnitude, base).ptr;
        }
        const std::string_view digits(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
        if (directive.conversion == 'X') {
            capitalise(buffer.data(), end);
        }
        if (directive.width == 0 && directive.precision < 0 && !directive.isAlternate) {
            if (isSigned) {
                out_.append(sign(directive, isNegative));
            }
            out_.append(digits);
            return;
        }
        std::size_t zeros = 0;
        if (directive.precision > static_cast<int>(digits.size())) {
            zeros = static_cast<std::size_t>(directive.precision) - digits.size();
        }
        std::string_view prefix;
        if (isSigned) {
            prefix = sign(directive, isNegative);
        } else if (directive.isAlternate && base == 16 && magnitude != 0) {
            prefix = directive.conversion == 'X' ? "0X" : "0x";
        } else if (directive.isAlternate && base == 8 && zeros == 0 &&
                   (digits.empty() || digits[0] != '0')) {
            zeros = 1;
        }
        writePadded(directive, prefix, zeros, digits, digits.size(),
                    directive.hasZero && directive.precision < 0);
    }

    void writeFloating(const FormatDirective& directive, double number) {
        // 309 digits before the point of the largest number, and the largest precision after it.
        std::array<char, 340 + detail::maximumFormatWidth> buffer;
        char* const begin = buffer.data();
        char* const limit = begin + buffer.size();
        const bool isNegative = std::bit_cast<std::int64_t>(number) < 0;
        const double magnitude = isNegative ? -number : number;
        const bool isFinite = magnitude - magnitude == 0;
        const char conversion = directive.conversion >= 'a'
                                    ? directive.conversion
                                    : static_cast<char>(directive.conversion + ('a' - 'A'));
        const int precision = directive.precision < 0 ? 6 : directive.precision;
        char* end = nullptr;
        if (!isFinite) {
            end = begin + std::string_view(magnitude > 0 ? "inf" : "nan").copy(begin, 3);
        } else if (conversion == 'f') {
            end = std::to_chars(begin, limit, magnitude, std::chars_format::fixed, precision).ptr;
        } else if (conversion == 'e') {
            end = std::to_chars(begin, limit, magnitude, std::chars_format::scientific, precision)
                      .ptr;
        } else if (conversion == 'a') {
            end =
                directive.precision < 0
                    ? std::to_chars(begin, limit, magnitude, std::chars_format::hex).ptr
                    : std::to_chars(begin, limit, magnitude, std::chars_format::hex, precision).ptr;
        } else if (!directive.isAlternate) {
            end = std::to_chars(begin, limit, magnitude, std::chars_format::general, precision).ptr;
        } else {
            end = generalWithZeros(begin, limit, magnitude, precision == 0 ? 1 : precision);
        }
        if (directive.isAlternate && isFinite) {
            end = withPoint(begin, end);
        }
        std::string_view prefix = sign(directive, isNegative);
        std::array<char, 3> signAndBase;
        if (conversion == 'a' && isFinite) {
            const std::size_t length = prefix.copy(signAndBase.data(), 1);
            signAndBase[length] = '0';
            signAndBase[length + 1] = 'x';
            capitaliseIf(directive.conversion == 'A', signAndBase.data(),
                         signAndBase.data() + length + 2);
            prefix = std::string_view(signAndBase.data(), length + 2);
        }
        capitaliseIf(directive.conversion < 'a', begin, end);
        const std::string_view body(begin, static_cast<std::size_t>(end - begin));
        const bool fillsWithZeros = directive.hasZero && isFinite;
        const std::size_t point = body.find('.');
        if (point == body.npos || decimalSeparator_ == ".") {
            return writePadded(directive, prefix, 0, body, body.size(), fillsWithZeros);
        }
        std::string localized(body.substr(0, point));
        localized.append(decimalSeparator_);
        localized.append(body.substr(point + 1));
        writePadded(directive, prefix, 0, localized, utf16Length(localized), fillsWithZeros);
    }

    /// "%#g": general, but trailing zeros stay.
    static char* generalWithZeros(char* begin, char* limit, double magnitude, int precision) {
        char* const end =
            std::to_chars(begin, limit, magnitude, std::chars_format::scientific, precision - 1)
                .ptr;
        const char* mark = end;
        while (*--mark != 'e') {
        }
        int exponent = 0;
        std::from_chars(mark + (mark[1] == '+' ? 2 : 1), end, exponent);
        if (exponent < -4 || exponent >= precision) {
            return end;
        }
        return std::to_chars(begin, limit, magnitude, std::chars_format::fixed,
                             precision - 1 - exponent)
            .ptr;
    }

    /// Puts the missing point after the digits, before an exponent.
    static char* withPoint(char* begin, char* end) {
        const std::string_view text(begin, static_cast<std::size_t>(end - begin));
        if (text.find('.') != text.npos) {
            return end;
        }
        char* const place = begin + std::min(text.find_first_of("ep"), text.size());
        std::copy_backward(place, end, end + 1);
        *place = '.';
        return end + 1;
    }

    static void capitalise(char* begin, const char* end) {
        for (; begin != end; ++begin) {
            if (*begin >= 'a' && *begin <= 'z') {
                *begin = static_cast<char>(*begin - ('a' - 'A'));
            }
        }
    }
    static void capitaliseIf(bool wanted, char* begin, const char* end) {
        if (wanted) {
            capitalise(begin, end);
        }
    }

    void writeText(const FormatDirective& directive, std::string_view text) {
        if (directive.width == 0 && directive.precision < 0) {
            out_.append(text);
            return;
        }
        if (directive.precision >= 0) {
            text = wholeCharacters(text, static_cast<std::size_t>(directive.precision));
        }
        writePadded(directive, {}, 0, text, utf16Length(text), false);
    }

    /// What of the text takes at most `units` UTF-16 units without cutting a character.
    static std::string_view wholeCharacters(std::string_view text, std::size_t units) {
        std::size_t at = 0;
        while (at < text.size()) {
            const std::size_t start = at++;
            while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) {
                ++at;
            }
            const std::size_t length = utf16Length(text.substr(start, at - start));
            if (length > units) {
                return text.substr(0, start);
            }
            units -= length;
        }
        return text;
    }

    void writeCharacter(const FormatDirective& directive, std::int64_t number) {
        const auto unit = directive.conversion == 'C' ? static_cast<char16_t>(number)
                                                      : static_cast<char16_t>(number & 0xFF);
        const bool isLowSurrogate = (unit & 0xFC00U) == 0xDC00U;
        if (isLowSurrogate && directive.width <= 1 && out_.size() >= 3) {
            // Follows its first half: the two become the one character.
            const std::u16string last =
                utf16FromUTF8(std::string_view(out_).substr(out_.size() - 3));
            if (last.size() == 1 && (last[0] & 0xFC00U) == 0xD800U) {
                out_.resize(out_.size() - 3);
                out_.append(utf8FromUTF16(std::u16string{last[0], unit}));
                return;
            }
        }
        const std::string character = utf8FromUTF16(std::u16string_view(&unit, 1));
        writePadded(directive, {}, 0, character, 1, false);
    }

    void writePointer(const FormatDirective& directive, const void* pointer) {
        std::array<char, 24> buffer;
        const char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                              reinterpret_cast<std::uintptr_t>(pointer), 16)
                                    .ptr;
        const std::string_view digits(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
        writePadded(directive, "0x", 0, digits, digits.size(), false);
    }

    std::string& out_;
    std::string_view decimalSeparator_;
};

}  // namespace

std::string detail::formatArguments(std::string_view format,
                                    FormatArguments arguments,
                                    std::string_view decimalSeparator) {
    if (format == "%@" && !arguments.empty() && arguments[0].kind() == Kind::text) {
        return std::string(arguments[0].text());
    }
    std::size_t expected = format.size();
    for (const FormatArgument& argument : arguments) {
        expected += argument.kind() == Kind::text ? argument.text().size() : 8;
    }
    std::string out;
    out.reserve(expected);
    Writer writer(out, decimalSeparator);
    std::size_t next = 0;
    std::size_t at = 0;
    while (at < format.size()) {
        const std::size_t percent = std::min(format.find('%', at), format.size());
        out.append(format, at, percent - at);
        if (percent == format.size()) {
            break;
        }
        FormatDirective directive;
        at = parseFormatDirective(format, percent, directive);
        if (at == 0) {
            out += '%';
            at = percent + 1;
        } else if (directive.conversion == '%') {
            out += '%';
        } else {
            const std::size_t index = directive.position != 0 ? directive.position - 1U : next++;
            writer.write(directive, index < arguments.size() ? arguments[index] : FormatArgument());
        }
    }
    return out;
}

std::string formatArguments(std::string_view format, FormatArguments arguments) {
    return detail::formatArguments(format, arguments, ".");
}

}  // namespace velto
