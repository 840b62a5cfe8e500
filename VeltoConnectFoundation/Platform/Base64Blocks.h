#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace velto::detail {

inline constexpr std::string_view base64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// How base64 text is broken; not at all by default.
struct Base64Lines {
    std::size_t bytes = std::numeric_limits<std::size_t>::max() / 3 * 3;  ///< A multiple of 3.
    std::string_view end;  ///< After every full line, the last one too; at most two characters.
};

/// How far a text has been read, and what came of it.
struct Base64Taken {
    std::size_t characters;
    std::size_t bytes;
};

/// Whole groups of three bytes and four digits, in several ways that give the same. All keep
/// within the room they are given.
struct Base64Blocks {
    /// `length` is a multiple of 3; the text has base64Length characters.
    void (*encode)(const std::uint8_t* bytes,
                   std::size_t length,
                   const Base64Lines& lines,
                   char* text);
    /// Decodes groups up to the first that holds anything but digits; with `skipsLineFeeds`, line
    /// feeds may stand between groups. `bytes` has room for three bytes per four characters; what
    /// follows the decoded ones may be written to.
    Base64Taken (*decode)(const char* text,
                          std::size_t length,
                          bool skipsLineFeeds,
                          std::uint8_t* bytes);
};

VELTO_EXPORT_INTERNAL const Base64Blocks& plainBase64Blocks() noexcept;
/// 32 characters at a time; null where the processor has no AVX2. After Muła and Lemire, "Faster
/// Base64 Encoding and Decoding Using AVX2 Instructions", ACM Transactions on the Web 12 (3), 2018.
VELTO_EXPORT_INTERNAL const Base64Blocks* avx2Base64Blocks() noexcept;
/// 64 characters at a time; null where the processor has no AVX-512 VBMI2. After Muła and Lemire,
/// "Base64 encoding and decoding at almost the speed of a memory copy", Software: Practice and
/// Experience 50 (2), 2020.
VELTO_EXPORT_INTERNAL const Base64Blocks* avx512Base64Blocks() noexcept;
/// The fastest of them that this processor has.
VELTO_EXPORT_INTERNAL const Base64Blocks& base64Blocks() noexcept;

/// Characters of `length` bytes, padding and line ends included.
VELTO_EXPORT_INTERNAL std::size_t base64Length(std::size_t length,
                                               const Base64Lines& lines) noexcept;
/// Writes base64Length characters.
void encodeBase64(const std::uint8_t* bytes,
                  std::size_t length,
                  const Base64Lines& lines,
                  char* text) noexcept;
/// Three bytes as four digits.
void encodeBase64Group(const std::uint8_t* bytes, char* text) noexcept;
/// A digit's value; -1 for any other character.
int base64Digit(char character) noexcept;

}  // namespace velto::detail
