#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Make.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto {
struct CopyFileObserver;
class Folder;
}  // namespace velto

inline constexpr std::string_view MZFileCopyErrorDomain = "MZFileCopyErrorDomain";
/// Raised by the forms that return no error.
inline constexpr std::string_view MZFileCopyOperationException = "MZFileCopyOperationException";

/// Copies one file, on the caller's thread: as a clone where the file system can, else its bytes;
/// with mode, times and extended attributes, holes as holes, a symbolic link as a link.
///
/// Errors have the domain MZFileCopyErrorDomain and the code -19000 (but for a file whose
/// attributes cannot be read: then it is the system's); a failed copy's holds the system's reason
/// as its underlying error. cancel(), isCancelled() and copied() may be called from any thread,
/// anything else from one at a time.
class VELTO_EXPORT MZFileCopyOperation {
public:
    /// `stop` is false; set to true it cancels the copy. On the thread of the copy.
    using ProgressCallback =
        std::function<void(std::uint64_t written, std::uint64_t size, bool& stop)>;

    MZFileCopyOperation(velto::PassKey, std::string_view file, velto::Value fileSize);
    virtual ~MZFileCopyOperation();
    MZFileCopyOperation(const MZFileCopyOperation&) = delete;
    MZFileCopyOperation& operator=(const MZFileCopyOperation&) = delete;

    /// Bytes of the file at `path`, of a link itself; none with an error.
    static velto::Value computeFileSize(std::string_view path, velto::Error& error);
    static velto::Value computeFileSize(std::string_view path);  ///< Raises.
    /// Null with an error when the size of the file cannot be told.
    static std::shared_ptr<MZFileCopyOperation> initWithFile(std::string_view path,
                                                             velto::Error& error);
    static std::shared_ptr<MZFileCopyOperation> initWithFile(std::string_view path);  ///< Raises.

    /// Fails when anything is at `destination` already, and leaves that as it is. After another
    /// failure, or a cancel, a part of the copy may stay there. Nothing is synchronized with the
    /// disk. A cancelled operation stays cancelled: it copies nothing any more.
    [[nodiscard]] velto::Error copyToPath(std::string_view destination);
    /// The same for a new file of `folder`, whatever its path leads to meanwhile. A symbolic link
    /// is an error. Nobody but the owner may write the copy, and it is synchronized with the disk.
    [[nodiscard]] velto::Error copyToFolder(const velto::Folder& folder, std::string_view name);
    void copyToFile(std::string_view destination);  ///< Raises.

    /// A copy that runs ends with an error after at most 8 MiB more.
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_.load(); }

    const std::string& file() const { return file_; }
    const velto::Value& fileSize() const { return fileSize_; }  ///< A number.
    std::uint64_t size() const { return fileSize_.unsignedValue(); }
    /// Of the file that the last copy opened, if it was the same when the copy was whole: none
    /// after a failure, or for a file that changed meanwhile. On the thread of the copy.
    const std::optional<velto::FileAttributes>& sourceAttributes() const {
        return sourceAttributes_;
    }
    /// Bytes so far, holes among them: brought up to date four times a second, and at the end.
    std::uint64_t copied() const { return numBytesWritten_.load(); }

    /// Told whenever copied() is brought up to date. Set it before the copy.
    const ProgressCallback& copyFileProgressCallbackBlockPtr() const { return callback_; }
    void setCopyFileProgressCallbackBlockPtr(ProgressCallback callback) {
        callback_ = std::move(callback);
    }

protected:
    /// What else an observer wants of the copy that is about to begin.
    virtual void prepare(velto::CopyFileObserver& observer);
    /// What became of the copy; the answer is what its caller gets.
    virtual velto::Error finish(velto::Error error);

private:
    template <class CopyFile>
    velto::Error copy(std::string_view destination, const CopyFile& copyFile);
    bool advanced(std::uint64_t written);
    void setNumBytesWritten(std::uint64_t written);

    const std::string file_;
    const velto::Value fileSize_;
    std::atomic<bool> cancelled_{false};
    std::atomic<std::uint64_t> numBytesWritten_{0};
    std::optional<velto::Date> lastProgressTime_;
    std::optional<velto::FileAttributes> sourceAttributes_;
    ProgressCallback callback_;
};
