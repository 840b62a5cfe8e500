#include <VeltoConnectFoundation/Files/MZFileCopyOperation.h>

#include <VeltoConnectFoundation/Platform/CopyFile.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <cerrno>
#include <new>
#include <utility>

using velto::Clock;
using velto::Error;
using velto::Exception;
using velto::localized;
using velto::localizedFormat;
using velto::Value;

namespace {

constexpr std::int64_t errorCode = -19000;
constexpr double progressSpacing = 0.25;  // seconds

Error copyError(const std::string& message, const Error& underlying = {}) {
    velto::Dictionary information{{velto::LocalizedDescriptionKey, message},
                                  {velto::LocalizedFailureReasonKey, message}};
    if (underlying) {
        information.set(velto::UnderlyingErrorKey, underlying);
    }
    return {MZFileCopyErrorDomain, errorCode, std::move(information)};
}

void raise(const Error& error) {
    if (error) {
        throw Exception(MZFileCopyOperationException,
                        velto::format("%@", error.localizedDescription()));
    }
}

}  // namespace

MZFileCopyOperation::MZFileCopyOperation(velto::PassKey, std::string_view file, Value fileSize)
    : file_(file), fileSize_(std::move(fileSize)) {
}

MZFileCopyOperation::~MZFileCopyOperation() = default;

Value MZFileCopyOperation::computeFileSize(std::string_view path, Error& error) {
    Error failure;
    if (const auto attributes = velto::FileManager::linkAttributes(path, &failure)) {
        return attributes->size;
    }
    const bool isMissing = failure.code() == ENOENT || failure.code() == ENOTDIR;
    error = isMissing ? copyError(localizedFormat("No such file at path: %@", path)) : failure;
    return {};
}

Value MZFileCopyOperation::computeFileSize(std::string_view path) {
    Error error;
    Value size = computeFileSize(path, error);
    raise(error);
    return size;
}

std::shared_ptr<MZFileCopyOperation> MZFileCopyOperation::initWithFile(std::string_view path,
                                                                       Error& error) {
    Value size = computeFileSize(path, error);
    return size ? velto::make<MZFileCopyOperation>(path, std::move(size)) : nullptr;
}

std::shared_ptr<MZFileCopyOperation> MZFileCopyOperation::initWithFile(std::string_view path) {
    return velto::make<MZFileCopyOperation>(path, computeFileSize(path));
}

Error MZFileCopyOperation::copyToPath(std::string_view destination) {
    return finish(copy(destination, [&](const auto& observer, Error* failure) {
        return velto::copyFile(file_, destination, observer, failure);
    }));
}

Error MZFileCopyOperation::copyToFolder(const velto::Folder& folder, std::string_view name) {
    return finish(copy(name, [&](const auto& observer, Error* failure) {
        return velto::copyFile(file_, folder, name, observer, failure);
    }));
}

template <class CopyFile>
Error MZFileCopyOperation::copy(std::string_view destination, const CopyFile& copyFile) {
    if (file_.empty()) {
        return copyError(localized("No source file specified"));
    }
    if (destination.empty()) {
        return copyError(localized("No destination file specified"));
    }
    if (isCancelled()) {
        return copyError(localized("The user canceled the file copy."));
    }
    lastProgressTime_.reset();
    velto::CopyFileObserver observer;
    std::uint64_t total = size();  // a clone has no steps
    observer.progress = [&](std::uint64_t written) {
        total = written;
        return advanced(written);
    };
    bool isChanged = false;
    sourceAttributes_.reset();
    observer.source = [&](const velto::FileAttributes& source) {
        isChanged = sourceAttributes_ && !source.isUnchangedSince(*sourceAttributes_);
        sourceAttributes_ = source;
    };
    prepare(observer);
    Error failure;
    bool isCopied = false;
    try {
        isCopied = copyFile(observer, &failure);
    } catch (const std::bad_alloc&) {
        sourceAttributes_.reset();
        return copyError(localized("Failed to create the copy_file_state."));
    }
    if (!isCopied || isChanged) {
        sourceAttributes_.reset();
    }
    if (!isCopied) {
        return copyError(isCancelled() ? localized("The user canceled the file copy.")
                                       : localizedFormat("Failed to copy the file (err=%d).",
                                                         static_cast<int>(failure.code())),
                         failure);
    }
    // The last steps may have come too soon after one another.
    if (copied() != total) {
        setNumBytesWritten(total);
    }
    return {};
}

void MZFileCopyOperation::copyToFile(std::string_view destination) {
    raise(copyToPath(destination));
}

void MZFileCopyOperation::prepare(velto::CopyFileObserver&) {
}

Error MZFileCopyOperation::finish(Error error) {
    return error;
}

bool MZFileCopyOperation::advanced(std::uint64_t written) {
    const velto::Date now = Clock::now();
    if (!lastProgressTime_ ||
        now.secondsSinceReference - lastProgressTime_->secondsSinceReference >= progressSpacing) {
        setNumBytesWritten(written);
        lastProgressTime_ = now;
    }
    return !isCancelled();
}

void MZFileCopyOperation::setNumBytesWritten(std::uint64_t written) {
    numBytesWritten_ = written;
    if (callback_) {
        bool stop = false;
        callback_(written, size(), stop);
        if (stop) {
            cancel();
        }
    }
}
