#include <VeltoConnectFoundation/Codecs/ByteBlockPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <limits>

namespace {

using velto::Data;
using velto::Error;
using velto::detail::Base64Lines;

constexpr std::size_t bytesOf76Characters = 57;

/// Lines end where the count of bytes, which goes in threes, is a multiple of the interval.
Base64Lines linesWithInterval(std::size_t interval) {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / 3;
    if (interval % 3 != 0) {
        interval = interval <= most ? interval * 3 : most * 3;
    }
    return {interval, "\n"};
}

bool isAccepted(char character, std::uint32_t flags) {
    switch (character) {
        case '\n':
            return (flags & (MZBase64AcceptsLineFeed | MZBase64AcceptsAll)) != 0;
        case '\r':
            return (flags & (MZBase64AcceptsCarriageReturn | MZBase64AcceptsAll)) != 0;
        case '\t':
            return (flags & (MZBase64AcceptsTab | MZBase64AcceptsAll)) != 0;
        case ' ':
            return (flags & (MZBase64AcceptsSpace | MZBase64AcceptsAll)) != 0;
        default:
            return (flags & MZBase64AcceptsAll) != 0;
    }
}

Error illegalCharacter(char character) {
    const auto byte = static_cast<std::uint8_t>(character);
    const std::string text = velto::localizedFormat("Illegal base64 input character: 0x%02x (%c)",
                                                    std::uint32_t{byte}, character);
    return Error::make(MZBase64EncodingErrorDomain, -17001, text, text);
}

/// Adds digits one by one, four to a group of three bytes.
class Accumulator {
public:
    explicit Accumulator(std::uint8_t* bytes) : next(bytes) {}

    bool isBetweenGroups() const { return state_ == 0; }

    Error add(int digit) {
        const auto bits = static_cast<unsigned>(digit);
        switch (state_) {
            case 0:
                break;
            case 1:
                *next++ = static_cast<std::uint8_t>(bits_ << 2 | bits >> 4);
                break;
            case 2:
                *next++ = static_cast<std::uint8_t>(bits_ << 4 | bits >> 2);
                break;
            case 3:
                *next++ = static_cast<std::uint8_t>(bits_ << 6 | bits);
                break;
            default: {
                const std::string text =
                    velto::localized("Illegal internal state during base64 decoding");
                return Error::make(MZBase64EncodingErrorDomain, -17002, text, text);
            }
        }
        bits_ = bits;
        state_ = (state_ + 1) % 4;
        return {};
    }

    std::uint8_t* next;

private:
    unsigned state_ = 0;
    unsigned bits_ = 0;  ///< The last digit; its bits that are used already are shifted out.
};

}  // namespace

MZBase64Coder MZBase64Coder::coder() {
    return {};
}

std::optional<Data> MZBase64Coder::encodedBase64ValueWithData(const Data& data,
                                                              Error* error) const {
    return encodedBase64ValueWithData(data, bytesOf76Characters, error);
}

std::optional<Data> MZBase64Coder::encodedBase64ValueWithData(const Data& data,
                                                              std::size_t newlineInterval,
                                                              Error*) const {
    velto::assertParameter(newlineInterval != 0, "newlineInterval != 0",
                           "-[MZBase64Coder encodedBase64ValueWithData:newlineInterval:error:]",
                           "MZBase64Coder.m");
    if (data.isEmpty()) {
        return Data();
    }
    const Base64Lines lines = linesWithInterval(newlineInterval);
    std::size_t length = velto::detail::base64Length(data.length(), lines);
    ByteBlock block(length + 1);
    char* const text = reinterpret_cast<char*>(block.bytes());
    velto::detail::encodeBase64(data.bytes(), data.length(), lines, text);
    if ((flags_ & MZBase64EndsWithNewline) != 0 && text[length - 1] != '\n') {
        text[length++] = '\n';
    }
    return block.takeData(length);
}

std::optional<Data> MZBase64Coder::decodedValueWithBase64Data(std::string_view text,
                                                              Error* error) const {
    ByteBlock block(text.size() / 4 * 3 + 3);
    Accumulator accumulator(block.bytes());
    const auto& blocks = velto::detail::base64Blocks();
    const bool skipsLineFeeds = isAccepted('\n', flags_);
    for (std::size_t at = 0; at < text.size();) {
        if (accumulator.isBetweenGroups()) {
            const auto taken =
                blocks.decode(text.data() + at, text.size() - at, skipsLineFeeds, accumulator.next);
            at += taken.characters;
            accumulator.next += taken.bytes;
            if (at == text.size()) {
                break;
            }
        }
        const char character = text[at++];
        const int digit = velto::detail::base64Digit(character);
        if (digit >= 0) {
            if (Error failure = accumulator.add(digit)) {
                velto::fail(error, std::move(failure));
                return std::nullopt;
            }
        } else if (character == '=') {
            break;
        } else if (!isAccepted(character, flags_)) {
            velto::fail(error, illegalCharacter(character));
            return std::nullopt;
        }
    }
    return block.takeData(static_cast<std::size_t>(accumulator.next - block.bytes()));
}
