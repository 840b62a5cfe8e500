#include <VeltoConnectFoundation/Platform/Stream.h>

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace velto {

namespace {

bool isUsable(StreamStatus status) noexcept {
    return status == StreamStatus::open || status == StreamStatus::atEnd;
}

class DataInputStream final : public InputStream {
public:
    explicit DataInputStream(Data data) : data_(std::move(data)) {}

    void open() override {
        if (status_ == StreamStatus::notOpen) {
            status_ = StreamStatus::open;
            tellDelegate(StreamEvent::openCompleted);
        }
    }
    void close() override { status_ = StreamStatus::closed; }
    StreamStatus streamStatus() const override { return status_; }
    Error streamError() const override { return {}; }

    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        if (!isUsable(status_)) {
            return -1;
        }
        const std::size_t count = std::min(length, data_.length() - offset_);
        if (count != 0) {
            std::memcpy(buffer, data_.bytes() + offset_, count);
            offset_ += count;
        }
        // The end is known with the last byte, so that nobody need read once more to learn it.
        if (status_ == StreamStatus::open && offset_ == data_.length()) {
            status_ = StreamStatus::atEnd;
            tellDelegate(StreamEvent::endEncountered);
        }
        return static_cast<std::ptrdiff_t>(count);
    }
    bool hasBytesAvailable() const override {
        return status_ == StreamStatus::open && offset_ < data_.length();
    }
    bool getBuffer(const std::uint8_t*& bytes, std::size_t& length) override {
        if (!hasBytesAvailable()) {
            return false;
        }
        bytes = data_.bytes() + offset_;
        length = data_.length() - offset_;
        return true;
    }
    Value propertyForKey(std::string_view key) const override {
        return key == StreamFileCurrentOffsetKey ? Value(offset_) : Value();
    }

private:
    Data data_;
    std::size_t offset_ = 0;
    StreamStatus status_ = StreamStatus::notOpen;
};

/// An open file and what became of it, for both directions.
template <class Base>
class FileStream : public Base {
public:
    FileStream(std::string_view path, int flags) : path_(path), flags_(flags) {}

    void open() override {
        if (status_ != StreamStatus::notOpen) {
            return;
        }
        do {
            file_.reset(::open(path_.c_str(), flags_ | O_CLOEXEC, 0666));
        } while (!file_ && errno == EINTR);
        if (!file_) {
            fail();
            return;
        }
        status_ = StreamStatus::open;
        this->tellDelegate(StreamEvent::openCompleted);
    }

    void close() override {
        file_.reset();
        status_ = StreamStatus::closed;
    }

    StreamStatus streamStatus() const override { return status_; }
    Error streamError() const override { return error_; }

    Value propertyForKey(std::string_view key) const override {
        if (key != StreamFileCurrentOffsetKey || !file_) {
            return {};
        }
        const off_t at = ::lseek(file_.number(), 0, SEEK_CUR);
        return at < 0 ? Value() : Value(std::int64_t{at});
    }

    bool setProperty(const Value& value, std::string_view key) override {
        if (key != StreamFileCurrentOffsetKey || !file_ || !value.isNumber() ||
            ::lseek(file_.number(), value.integerValue(), SEEK_SET) < 0) {
            return false;
        }
        status_ = StreamStatus::open;
        return true;
    }

protected:
    /// What `transfer` answers, which is asked again when a signal interrupts it; negative when it
    /// failed.
    template <class Transfer>
    std::ptrdiff_t uninterrupted(const Transfer& transfer) {
        ssize_t count = 0;
        do {
            count = transfer(file_.number());
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            fail();
        }
        return count;
    }

    StreamStatus status_ = StreamStatus::notOpen;

private:
    void fail() {
        error_ = Error::posix(errno, path_);
        status_ = StreamStatus::error;
        this->tellDelegate(StreamEvent::errorOccurred);
    }

    const std::string path_;
    const int flags_;
    FileDescriptor file_;
    Error error_;
};

class FileInputStream final : public FileStream<InputStream> {
public:
    explicit FileInputStream(std::string_view path) : FileStream(path, O_RDONLY) {}

    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        if (!isUsable(status_)) {
            return -1;
        }
        const std::ptrdiff_t count =
            uninterrupted([&](int descriptor) { return ::read(descriptor, buffer, length); });
        if (count == 0 && length != 0 && status_ == StreamStatus::open) {
            status_ = StreamStatus::atEnd;
            tellDelegate(StreamEvent::endEncountered);
        }
        return count;
    }
    bool hasBytesAvailable() const override { return status_ == StreamStatus::open; }
};

class FileOutputStream final : public FileStream<OutputStream> {
public:
    FileOutputStream(std::string_view path, bool append)
        : FileStream(path, O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC)) {}

    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override {
        if (status_ != StreamStatus::open) {
            return -1;
        }
        return uninterrupted([&](int descriptor) { return ::write(descriptor, bytes, length); });
    }
    bool hasSpaceAvailable() const override { return status_ == StreamStatus::open; }
};

}  // namespace

Stream::Stream() = default;
Stream::~Stream() = default;

Value Stream::propertyForKey(std::string_view) const {
    return {};
}

bool Stream::setProperty(const Value&, std::string_view) {
    return false;
}

std::weak_ptr<StreamDelegate> Stream::delegate() const {
    return delegate_;
}

void Stream::setDelegate(std::weak_ptr<StreamDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void Stream::tellDelegate(StreamEvent event) {
    if (const auto delegate = delegate_.lock()) {
        delegate->streamHandleEvent(*this, event);
    }
}

std::shared_ptr<InputStream> InputStream::withData(Data data) {
    return std::make_shared<DataInputStream>(std::move(data));
}

std::shared_ptr<InputStream> InputStream::withFile(std::string_view path) {
    return std::make_shared<FileInputStream>(path);
}

bool InputStream::hasBytesAvailable() const {
    return streamStatus() == StreamStatus::open;
}

bool InputStream::getBuffer(const std::uint8_t*&, std::size_t&) {
    return false;
}

std::shared_ptr<OutputStream> OutputStream::toFile(std::string_view path, bool append) {
    return std::make_shared<FileOutputStream>(path, append);
}

bool OutputStream::hasSpaceAvailable() const {
    return streamStatus() == StreamStatus::open;
}

}  // namespace velto
