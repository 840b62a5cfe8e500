#include <VeltoConnectFoundation/Platform/Base64Blocks.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace velto::detail {

namespace {

constexpr std::array<std::int8_t, 256> digitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < base64Alphabet.size(); ++i) {
        values[static_cast<std::uint8_t>(base64Alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

/// Encodes up to a line's end or the block's, and writes the line's end.
void encodePlain(const std::uint8_t* bytes,
                 std::size_t length,
                 const Base64Lines& lines,
                 char* text) {
    const std::uint8_t* const end = bytes + length;
    while (bytes != end) {
        const std::size_t line = std::min(lines.bytes, static_cast<std::size_t>(end - bytes));
        for (const std::uint8_t* const lineEnd = bytes + line; bytes != lineEnd; bytes += 3) {
            encodeBase64Group(bytes, text);
            text += 4;
        }
        if (line == lines.bytes) {
            text = std::ranges::copy(lines.end, text).out;
        }
    }
}

Base64Taken decodePlain(const char* text,
                        std::size_t length,
                        bool skipsLineFeeds,
                        std::uint8_t* bytes) {
    Base64Taken taken{0, 0};
    while (length - taken.characters >= 4) {
        const char* const group = text + taken.characters;
        const int bits = base64Digit(group[0]) << 18 | base64Digit(group[1]) << 12 |
                         base64Digit(group[2]) << 6 | base64Digit(group[3]);
        if (bits >= 0) {
            std::uint8_t* const to = bytes + taken.bytes;
            to[0] = static_cast<std::uint8_t>(bits >> 16);
            to[1] = static_cast<std::uint8_t>(bits >> 8);
            to[2] = static_cast<std::uint8_t>(bits);
            taken.characters += 4;
            taken.bytes += 3;
        } else if (skipsLineFeeds && group[0] == '\n') {
            ++taken.characters;
        } else {
            break;
        }
    }
    return taken;
}

constexpr Base64Blocks plainBlocks{encodePlain, decodePlain};

}  // namespace

void encodeBase64Group(const std::uint8_t* bytes, char* text) noexcept {
    const std::uint32_t bits =
        std::uint32_t{bytes[0]} << 16 | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]};
    text[0] = base64Alphabet[bits >> 18];
    text[1] = base64Alphabet[bits >> 12 & 63];
    text[2] = base64Alphabet[bits >> 6 & 63];
    text[3] = base64Alphabet[bits & 63];
}

int base64Digit(char character) noexcept {
    return digitValues[static_cast<std::uint8_t>(character)];
}

const Base64Blocks& plainBase64Blocks() noexcept {
    return plainBlocks;
}

const Base64Blocks& base64Blocks() noexcept {
    static const Base64Blocks& fastest = avx512Base64Blocks() != nullptr ? *avx512Base64Blocks()
                                         : avx2Base64Blocks() != nullptr ? *avx2Base64Blocks()
                                                                         : plainBlocks;
    return fastest;
}

std::size_t base64Length(std::size_t length, const Base64Lines& lines) noexcept {
    return (length + 2) / 3 * 4 + length / lines.bytes * lines.end.size();
}

void encodeBase64(const std::uint8_t* bytes,
                  std::size_t length,
                  const Base64Lines& lines,
                  char* text) noexcept {
    const std::size_t rest = length % 3;
    const std::size_t whole = length - rest;
    base64Blocks().encode(bytes, whole, lines, text);
    if (rest != 0) {
        std::uint8_t group[3] = {};
        std::memcpy(group, bytes + whole, rest);
        char* const last = text + base64Length(whole, lines);
        encodeBase64Group(group, last);
        std::fill(last + rest + 1, last + 4, '=');
    }
}

}  // namespace velto::detail
