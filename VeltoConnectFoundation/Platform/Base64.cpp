#include <VeltoConnectFoundation/Platform/Base64.h>

#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace velto {

namespace {

constexpr std::size_t lineLength = 64;
constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
/// What OpenSSL takes at once is an int; a multiple of three and of four.
constexpr std::size_t blockSize = std::size_t{3} << 20;

std::string inLines(std::string_view text) {
    std::string result;
    result.reserve(text.size() + text.size() / lineLength * 2);
    for (std::size_t i = 0; i < text.size(); i += lineLength) {
        result += i == 0 ? "" : "\r\n";
        result += text.substr(i, lineLength);
    }
    return result;
}

void replace(std::string& text, char from, char to) {
    std::ranges::replace(text, from, to);
}

const unsigned char* unsignedBytes(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace

std::string encodeBase64(std::string_view bytes, Base64Form form) {
    // EVP_EncodeBlock ends with a zero, for which a string has room.
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    std::size_t length = 0;
    for (std::size_t i = 0; i < bytes.size(); i += blockSize) {
        const std::string_view block = bytes.substr(i, blockSize);
        length += static_cast<std::size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data() + length),
                            unsignedBytes(block), static_cast<int>(block.size())));
    }
    switch (form) {
        case Base64Form::plain:
            break;
        case Base64Form::lines64:
            return inLines(text);
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
    const std::size_t count = digits.size() - padding;
    if (digits.size() % 4 != 0 || digits.find_first_not_of(alphabet) < count) {
        return std::nullopt;
    }
    // The bits of the last digit that stand for no byte must be zero.
    const std::size_t spare = padding == 0 ? 0 : (std::size_t{1} << (padding * 2)) - 1;
    if (padding != 0 && (count == 0 || (alphabet.find(digits[count - 1]) & spare) != 0)) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(digits.size() / 4 * 3);
    std::size_t length = 0;
    for (std::size_t i = 0; i < digits.size(); i += blockSize) {
        const std::string_view block = std::string_view(digits).substr(i, blockSize);
        const int decoded = EVP_DecodeBlock(bytes.data() + length, unsignedBytes(block),
                                            static_cast<int>(block.size()));
        if (decoded < 0) {
            return std::nullopt;
        }
        length += static_cast<std::size_t>(decoded);
    }
    bytes.resize(length - padding);
    return Data(std::move(bytes));
}

}  // namespace velto
