#include <VeltoConnectFoundation/Codecs/Base64ReaderPrivate.h>
#include <VeltoConnectFoundation/Codecs/ByteBlockPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

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
    ByteBlock block(Base64Reader::mostBytes(text.size()));
    Base64Reader reader(flags_);
    const std::uint8_t* const end = reader.read(text, block.bytes(), error);
    if (end == nullptr) {
        return std::nullopt;
    }
    return block.takeData(static_cast<std::size_t>(end - block.bytes()));
}
