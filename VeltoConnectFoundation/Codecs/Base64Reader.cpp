#include <VeltoConnectFoundation/Codecs/Base64ReaderPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

namespace {

using velto::Error;

Error illegalCharacter(char character) {
    const auto byte = static_cast<std::uint8_t>(character);
    const std::string text = velto::localizedFormat("Illegal base64 input character: 0x%02x (%c)",
                                                    std::uint32_t{byte}, character);
    return Error::make(MZBase64EncodingErrorDomain, -17001, text, text);
}

}  // namespace

bool Base64Reader::accepts(char character) const noexcept {
    switch (character) {
        case '\n':
            return (flags_ & (MZBase64AcceptsLineFeed | MZBase64AcceptsAll)) != 0;
        case '\r':
            return (flags_ & (MZBase64AcceptsCarriageReturn | MZBase64AcceptsAll)) != 0;
        case '\t':
            return (flags_ & (MZBase64AcceptsTab | MZBase64AcceptsAll)) != 0;
        case ' ':
            return (flags_ & (MZBase64AcceptsSpace | MZBase64AcceptsAll)) != 0;
        default:
            return (flags_ & MZBase64AcceptsAll) != 0;
    }
}

Error Base64Reader::add(int digit, std::uint8_t*& bytes) {
    const auto bits = static_cast<unsigned>(digit);
    switch (state_) {
        case 0:
            break;
        case 1:
            *bytes++ = static_cast<std::uint8_t>(bits_ << 2 | bits >> 4);
            break;
        case 2:
            *bytes++ = static_cast<std::uint8_t>(bits_ << 4 | bits >> 2);
            break;
        case 3:
            *bytes++ = static_cast<std::uint8_t>(bits_ << 6 | bits);
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

std::uint8_t* Base64Reader::read(std::string_view text, std::uint8_t* bytes, Error* error) {
    const auto& blocks = velto::detail::base64Blocks();
    const bool skipsLineFeeds = accepts('\n');
    for (std::size_t at = 0; at < text.size() && !hasEnded_;) {
        if (state_ == 0) {
            const auto taken =
                blocks.decode(text.data() + at, text.size() - at, skipsLineFeeds, bytes);
            at += taken.characters;
            bytes += taken.bytes;
            if (at == text.size()) {
                break;
            }
        }
        const char character = text[at++];
        const int digit = velto::detail::base64Digit(character);
        if (digit >= 0) {
            if (Error failure = add(digit, bytes)) {
                velto::fail(error, std::move(failure));
                return nullptr;
            }
        } else if (character == '=') {
            hasEnded_ = true;
        } else if (!accepts(character)) {
            velto::fail(error, illegalCharacter(character));
            return nullptr;
        }
    }
    return bytes;
}
