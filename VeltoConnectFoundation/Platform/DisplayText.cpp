#include <VeltoConnectFoundation/Platform/DisplayText.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace velto {

namespace {

struct Range {
    char32_t first, last;
};

constexpr Range controls[] = {
    {0x0000, 0x001F}, {0x007F, 0x009F},   {0x00AD, 0x00AD},  {0x061C, 0x061C}, {0x180E, 0x180E},
    {0x200B, 0x200B}, {0x200E, 0x200F},   {0x2028, 0x202E},  {0x2060, 0x206F}, {0xFEFF, 0xFEFF},
    {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}, {0x1D173, 0x1D17A}};

void appendHex(std::string& text, std::string_view mark, std::uint32_t number, unsigned digits) {
    text += mark;
    while (digits-- > 0) {
        text += "0123456789abcdef"[(number >> (4 * digits)) & 0xF];
    }
}

}  // namespace

char32_t takeCodePoint(std::string_view& text) noexcept {
    const auto byte = [&](std::size_t index) {
        return static_cast<char32_t>(static_cast<unsigned char>(text[index]));
    };
    const char32_t first = byte(0);
    const std::size_t length = first < 0x80             ? 1
                               : (first & 0xE0) == 0xC0 ? 2
                               : (first & 0xF0) == 0xE0 ? 3
                               : (first & 0xF8) == 0xF0 ? 4
                                                        : 0;
    constexpr std::array<char32_t, 5> masks{0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    if (length != 0 && length <= text.size()) {
        char32_t character = first & masks[length];
        bool valid = true;
        for (std::size_t index = 1; index < length; ++index) {
            valid = valid && (byte(index) & 0xC0) == 0x80;
            character = (character << 6) | (byte(index) & 0x3F);
        }
        if (valid && character >= smallest[length] && character <= 0x10FFFF &&
            (character < 0xD800 || character > 0xDFFF)) {
            text.remove_prefix(length);
            return character;
        }
    }
    text.remove_prefix(1);
    return replacementCharacter;
}

bool isControlCharacter(char32_t character) noexcept {
    return std::ranges::any_of(
        controls, [&](Range range) { return character >= range.first && character <= range.last; });
}

std::string escapedLogLine(std::string_view line, std::string_view margin) {
    line = line.substr(0, line.find_last_not_of("\r\n") + 1);
    std::string text;
    text.reserve(line.size());
    while (!line.empty()) {
        const std::string_view before = line;
        const char32_t character = takeCodePoint(line);
        const std::string_view bytes = before.substr(0, before.size() - line.size());
        if (character == '\n') {
            text.append(bytes).append(margin);
        } else if (character == '\r') {
            text += line.starts_with('\n') ? "" : "\\r";
        } else if (character == replacementCharacter && bytes.size() == 1) {
            appendHex(text, "\\x", static_cast<unsigned char>(bytes.front()), 2);
        } else if (character == '\t' || !isControlCharacter(character)) {
            text += bytes;
        } else if (character < 0x80) {
            appendHex(text, "\\x", character, 2);
        } else if (character < 0x10000) {
            appendHex(text, "\\u", character, 4);
        } else {
            appendHex(text, "\\U", character, 8);
        }
    }
    return text;
}

}  // namespace velto
