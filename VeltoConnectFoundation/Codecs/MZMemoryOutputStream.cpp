#include <VeltoConnectFoundation/Codecs/MZMemoryOutputStream.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace {

using velto::Error;
using velto::StreamStatus;

constexpr std::size_t minimumCapacity = 1024;
constexpr std::size_t growBy = 2;
constexpr std::size_t largestBlock = std::numeric_limits<std::ptrdiff_t>::max();

Error memoryError(std::int64_t code, const char* text) {
    const std::string translated = velto::localized(text);
    return Error::make(MZMemoryOutputStreamErrorDomain, code, translated, translated);
}

std::uint8_t* resized(std::uint8_t* block, std::size_t capacity) noexcept {
    return capacity <= largestBlock ? static_cast<std::uint8_t*>(std::realloc(block, capacity))
                                    : nullptr;
}

}  // namespace

MZMemoryOutputStream::MZMemoryOutputStream(std::size_t capacity)
    : memory_(resized(nullptr, std::max<std::size_t>(capacity, 1))),
      capacity_(std::max<std::size_t>(capacity, 1)) {
    velto::assertParameter(memory_ != nullptr, "_memory",
                           "-[MZMemoryOutputStream initWithCapacity:]", "MZMemoryOutputStream.m");
}

MZMemoryOutputStream::~MZMemoryOutputStream() {
    std::free(memory_);
}

velto::Data MZMemoryOutputStream::data() const {
    return {memory_, length_};
}

velto::Data MZMemoryOutputStream::dataByResettingMemoryStream() {
    velto::Data data = velto::Data::adoptingMalloc(memory_, length_);
    memory_ = nullptr;
    length_ = capacity_ = 0;
    return data;
}

void MZMemoryOutputStream::open() {
    status_ = StreamStatus::open;
    tellDelegate(velto::StreamEvent::openCompleted);
}

void MZMemoryOutputStream::close() {
    status_ = StreamStatus::closed;
}

Error MZMemoryOutputStream::makeRoom(std::size_t length) {
    const bool fits = length <= largestBlock - length_;
    const std::size_t needed = fits ? length_ + length : std::numeric_limits<std::size_t>::max();
    if (memory_ == nullptr) {
        const std::size_t capacity = std::max(minimumCapacity, needed);
        memory_ = resized(nullptr, capacity);
        if (memory_ == nullptr) {
            return memoryError(-17001, "Unable to allocate memory for output stream.");
        }
        capacity_ = capacity;
        length_ = 0;
    } else if (capacity_ < needed) {
        std::size_t capacity = capacity_ * growBy;
        while (capacity < needed && capacity <= largestBlock) {
            capacity *= growBy;
        }
        std::uint8_t* block = fits ? resized(memory_, capacity) : nullptr;
        if (block == nullptr) {
            return memoryError(-17000, "Unable to allocate additional memory for output stream.");
        }
        memory_ = block;
        capacity_ = capacity;
    }
    return {};
}

std::ptrdiff_t MZMemoryOutputStream::write(const std::uint8_t* bytes, std::size_t length) {
    status_ = StreamStatus::writing;
    std::ptrdiff_t written = -1;
    if (Error error = makeRoom(length)) {
        error_ = std::move(error);
        tellDelegate(velto::StreamEvent::errorOccurred);
    } else {
        if (length != 0) {
            std::memcpy(memory_ + length_, bytes, length);
            length_ += length;
        }
        written = static_cast<std::ptrdiff_t>(length);
    }
    if (!error_) {
        // Required: after an error the status stays at writing.
        status_ = StreamStatus::open;
    }
    return written;
}

velto::Value MZMemoryOutputStream::propertyForKey(std::string_view key) const {
    return key == velto::StreamDataWrittenToMemoryKey ? velto::Value(data()) : velto::Value();
}
