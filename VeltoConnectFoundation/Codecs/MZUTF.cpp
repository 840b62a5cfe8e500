#include <VeltoConnectFoundation/Codecs/MZUTF.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <array>
#include <bit>

namespace {

using velto::Error;
using velto::localized;
using velto::TextEncoding;

Error utfError(std::int64_t code, const char* description, const char* reason) {
    return Error::make(MZUTFUtilitiesErrorDomain, code, localized(description), localized(reason));
}

Error notEnoughForUTF8() {
    return utfError(-10000,
                    "The character buffer doesn’t contain enough data to decode the UTF-8 "
                    "character.",
                    "Insufficient data for UTF-8 character sequence");
}

Error tooLongForUTF8() {
    return utfError(-10010,
                    "The UTF-8 character sequence indicates more bytes than UTF-8 supports.",
                    "Invalid UTF-8 character sequence");
}

Error invalidByte(const char* text) {
    return utfError(-10001, text, text);
}

Error notEnoughForUTF16(std::int64_t code) {
    return utfError(code,
                    "The character buffer doesn’t contain enough bytes to decode the UTF-16 "
                    "character.",
                    "Insufficient data for UTF-16 character sequence");
}

bool isContinuation(std::uint8_t byte) noexcept {
    return (byte & 0xC0) == 0x80;
}

constexpr std::array<std::uint8_t, 256> sequenceLengths = [] {
    std::array<std::uint8_t, 256> lengths{};
    for (std::size_t lead = 0; lead < lengths.size(); ++lead) {
        const int ones = std::countl_one(static_cast<std::uint8_t>(lead));
        lengths[lead] = static_cast<std::uint8_t>(ones < 2 ? 1 : ones);
    }
    return lengths;
}();

}  // namespace

std::size_t MZUTF8BytesToDecodeCharacterBasedOnMostSignifantByte(std::uint8_t lead) noexcept {
    return sequenceLengths[lead];
}

bool MZUTF8Encode16BitsToBytes(char16_t unit, std::uint8_t* bytes, std::size_t& count) noexcept {
    if (unit <= 0x7F) {
        bytes[0] = static_cast<std::uint8_t>(unit);
        count = 1;
    } else if (unit <= 0x7FF) {
        bytes[0] = static_cast<std::uint8_t>(0xC0 | unit >> 6);
        bytes[1] = static_cast<std::uint8_t>(0x80 | (unit & 0x3F));
        count = 2;
    } else {
        bytes[0] = static_cast<std::uint8_t>(0xE0 | unit >> 12);
        bytes[1] = static_cast<std::uint8_t>(0x80 | (unit >> 6 & 0x3F));
        bytes[2] = static_cast<std::uint8_t>(0x80 | (unit & 0x3F));
        count = 3;
    }
    return true;
}

bool MZUTF8Encode32BitsToBytes(std::uint32_t value,
                               std::uint8_t* bytes,
                               std::size_t& count) noexcept {
    if (value <= 0x7F) {
        bytes[0] = static_cast<std::uint8_t>(value);
        count = 1;
        return true;
    }
    if (value > 0x7FFFFFFF) {
        return false;
    }
    // Required: six bits a byte for the lead too, though it has room for fewer.
    const auto length = (static_cast<std::size_t>(std::bit_width(value)) + 5) / 6;
    for (std::size_t i = length - 1; i > 0; --i) {
        bytes[i] = static_cast<std::uint8_t>(0x80 | (value & 0x3F));
        value >>= 6;
    }
    const std::uint32_t prefix = 0xFF00U >> length & 0xFFU;
    bytes[0] = static_cast<std::uint8_t>(prefix | (value & 0x7FU >> length));
    count = length;
    return true;
}

Error MZUTF8DecodeBytesTo16Bits(const std::uint8_t* bytes,
                                std::size_t length,
                                std::size_t& consumed,
                                char16_t& unit) {
    if (length == 0) {
        return notEnoughForUTF8();
    }
    const std::uint8_t lead = bytes[0];
    if (lead <= 0xBF) {
        // Required: a stray continuation byte is an ASCII character.
        unit = lead & 0x7F;
        consumed = 1;
        return {};
    }
    if (lead >= 0xF0) {
        return tooLongForUTF8();
    }
    const std::size_t count = sequenceLengths[lead];
    if (count > length) {
        return notEnoughForUTF8();
    }
    if (!isContinuation(bytes[1])) {
        return invalidByte("The second byte of the UTF-8 character sequence is invalid.");
    }
    if (count == 2) {
        unit = static_cast<char16_t>((lead & 0x1F) << 6 | (bytes[1] & 0x3F));
    } else {
        if (!isContinuation(bytes[2])) {
            return invalidByte("The third byte of the UTF-8 character sequence is invalid.");
        }
        unit =
            static_cast<char16_t>((lead & 0x0F) << 12 | (bytes[1] & 0x3F) << 6 | (bytes[2] & 0x3F));
    }
    consumed = count;
    return {};
}

Error MZUTF8DecodeBytesTo32Bits(const std::uint8_t* bytes,
                                std::size_t length,
                                std::size_t& consumed,
                                std::uint32_t& value) {
    if (length == 0) {
        return notEnoughForUTF8();
    }
    const std::uint8_t lead = bytes[0];
    if (lead <= 0xBF) {
        value = lead & 0x7F;
        consumed = 1;
        return {};
    }
    if (lead >= 0xFE) {
        return tooLongForUTF8();
    }
    const std::size_t count = sequenceLengths[lead];
    if (count > length) {
        return notEnoughForUTF8();
    }
    std::uint32_t result = lead & (0x7FU >> count);
    for (std::size_t i = 1; i < count; ++i) {
        result = result << 6 | (bytes[i] & 0x3FU);
    }
    value = result;
    consumed = count;
    return {};
}

bool MZUTF16LEEncode16BitsToBytes(char16_t unit, std::uint8_t* bytes, std::size_t& count) noexcept {
    bytes[0] = static_cast<std::uint8_t>(unit & 0xFF);
    bytes[1] = static_cast<std::uint8_t>(unit >> 8);
    count = 2;
    return true;
}

bool MZUTF16BEEncode16BitsToBytes(char16_t unit, std::uint8_t* bytes, std::size_t& count) noexcept {
    bytes[0] = static_cast<std::uint8_t>(unit >> 8);
    bytes[1] = static_cast<std::uint8_t>(unit & 0xFF);
    count = 2;
    return true;
}

Error MZUTF16LEDecodeBytesTo16Bits(const std::uint8_t* bytes, std::uint8_t length, char16_t& unit) {
    if (length < 2) {
        return notEnoughForUTF16(-10020);
    }
    unit = static_cast<char16_t>(bytes[0] | bytes[1] << 8);
    return {};
}

Error MZUTF16BEDecodeBytesTo16Bits(const std::uint8_t* bytes, std::uint8_t length, char16_t& unit) {
    if (length < 2) {
        return notEnoughForUTF16(-10030);
    }
    unit = static_cast<char16_t>(bytes[0] << 8 | bytes[1]);
    return {};
}

bool MZUTFDetermineByteOrderMarkEncoding(const std::uint8_t* bytes,
                                         std::size_t length,
                                         std::size_t& markLength,
                                         TextEncoding& encoding) noexcept {
    struct Mark {
        std::string_view bytes;
        TextEncoding encoding;
    };
    using namespace std::string_view_literals;
    // The order decides: a UTF-16 mark before a NUL character is taken for UTF-32.
    static constexpr Mark marks[] = {
        {"\xFF\xFE\0\0"sv, TextEncoding::utf32LittleEndian},
        {"\0\0\xFE\xFF"sv, TextEncoding::utf32BigEndian},
        {"\xEF\xBB\xBF"sv, TextEncoding::utf8},
        {"\xFF\xFE"sv, TextEncoding::utf16LittleEndian},
        {"\xFE\xFF"sv, TextEncoding::utf16BigEndian},
    };
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    for (const Mark& mark : marks) {
        if (text.starts_with(mark.bytes)) {
            markLength = mark.bytes.size();
            encoding = mark.encoding;
            return true;
        }
    }
    return false;
}

bool MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(const std::uint8_t* bytes,
                                                            std::size_t length,
                                                            std::size_t& markLength,
                                                            TextEncoding& encoding) noexcept {
    if (MZUTFDetermineByteOrderMarkEncoding(bytes, length, markLength, encoding)) {
        return true;
    }
    markLength = 0;
    if (length < 4) {
        return false;
    }
    if (bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0) {
        encoding = TextEncoding::utf32BigEndian;
    } else if (bytes[0] == 0 && bytes[2] == 0) {
        encoding = TextEncoding::utf16BigEndian;
    } else if (bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 0) {
        encoding = TextEncoding::utf32LittleEndian;
    } else if (bytes[1] == 0 && bytes[3] == 0) {
        encoding = TextEncoding::utf16LittleEndian;
    } else {
        encoding = TextEncoding::utf8;
    }
    return true;
}
