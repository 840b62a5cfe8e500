#include <VeltoConnectFoundation/Codecs/MZJSONTextSource.h>

#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>
#include <VeltoConnectFoundation/Platform/UTF8Text.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {

using velto::TextEncoding;

constexpr std::size_t blockSize = 8192;
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
        block_.resize(blockSize + longestCharacter);
        blockLength_ = first.copy(block_.data(), first.size());
        takeCharacters();
    }
}

bool MZJSONTextSource::readMore(std::size_t bytes) {
    std::size_t sum = 0;
    while (!isEnded_ && !error_ && blockLength_ < longestCharacter && (sum == 0 || sum < bytes)) {
        const bool isUTF8 = encoding_ == TextEncoding::utf8;
        char* const place = isUTF8 ? room(blockSize) : block_.data() + blockLength_;
        std::size_t obtained = 0;
        isEnded_ = !MZReadBytesFromStream(*stream_, reinterpret_cast<std::uint8_t*>(place),
                                          blockSize, obtained, error_);
        if (error_) {
            break;
        }
        sum += obtained;
        if (isUTF8) {
            commit(place + obtained);
        } else {
            blockLength_ += obtained;
            takeCharacters();
        }
    }
    return sum != 0;
}

/// Where that many bytes may be written behind the text, and a zero.
char* MZJSONTextSource::room(std::size_t count) {
    const std::size_t needed = length_ + count + 1;
    if (needed > capacity_) {
        const std::size_t capacity = std::max(needed, capacity_ * 2);
        auto* larger = static_cast<char*>(std::realloc(text_.get(), capacity));
        if (larger == nullptr) {
            throw std::bad_alloc();
        }
        static_cast<void>(text_.release());
        text_.reset(larger);
        capacity_ = capacity;
    }
    return text_.get() + length_;
}

void MZJSONTextSource::commit(char* end) noexcept {
    length_ = static_cast<std::size_t>(end - text_.get());
    *end = '\0';
}

void MZJSONTextSource::takeCharacters() {
    std::string_view bytes(block_.data(), blockLength_);
    commit(velto::writeUTF8(room(blockLength_ + blockLength_ / 2), bytes, encoding_));
    blockLength_ = bytes.size();
    std::memmove(block_.data(), bytes.data(), bytes.size());
}

std::string MZJSONTextSource::bytes() const {
    return encoding_ == TextEncoding::utf8
               ? std::string(text())
               : velto::encodeText(text(), encoding_).value_or("").append(block_, 0, blockLength_);
}

std::shared_ptr<velto::InputStream> MZJSONTextSource::stream() const {
    return error_ ? std::make_shared<FailedStream>(error_) : stream_;
}
