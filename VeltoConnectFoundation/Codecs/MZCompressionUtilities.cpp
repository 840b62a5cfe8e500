#include <VeltoConnectFoundation/Codecs/GzipInflaterPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>

#include <algorithm>

namespace {

using velto::Data;
using velto::Error;

constexpr std::size_t leastDeflateGrowth = 16384;

/// What a gzip block says of its size at its end, which spares growing; 0 for what cannot be.
std::size_t statedSize(const Data& block) {
    constexpr std::size_t header = 10;
    constexpr std::size_t trailer = 8;
    constexpr std::size_t mostRatio = 1032;
    const std::uint8_t* const bytes = block.bytes();
    const std::size_t length = block.length();
    if (length < header + trailer || bytes[0] != 0x1f || bytes[1] != 0x8b) {
        return 0;
    }
    const std::uint8_t* const last = bytes + length - 4;
    const std::size_t size = std::size_t{last[0]} | std::size_t{last[1]} << 8 |
                             std::size_t{last[2]} << 16 | std::size_t{last[3]} << 24;
    return size / mostRatio <= length ? size : 0;
}

}  // namespace

const MZCompressionUtilities& MZCompressionUtilities::defaultUtilities() {
    static const MZCompressionUtilities utilities;
    return utilities;
}

std::optional<Data> MZCompressionUtilities::gzipDeflate(const Data& data, Error* error) const {
    GzipStream stream(GzipStream::Direction::deflate);
    std::span input(data.bytes(), data.length());
    ByteBlock block;
    std::size_t produced = 0;
    while (stream.isRunning()) {
        if (!block.resize(block.size() + std::max(block.size() / 2, leastDeflateGrowth))) {
            stream.failForMemory();
            break;
        }
        std::span<std::uint8_t> output(block.bytes() + produced, block.size() - produced);
        stream.run(input, output, true);
        produced = block.size() - output.size();
    }
    if (!stream.hasEnded()) {
        velto::fail(error, stream.error());
        return std::nullopt;
    }
    // Giving room back moves nothing; should it fail, the room stays.
    static_cast<void>(block.resize(produced));
    return block.takeData(produced);
}

std::optional<Data> MZCompressionUtilities::gzipInflate(const Data& data, Error* error) const {
    GzipInflater inflater(std::max(data.length() * 2, statedSize(data)));
    inflater.add(std::span(data.bytes(), data.length()), true);
    return inflater.takeData(error);
}
