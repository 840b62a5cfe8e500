#include <VeltoConnectFoundation/Files/MZMD5Worker.h>

#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/FileReaderPrivate.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <filesystem>
#include <utility>

using velto::Error;
using velto::FileManager;
using velto::Guard;
using velto::StreamStatus;

namespace {

constexpr double progressSpacing = 0.25;  // seconds

/// Passes a file's bytes on, and the worker's cancel with them: the operation forgets a cancel that
/// comes before it begins. The worker tells its observers meanwhile how far it is.
class WatchedStream final : public velto::InputStream {
public:
    WatchedStream(const std::string& file, MZAbstractWorker& worker, MZMD5Operation& operation)
        : file_(velto::FileReader::open(file, &error_)), worker_(worker), operation_(operation) {
        status_ = file_ ? StreamStatus::open : StreamStatus::error;
    }

    std::optional<velto::FileAttributes> fileAttributes() const {
        return file_ ? file_->attributes() : std::nullopt;
    }

    void open() override {}
    void close() override { status_ = StreamStatus::closed; }
    StreamStatus streamStatus() const override { return status_; }
    Error streamError() const override { return error_; }
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        if (worker_.isCancelled()) {
            operation_.cancel();
        }
        const velto::Date now = velto::Clock::now();
        if (now.secondsSinceReference - told_.secondsSinceReference >= progressSpacing) {
            told_ = now;
            worker_.setPercentComplete(worker_.percentComplete());
        }
        const std::ptrdiff_t count = file_ ? file_->read(buffer, length, &error_) : -1;
        if (count <= 0) {
            status_ = count == 0 ? StreamStatus::atEnd : StreamStatus::error;
        }
        return count;
    }

private:
    Error error_;
    std::optional<velto::FileReader> file_;
    StreamStatus status_;
    MZAbstractWorker& worker_;
    MZMD5Operation& operation_;
    velto::Date told_ = velto::Clock::now();
};

}  // namespace

MZMD5Worker::MZMD5Worker(velto::PassKey, std::string_view file)
    : file_(file), operation_(MZMD5Operation::operationWthFile(file)) {
}

MZMD5Worker::~MZMD5Worker() = default;

void MZMD5Worker::run() {
    if (!startUnlessCancelled()) {
        return;
    }
    setStatusMessage(velto::localizedFormat("Computing the checksum of %@…",
                                            std::filesystem::path(file_).filename().string()));
    Error error;
    std::optional<std::string> md5 = computeMD5(error);
    if (!isCancelled()) {
        addError(error);
        {
            Guard guard(resultLock_);
            md5_ = std::move(md5);
        }
        if (!finishUnlessCancelled()) {
            Guard guard(resultLock_);
            md5_.reset();  // It may be that of half the file.
        }
    }
    setPercentComplete(100);
}

std::optional<std::string> MZMD5Worker::computeMD5(Error& error) {
    WatchedStream stream(file_, *this, *operation_);
    const auto attributes = stream.fileAttributes();
    if (attributes) {
        {
            Guard guard(resultLock_);
            fileAttributes_ = attributes;
        }
        size_ = attributes->size;
    } else if (!FileManager::exists(file_)) {
        static_cast<void>(operation_->computeMD5WithError(&error));  // which words it
        return std::nullopt;
    }
    return operation_->computeMD5WithStream(&stream, &error);
}

void MZMD5Worker::cancel() {
    MZAbstractWorker::cancel();
    operation_->cancel();
}

std::optional<std::string> MZMD5Worker::md5() const {
    Guard guard(resultLock_);
    return md5_;
}

std::optional<velto::FileAttributes> MZMD5Worker::fileAttributes() const {
    Guard guard(resultLock_);
    return fileAttributes_;
}

double MZMD5Worker::percentComplete() const {
    const double told = MZAbstractWorker::percentComplete();
    const std::uint64_t total = size_;
    if (told >= 100 || total == 0) {
        return told;
    }
    // A file may grow while it is read.
    return std::min(100.0, static_cast<double>(completed()) / static_cast<double>(total) * 100);
}

std::uint64_t MZMD5Worker::size() const {
    return size_;
}

std::uint64_t MZMD5Worker::completed() const {
    return operation_->bytesAnalyzed();
}
