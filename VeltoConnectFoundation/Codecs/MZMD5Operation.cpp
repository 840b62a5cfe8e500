#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace {

using velto::Error;
using velto::localized;
using velto::StreamStatus;

/// What is digested at once, and asked of a stream of the caller's.
constexpr std::size_t blockSize = 8192;
/// What is asked of a file: a system call for each block costs 3 % of the whole, for 64 KiB 1 %.
constexpr std::size_t fileReadSize = 64 * blockSize;
constexpr int mostEmptyReads = 1000;

Error operationError(std::int64_t code, const std::string& text, const Error& cause = {}) {
    velto::Dictionary userInfo;
    userInfo.set(velto::LocalizedDescriptionKey, text);
    userInfo.set(velto::LocalizedFailureReasonKey, text);
    if (cause) {
        userInfo.set(velto::UnderlyingErrorKey, cause);
    }
    return {MZMD5OperationErrorDomain, code, std::move(userInfo)};
}

Error unreadable(const velto::InputStream& stream) {
    return operationError(-18007, localized("Unable to read from the MD5 input stream."),
                          stream.streamError());
}

/// What keeps a stream from being read from its start.
Error startError(const velto::InputStream& stream) {
    switch (stream.streamStatus()) {
        case StreamStatus::open:
            return {};
        case StreamStatus::atEnd:
            return operationError(-18003, localized("MD5 input stream has no data."));
        case StreamStatus::error:
            return operationError(-18004, localized("MD5 input stream is in an error status."),
                                  stream.streamError());
        case StreamStatus::closed:
            return operationError(
                -18005,
                localized("MD5 input stream must be open before attempting to read from it."));
        default:
            return operationError(-18006, localized("MD5 input stream is in an invalid status."));
    }
}

}  // namespace

MZMD5Operation::MZMD5Operation(velto::PassKey, std::optional<std::string> file)
    : file_(std::move(file)) {
}

std::shared_ptr<MZMD5Operation> MZMD5Operation::operation() {
    return velto::make<MZMD5Operation>(std::nullopt);
}

std::shared_ptr<MZMD5Operation> MZMD5Operation::operationWthFile(std::string_view file) {
    return velto::make<MZMD5Operation>(std::string(file));
}

std::optional<std::string> MZMD5Operation::md5ForFilename(std::string_view path, Error* error) {
    return operationWthFile(path)->computeMD5WithError(error);
}

std::optional<std::string> MZMD5Operation::md5ForData(const velto::Data& data, Error* error) {
    MZMD5Context context;
    context.updateWithBytes(data.bytes(), data.length());
    return context.md5WithError(error);
}

std::optional<std::string> MZMD5Operation::md5ForStream(velto::InputStream* stream, Error* error) {
    return operation()->computeMD5WithStream(stream, error);
}

std::optional<std::string> MZMD5Operation::md5ForString(std::string_view string,
                                                        velto::TextEncoding encoding,
                                                        Error* error) {
    const std::optional<std::string> bytes = velto::encodeText(string, encoding);
    if (!bytes) {
        const std::string text = localized("The text has characters that its encoding lacks.");
        velto::fail(error, Error::make(velto::GeneralErrorDomain, EILSEQ, text, text));
        return std::nullopt;
    }
    MZMD5Context context;
    context.updateWithBytes(bytes->data(), bytes->size());
    return context.md5WithError(error);
}

std::optional<std::string> MZMD5Operation::computeMD5WithError(Error* error) {
    const std::optional<std::string> path = file();
    if (!path || !velto::FileManager::exists(*path)) {
        velto::fail(error,
                    operationError(-18001, velto::localizedFormat("The source file must exist to "
                                                                  "compute the MD5: %@",
                                                                  path)));
        return std::nullopt;
    }
    const auto stream = velto::InputStream::withFile(*path);
    stream->open();
    std::optional<std::string> md5 = compute(stream.get(), fileReadSize, error);
    stream->close();
    return md5;
}

std::optional<std::string> MZMD5Operation::computeMD5WithStream(velto::InputStream* stream,
                                                                Error* error) {
    return compute(stream, blockSize, error);
}

std::optional<std::string> MZMD5Operation::compute(velto::InputStream* stream,
                                                   std::size_t readSize,
                                                   Error* error) {
    cancelled_.store(false, std::memory_order_relaxed);
    bytesAnalyzed_.store(0, std::memory_order_relaxed);
    const auto failWith = [&](const Error& failure) {
        velto::fail(error, failure);
        return std::nullopt;
    };
    if (stream == nullptr) {
        return failWith(operationError(-18002, localized("An MD5 input stream must be provided.")));
    }
    if (const Error failure = startError(*stream)) {
        return failWith(failure);
    }
    MZMD5Context context;
    if (const Error failure = context.open()) {
        return failWith(failure);
    }
    // Reading waits for bytes, or finds the end: asking whether there are some would spin.
    const auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(readSize);
    int emptyReads = 0;
    std::uint64_t analyzed = 0;
    StreamStatus status = stream->streamStatus();
    while ((status == StreamStatus::open || status == StreamStatus::reading) && !isCancelled()) {
        const std::ptrdiff_t count = stream->read(bytes.get(), readSize);
        if (count < 0) {
            return failWith(unreadable(*stream));
        }
        status = stream->streamStatus();
        if (count == 0) {
            if (++emptyReads > mostEmptyReads) {
                return failWith(
                    operationError(-18008, localized("The MD5 input stream is unreadable and "
                                                     "won’t allow additional reads.")));
            }
            continue;
        }
        emptyReads = 0;
        auto left = static_cast<std::size_t>(count);
        const std::uint8_t* next = bytes.get();
        do {
            const std::size_t length = std::min(left, blockSize);
            if (const Error failure = context.updateWithBytes(next, length)) {
                return failWith(failure);
            }
            next += length;
            left -= length;
            analyzed += length;
            bytesAnalyzed_.store(analyzed, std::memory_order_relaxed);
        } while (left != 0 && !isCancelled());
    }
    // A stream that broke must not pass for one that ended.
    return status == StreamStatus::error ? failWith(unreadable(*stream))
                                         : context.md5WithError(error);
}

std::optional<std::string> MZMD5Operation::file() const {
    const velto::Guard guard(lock_);
    return file_;
}

void MZMD5Operation::setFile(std::optional<std::string> file) {
    const velto::Guard guard(lock_);
    file_ = std::move(file);
}
