#include <VeltoConnectFoundation/Codecs/ByteBlockPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>
#include <limits>

#define ZLIB_CONST
#include <zlib.h>

namespace {

using velto::Data;
using velto::Error;

constexpr std::size_t deflateGrowth = 16384;
constexpr std::size_t leastInflateGrowth = 16384;
constexpr int gzipWindow = 15 + 16;
constexpr int anyWindow = 15 + 32;
constexpr int memoryLevel = 8;

const velto::Setting inflatedSizeLimit(MZInflatedSizeLimit,
                                       velto::SettingKind::integer,
                                       std::int64_t{1} << 30,
                                       "Most bytes that compressed content may inflate to");

const char* messageForCode(int code) {
    switch (code) {
        case Z_VERSION_ERROR:
            return velto::markLocalized("General version error");
        case Z_BUF_ERROR:
            return velto::markLocalized("General buffer error");
        case Z_MEM_ERROR:
            return velto::markLocalized("General memory error");
        case Z_DATA_ERROR:
            return velto::markLocalized("General data error");
        case Z_STREAM_ERROR:
            return velto::markLocalized("General stream error");
        default:
            return velto::markLocalized("General error");
    }
}

Error GenerateErrorWithStream(const z_stream* stream, int code) {
    velto::assertParameter(stream != nullptr, "stream != NULL",
                           "NSError *GenerateErrorWithStream(z_stream *, int)",
                           "MZCompressionUtilities.m");
    const std::string message =
        stream->msg != nullptr ? stream->msg : velto::localized(messageForCode(code));
    const std::string text = velto::localizedFormat("Unable to perform compression action: %@ (%@)",
                                                    message, std::to_string(code));
    return Error::make(MZCompressionUtilitiesErrorDomain, code, text, text);
}

/// A stream from a block of any length to a growing one; zlib itself counts in 32 bits.
class Transfer {
public:
    explicit Transfer(const Data& input) : next_(input.bytes()), left_(input.length()) {}

    std::size_t produced() const { return produced_; }
    bool isFull() const { return produced_ == block_.size(); }
    bool isFed() const { return left_ == 0; }

    /// False when there is no such room.
    bool setCapacity(std::size_t capacity) { return block_.resize(capacity); }
    std::size_t capacity() const { return block_.size(); }

    /// Runs `step` on what there is to read and room to write.
    template <class Step>
    int run(Step step) {
        constexpr std::size_t most = std::numeric_limits<uInt>::max();
        const auto input = static_cast<uInt>(std::min(left_, most));
        const auto output = static_cast<uInt>(std::min(block_.size() - produced_, most));
        stream.next_in = next_;
        stream.avail_in = input;
        stream.next_out = block_.bytes() + produced_;
        stream.avail_out = output;
        const int code = step(&stream, input == left_);
        next_ += input - stream.avail_in;
        left_ -= input - stream.avail_in;
        produced_ += output - stream.avail_out;
        return code;
    }

    std::optional<Data> result() {
        // Giving room back moves nothing; should it fail, the room stays.
        static_cast<void>(block_.resize(produced_));
        return block_.takeData(produced_);
    }

    z_stream stream{};

private:
    const std::uint8_t* next_;
    std::size_t left_;
    std::size_t produced_ = 0;
    ByteBlock block_;
};

int deflateAll(Transfer& transfer) {
    int code = Z_OK;
    while (code == Z_OK) {
        if (transfer.isFull() && !transfer.setCapacity(transfer.capacity() + deflateGrowth)) {
            return Z_MEM_ERROR;
        }
        code = transfer.run([](z_stream* stream, bool last) {
            return deflate(stream, last ? Z_FINISH : Z_NO_FLUSH);
        });
    }
    return code;
}

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

int inflateAll(Transfer& transfer, const Data& block) {
    const std::size_t length = block.length();
    const std::size_t limit =
        static_cast<std::size_t>(std::max<std::int64_t>(inflatedSizeLimit.integerValue(), 0));
    // One byte more, to tell a block that is just as long from a longer one.
    const std::size_t mostRoom = limit + 1;
    const std::size_t growth = std::max(length / 2, leastInflateGrowth);
    std::size_t room = std::min(std::max(length * 2, statedSize(block)), mostRoom);
    int code = Z_OK;
    while (code == Z_OK) {
        if (transfer.isFull()) {
            if (!transfer.setCapacity(room)) {
                return Z_MEM_ERROR;
            }
            room = mostRoom - room > growth ? room + growth : mostRoom;
        }
        code = transfer.run([](z_stream* stream, bool) { return inflate(stream, Z_SYNC_FLUSH); });
        if (transfer.produced() > limit) {
            return Z_MEM_ERROR;
        }
    }
    return code;
}

}  // namespace

const MZCompressionUtilities& MZCompressionUtilities::defaultUtilities() {
    static const MZCompressionUtilities utilities;
    return utilities;
}

std::optional<Data> MZCompressionUtilities::gzipDeflate(const Data& data, Error* error) const {
    Transfer transfer(data);
    int code = deflateInit2(&transfer.stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, gzipWindow,
                            memoryLevel, Z_DEFAULT_STRATEGY);
    if (code == Z_OK) {
        code = deflateAll(transfer);
        deflateEnd(&transfer.stream);
    }
    if (code != Z_STREAM_END) {
        velto::fail(error, GenerateErrorWithStream(&transfer.stream, code));
        return std::nullopt;
    }
    return transfer.result();
}

std::optional<Data> MZCompressionUtilities::gzipInflate(const Data& data, Error* error) const {
    Transfer transfer(data);
    int code = inflateInit2(&transfer.stream, anyWindow);
    if (code == Z_OK) {
        code = inflateAll(transfer, data);
        const int endCode = inflateEnd(&transfer.stream);
        code = code == Z_STREAM_END && endCode != Z_OK ? endCode : code;
    }
    if (code != Z_STREAM_END) {
        velto::fail(error, GenerateErrorWithStream(&transfer.stream, code));
        return std::nullopt;
    }
    return transfer.result();
}
