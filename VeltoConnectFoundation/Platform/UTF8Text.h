#pragma once

#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <string_view>

namespace velto {

/// Writes the character's UTF-8, one to four bytes; answers the end.
inline char* writeUTF8(char* out, char32_t character) noexcept {
    const auto tail = [&](unsigned shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80) {
        *out++ = static_cast<char>(character);
    } else if (character < 0x800) {
        *out++ = static_cast<char>(0xC0 | character >> 6);
        *out++ = tail(0);
    } else if (character < 0x10000) {
        *out++ = static_cast<char>(0xE0 | character >> 12);
        *out++ = tail(6);
        *out++ = tail(0);
    } else {
        *out++ = static_cast<char>(0xF0 | character >> 18);
        *out++ = tail(12);
        *out++ = tail(6);
        *out++ = tail(0);
    }
    return out;
}

/// Writes the characters that `bytes` in UTF-16 or UTF-32 of a named byte order begin with, and
/// cuts them off `bytes`; answers the end. What is left begins with an incomplete character, or
/// with what stands for none (a lone surrogate, a value beyond Unicode). Needs room for three bytes
/// for two.
char* writeUTF8(char* out, std::string_view& bytes, TextEncoding encoding) noexcept;

}  // namespace velto
