#include <VeltoConnectFoundation/Codecs/MZJSONTextSource.h>

#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>
#include <VeltoConnectFoundation/Platform/UTF8Text.h>

#include <algorithm>
#include <cstring>

namespace {

using velto::TextEncoding;

constexpr std::size_t blockSize = 8192;
constexpr std::size_t segmentSize = 65536;
/// No character is longer, in any encoding.
constexpr std::size_t longestCharacter = 4;

/// What a failed stream is replaced by.
class FailedStream final : public velto::InputStream {
public:
    explicit FailedStream(velto::Error error) : error_(std::move(error)) {}

    void open() override {}
    void close() override {}
    velto::StreamStatus streamStatus() const override { return velto::StreamStatus::error; }
    velto::Error streamError() const override { return error_; }
    std::ptrdiff_t read(std::uint8_t*, std::size_t) override { return -1; }

private:
    velto::Error error_;
};

}  // namespace

MZJSONTextSource::MZJSONTextSource(TextEncoding encoding,
                                   std::shared_ptr<velto::InputStream> stream,
                                   std::string_view first)
    : encoding_(encoding), stream_(std::move(stream)) {
    if (encoding_ == TextEncoding::utf8) {
        commit(std::copy(first.begin(), first.end(), room(first.size())));
    } else {
        undecoded_.resize(blockSize + longestCharacter);
        undecodedLength_ = first.copy(undecoded_.data(), first.size());
        takeCharacters();
    }
}

bool MZJSONTextSource::readMore(std::size_t unread) {
    begin_ = length_ - unread;
    std::size_t sum = 0;
    while (!isEnded_ && !error_ && undecodedLength_ < longestCharacter &&
           (sum == 0 || sum < unread)) {
        const bool isUTF8 = encoding_ == TextEncoding::utf8;
        char* const place = isUTF8 ? room(blockSize) : undecoded_.data() + undecodedLength_;
        std::size_t obtained = 0;
        isEnded_ = !MZReadBytesFromStream(*stream_, reinterpret_cast<std::uint8_t*>(place),
                                          blockSize, obtained, error_);
        if (error_) {
            if (isUTF8) {
                commit(place);  // Behind the text stand bytes of the block that failed.
            }
            break;
        }
        sum += obtained;
        if (isUTF8) {
            commit(place + obtained);
        } else {
            undecodedLength_ += obtained;
            takeCharacters();
        }
    }
    return sum != 0;
}

/// Where that many bytes may be written behind the text, and a zero.
char* MZJSONTextSource::room(std::size_t count) {
    if (length_ + count + 1 > capacity_) {
        const std::string_view unread = block_ ? text() : std::string_view();
        const std::size_t capacity = std::max(segmentSize, 2 * (unread.size() + count + 2));
        auto next = std::make_unique_for_overwrite<char[]>(capacity);
        next[0] = '\0';
        unread.copy(&next[1], unread.size());
        if (begin_ > 1) {
            read_.reserve(read_.size() + 1);  // Should that fail, the block stays.
            read_.push_back({std::move(block_), begin_});
        }
        block_ = std::move(next);
        capacity_ = capacity;
        begin_ = 1;
        length_ = 1 + unread.size();
    }
    return &block_[length_];
}

void MZJSONTextSource::commit(char* end) noexcept {
    length_ = static_cast<std::size_t>(end - block_.get());
    *end = '\0';
}

void MZJSONTextSource::takeCharacters() {
    std::string_view bytes(undecoded_.data(), undecodedLength_);
    commit(velto::writeUTF8(room(undecodedLength_ + undecodedLength_ / 2), bytes, encoding_));
    undecodedLength_ = bytes.size();
    std::memmove(undecoded_.data(), bytes.data(), bytes.size());
}

std::string MZJSONTextSource::bytes() const {
    std::string text;
    for (const Segment& segment : read_) {
        text.append(&segment.block[1], segment.length - 1);
    }
    text.append(&block_[1], length_ - 1);
    return encoding_ == TextEncoding::utf8 ? text
                                           : velto::encodeText(text, encoding_)
                                                 .value_or("")
                                                 .append(undecoded_, 0, undecodedLength_);
}

std::shared_ptr<velto::InputStream> MZJSONTextSource::stream() const {
    return error_ ? std::make_shared<FailedStream>(error_) : stream_;
}
