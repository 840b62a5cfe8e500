#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace velto {

namespace {

constexpr detail::Base64Lines linesOf64{48, "\r\n"};

void replace(std::string& text, char from, char to) {
    std::ranges::replace(text, from, to);
}

}  // namespace

std::string encodeBase64(std::string_view bytes, Base64Form form) {
    const detail::Base64Lines lines =
        form == Base64Form::lines64 ? linesOf64 : detail::Base64Lines();
    std::string text(detail::base64Length(bytes.size(), lines), '\0');
    detail::encodeBase64(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), lines,
                         text.data());
    switch (form) {
        case Base64Form::plain:
            break;
        case Base64Form::lines64:
            if (text.ends_with(linesOf64.end)) {
                text.resize(text.size() - linesOf64.end.size());
            }
            break;
        case Base64Form::url:
            replace(text, '+', '-');
            replace(text, '/', '_');
            text.erase(std::min(text.find('='), text.size()));
            break;
    }
    return text;
}

std::optional<Data> decodeBase64(std::string_view text, Base64Form form) {
    std::string digits(text);
    if (form == Base64Form::lines64) {
        std::erase_if(digits, [](char c) { return c == '\r' || c == '\n'; });
    } else if (form == Base64Form::url) {
        if (digits.find_first_of("+/=") != std::string::npos) {
            return std::nullopt;
        }
        replace(digits, '-', '+');
        replace(digits, '_', '/');
        digits.append((4 - digits.size() % 4) % 4, '=');
    }
    const std::size_t padding = digits.ends_with("==") ? 2 : digits.ends_with('=') ? 1 : 0;
    if (digits.size() % 4 != 0) {
        return std::nullopt;
    }
    if (padding != 0) {
        // The bits of the last digit that stand for no byte must be zero; so are those of "A".
        char& last = digits[digits.size() - padding - 1];
        const int spare = (1 << (padding * 2)) - 1;
        if ((detail::base64Digit(last) & spare) != 0) {
            return std::nullopt;
        }
        std::fill(digits.end() - static_cast<std::ptrdiff_t>(padding), digits.end(), 'A');
    }
    std::vector<std::uint8_t> bytes(digits.size() / 4 * 3);
    if (detail::base64Blocks().decode(digits.data(), digits.size(), false, bytes.data()).bytes !=
        bytes.size()) {
        return std::nullopt;
    }
    bytes.resize(bytes.size() - padding);
    return Data(std::move(bytes));
}

}  // namespace velto
