#include <VeltoConnectFoundation/Codecs/GzipInflaterPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>

namespace {

constexpr std::size_t leastGrowth = 16384;

const velto::Setting inflatedSizeLimit(MZInflatedSizeLimit,
                                       velto::SettingKind::integer,
                                       std::int64_t{1} << 30,
                                       "Most bytes that compressed content may inflate to");

}  // namespace

GzipInflater::GzipInflater(std::size_t expected)
    : limit_(static_cast<std::size_t>(std::max<std::int64_t>(inflatedSizeLimit.integerValue(), 0))),
      room_(std::max(expected, leastGrowth)) {
}

bool GzipInflater::grow() {
    // One byte more, to tell a block that is just as long from a longer one.
    const std::size_t size = std::min(room_, limit_ + 1);
    room_ = size + std::max(size / 2, leastGrowth);
    return block_.resize(size);
}

void GzipInflater::add(std::span<const std::uint8_t> bytes, bool isLast) {
    while (stream_.isRunning() && (isLast || !bytes.empty())) {
        if (produced_ == block_.size() && !grow()) {
            stream_.failForMemory();
            return;
        }
        std::span<std::uint8_t> output(block_.bytes() + produced_, block_.size() - produced_);
        stream_.run(bytes, output, isLast);
        produced_ = block_.size() - output.size();
        if (produced_ > limit_) {
            stream_.failForMemory();
        }
    }
}

std::optional<velto::Data> GzipInflater::takeData(velto::Error* error) {
    if (!stream_.hasEnded()) {
        velto::fail(error, stream_.error());
        return std::nullopt;
    }
    // Giving room back moves nothing; should it fail, the room stays.
    static_cast<void>(block_.resize(produced_));
    return block_.takeData(produced_);
}
