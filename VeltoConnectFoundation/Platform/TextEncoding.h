#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// The platform's identifiers of string encodings.
enum class TextEncoding : std::uint32_t {
    ascii = 1,
    utf8 = 4,
    isoLatin1 = 5,
    macRoman = 30,
    utf16 = 10,
    utf16BigEndian = 0x90000100,
    utf16LittleEndian = 0x94000100,
    utf32 = 0x8c000100,
    utf32BigEndian = 0x98000100,
    utf32LittleEndian = 0x9c000100,
    windowsLatin1 = 12,
    shiftJIS = 8,
};

/// none when the bytes are not valid in the encoding, or the encoding is unknown. Text is UTF-8.
/// `utf16` and `utf32` take their order from a byte-order mark, big endian without one. UTF-16
/// keeps unpaired surrogates; every other encoding refuses them.
VELTO_EXPORT std::optional<std::string> decodeText(std::string_view bytes, TextEncoding encoding);
/// none when a character has no form in the encoding. No byte-order mark for the named orders;
/// `utf16` and `utf32` begin with one, little endian.
VELTO_EXPORT std::optional<std::string> encodeText(std::string_view text, TextEncoding encoding);
/// By IANA name; none when there is no such charset.
VELTO_EXPORT std::optional<std::string> decodeText(std::string_view bytes,
                                                   std::string_view ianaName);
/// Whether there is such a charset.
VELTO_EXPORT bool isKnownCharset(std::string_view ianaName);

/// Strict UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
VELTO_EXPORT bool isValidUTF8(std::string_view text) noexcept;

/// UTF-16 units of UTF-8 text in which an unpaired surrogate stands as its three-byte form. A byte
/// that belongs to no character reads as U+FFFD, here and in the functions below.
VELTO_EXPORT std::u16string utf16FromUTF8(std::string_view text);
VELTO_EXPORT std::string utf8FromUTF16(std::u16string_view units);
VELTO_EXPORT std::size_t utf16Length(std::string_view text) noexcept;
/// The text's first `units` UTF-16 units (a pair cut in half leaves its first surrogate).
VELTO_EXPORT std::string utf16Prefix(std::string_view text, std::size_t units);

/// Case-insensitive search by simple case folding; npos when absent.
VELTO_EXPORT std::size_t findIgnoringCase(std::string_view text,
                                          std::string_view what,
                                          std::size_t from = 0) noexcept;

/// Without the white space and line breaks (Unicode White_Space) at both ends.
VELTO_EXPORT std::string_view trimmed(std::string_view text) noexcept;
VELTO_EXPORT bool isWhiteSpace(char32_t character) noexcept;

/// Pieces between separators; always at least one.
VELTO_EXPORT std::vector<std::string_view> split(std::string_view text, std::string_view separator);
VELTO_EXPORT std::string replaceAll(std::string_view text,
                                    std::string_view what,
                                    std::string_view with);

/// The integer a text begins with, after blanks; 0 when there is none; saturates.
VELTO_EXPORT std::int64_t leadingInteger(std::string_view text) noexcept;

}  // namespace velto
