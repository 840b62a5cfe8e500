#include <VeltoConnectFoundation/Platform/Stream.h>

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
class FileState {
public:
    explicit FileState(std::string_view path) : path_(path) {}
    ~FileState() { closeFile(); }
    FileState(const FileState&) = delete;
    FileState& operator=(const FileState&) = delete;

    /// Whether there is an event to tell: openCompleted, or errorOccurred, else none.
    StreamEvent openFile(int flags) {
        if (status != StreamStatus::notOpen) {
            return StreamEvent::none;
        }
        do {
            descriptor_ = ::open(path_.c_str(), flags | O_CLOEXEC, 0666);
        } while (descriptor_ < 0 && errno == EINTR);
        if (descriptor_ < 0) {
            return fail();
        }
        status = StreamStatus::open;
        return StreamEvent::openCompleted;
    }

    void closeFile() noexcept {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

    void close() noexcept {
        closeFile();
        status = StreamStatus::closed;
    }

    StreamEvent fail() {
        error = Error::posix(errno, path_);
        status = StreamStatus::error;
        return StreamEvent::errorOccurred;
    }

    Value offset(std::string_view key) const {
        if (key != StreamFileCurrentOffsetKey || descriptor_ < 0) {
            return {};
        }
        const off_t at = ::lseek(descriptor_, 0, SEEK_CUR);
        return at < 0 ? Value() : Value(std::int64_t{at});
    }

    bool setOffset(const Value& value, std::string_view key) {
        if (key != StreamFileCurrentOffsetKey || descriptor_ < 0 || !value.isNumber() ||
            ::lseek(descriptor_, value.integerValue(), SEEK_SET) < 0) {
            return false;
        }
        status = StreamStatus::open;
        return true;
    }

    int descriptor() const noexcept { return descriptor_; }

    StreamStatus status = StreamStatus::notOpen;
    Error error;

private:
    std::string path_;
    int descriptor_ = -1;
};

class FileInputStream final : public InputStream {
public:
    explicit FileInputStream(std::string_view path) : file_(path) {}

    void open() override { tell(file_.openFile(O_RDONLY)); }
    void close() override { file_.close(); }
    StreamStatus streamStatus() const override { return file_.status; }
    Error streamError() const override { return file_.error; }

    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        if (!isUsable(file_.status)) {
            return -1;
        }
        ssize_t count = 0;
        do {
            count = ::read(file_.descriptor(), buffer, length);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            tell(file_.fail());
        } else if (count == 0 && length != 0 && file_.status == StreamStatus::open) {
            file_.status = StreamStatus::atEnd;
            tell(StreamEvent::endEncountered);
        }
        return count;
    }
    bool hasBytesAvailable() const override { return file_.status == StreamStatus::open; }
    Value propertyForKey(std::string_view key) const override { return file_.offset(key); }
    bool setProperty(const Value& value, std::string_view key) override {
        return file_.setOffset(value, key);
    }

private:
    void tell(StreamEvent event) {
        if (event != StreamEvent::none) {
            tellDelegate(event);
        }
    }

    FileState file_;
};

class FileOutputStream final : public OutputStream {
public:
    FileOutputStream(std::string_view path, bool append)
        : file_(path), flags_(O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC)) {}

    void open() override { tell(file_.openFile(flags_)); }
    void close() override { file_.close(); }
    StreamStatus streamStatus() const override { return file_.status; }
    Error streamError() const override { return file_.error; }

    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override {
        if (file_.status != StreamStatus::open) {
            return -1;
        }
        ssize_t count = 0;
        do {
            count = ::write(file_.descriptor(), bytes, length);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            tell(file_.fail());
        }
        return count;
    }
    bool hasSpaceAvailable() const override { return file_.status == StreamStatus::open; }
    Value propertyForKey(std::string_view key) const override { return file_.offset(key); }
    bool setProperty(const Value& value, std::string_view key) override {
        return file_.setOffset(value, key);
    }

private:
    void tell(StreamEvent event) {
        if (event != StreamEvent::none) {
            tellDelegate(event);
        }
    }

    FileState file_;
    int flags_;
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
