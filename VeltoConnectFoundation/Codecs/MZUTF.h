#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr std::string_view MZUTFUtilitiesErrorDomain = "MZUTFUtilitiesErrorDomain";

// One character per call. Out-parameters are written on success only.

/// 1 to 8; a continuation byte counts as 1.
extern "C" VELTO_EXPORT std::size_t MZUTF8BytesToDecodeCharacterBasedOnMostSignifantByte(
    std::uint8_t lead) noexcept;

/// Room for 3 bytes. Always true; a surrogate is encoded like any other unit.
extern "C" VELTO_EXPORT bool MZUTF8Encode16BitsToBytes(char16_t unit,
                                                       std::uint8_t* bytes,
                                                       std::size_t& count) noexcept;
/// Room for 6 bytes; false from 0x80000000 on. The number of bytes is the bit length divided by 6:
/// a value of 12, 17 or 18 bits loses its highest ones. For text use the 16-bit encoder.
extern "C" VELTO_EXPORT bool MZUTF8Encode32BitsToBytes(std::uint32_t value,
                                                       std::uint8_t* bytes,
                                                       std::size_t& count) noexcept;
/// Lenient: a stray continuation byte reads as its low seven bits; overlong forms and surrogates
/// pass. Four bytes and more are refused.
VELTO_EXPORT velto::Error MZUTF8DecodeBytesTo16Bits(const std::uint8_t* bytes,
                                                    std::size_t length,
                                                    std::size_t& consumed,
                                                    char16_t& unit);
/// As above with up to six bytes, of which only the first is examined.
VELTO_EXPORT velto::Error MZUTF8DecodeBytesTo32Bits(const std::uint8_t* bytes,
                                                    std::size_t length,
                                                    std::size_t& consumed,
                                                    std::uint32_t& value);

/// Two bytes. Always true.
extern "C" VELTO_EXPORT bool MZUTF16LEEncode16BitsToBytes(char16_t unit,
                                                          std::uint8_t* bytes,
                                                          std::size_t& count) noexcept;
extern "C" VELTO_EXPORT bool MZUTF16BEEncode16BitsToBytes(char16_t unit,
                                                          std::uint8_t* bytes,
                                                          std::size_t& count) noexcept;
VELTO_EXPORT velto::Error MZUTF16LEDecodeBytesTo16Bits(const std::uint8_t* bytes,
                                                       std::uint8_t length,
                                                       char16_t& unit);
VELTO_EXPORT velto::Error MZUTF16BEDecodeBytesTo16Bits(const std::uint8_t* bytes,
                                                       std::uint8_t length,
                                                       char16_t& unit);

/// True when the bytes begin with a byte-order mark.
extern "C" VELTO_EXPORT bool MZUTFDetermineByteOrderMarkEncoding(
    const std::uint8_t* bytes,
    std::size_t length,
    std::size_t& markLength,
    velto::TextEncoding& encoding) noexcept;
/// By a byte-order mark, else by where the zeros of an ASCII first character lie. False with less
/// than four bytes and no mark; `markLength` is then 0.
extern "C" VELTO_EXPORT bool MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(
    const std::uint8_t* bytes,
    std::size_t length,
    std::size_t& markLength,
    velto::TextEncoding& encoding) noexcept;
