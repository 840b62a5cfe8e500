#include <VeltoConnectFoundation/Platform/CopyFile.h>

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>
#include <VeltoConnectFoundation/Platform/Folder.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace velto {

namespace {

constexpr std::uint64_t stepBytes = std::uint64_t{8} << 20;
/// Small enough that a block stays in the processor's cache between being read and written.
constexpr std::size_t blockBytes = std::size_t{512} << 10;

Error errorWithText(int code, std::string_view text) {
    return {POSIXErrorDomain, code, {{LocalizedDescriptionKey, text}}};
}

off_t offset(std::uint64_t position) {
    return static_cast<off_t>(position);
}

/// An open source and its copy to be. Each step answers why it failed, or no error.
class Copy {
public:
    Copy(std::string_view source, std::string_view destination, const CopyFileObserver& observer)
        : source_(source), destination_(destination), observer_(observer) {}
    Copy(std::string_view source,
         const Folder& folder,
         std::string_view name,
         const CopyFileObserver& observer)
        : source_(source),
          destination_(folder.pathOf(name)),
          folder_(&folder),
          name_(name),
          observer_(observer) {}

    Error run() {
        try {
            return runAll();
        } catch (const std::bad_alloc&) {
            return exhausted_;
        }
    }

private:
    struct Block {
        std::unique_ptr<std::uint8_t[]> bytes;
        std::size_t count = 0;
        bool isHole = false;
    };
    class Ring;

    Error runAll() {
        if (fstatat(AT_FDCWD, source_.c_str(), &status_, AT_SYMLINK_NOFOLLOW) != 0) {
            return sourceError();
        }
        if (S_ISLNK(status_.st_mode) && !observer_.bytes && folder_ == nullptr) {
            return copyLink();
        }
        if (Error failure = checkKind()) {
            return failure;
        }
        if (Error failure = openBoth()) {
            return failure;
        }
        if (observer_.source) {
            observer_.source(attributesOfStatus(status_));
        }
        isClone_ = ioctl(output_.number(), FICLONE, input_.number()) == 0;
        if (isClone_ && fstat(output_.number(), &cloned_) != 0) {
            return destinationError();
        }
        if (Error failure = observer_.bytes ? copyWithBytes() : isClone_ ? Error() : copyData()) {
            return failure;
        }
        if (Error failure = copyAttributes()) {
            return failure;
        }
        if (observer_.source) {
            struct stat now {};
            if (fstat(input_.number(), &now) != 0) {
                return sourceError();
            }
            observer_.source(attributesOfStatus(now));
        }
        if (folder_ != nullptr && fsync(output_.number()) != 0) {
            return destinationError();
        }
        const int failure = output_.close();
        return failure == 0 ? Error() : Error::posix(failure, destination_);
    }

    /// Of what is copied. A clone is what the source was at that moment, and stays so.
    std::uint64_t size() const {
        return static_cast<std::uint64_t>(isClone_ ? cloned_.st_size : status_.st_size);
    }
    /// What holds the bytes that are copied.
    int origin() const { return isClone_ ? output_.number() : input_.number(); }

    Error sourceError() const { return Error::posix(errno, source_); }
    Error destinationError() const { return Error::posix(errno, destination_); }

    Error checkKind() const {
        if (S_ISDIR(status_.st_mode)) {
            return Error::posix(EISDIR, source_);
        }
        if (S_ISLNK(status_.st_mode)) {
            return errorWithText(
                ELOOP, localizedFormat("%@: a symbolic link holds nothing to be read", source_));
        }
        if (!S_ISREG(status_.st_mode)) {
            return errorWithText(
                EINVAL, localizedFormat("%@: neither a file nor a symbolic link", source_));
        }
        return {};
    }

    Error copyLink() const {
        std::string target(static_cast<std::size_t>(status_.st_size) + 1, '\0');
        for (;;) {
            const ssize_t length = readlink(source_.c_str(), target.data(), target.size());
            if (length < 0) {
                return sourceError();
            }
            if (static_cast<std::size_t>(length) < target.size()) {
                target.resize(static_cast<std::size_t>(length));
                break;
            }
            target.resize(target.size() * 2);
        }
        if (symlink(target.c_str(), destination_.c_str()) != 0) {
            return destinationError();
        }
        const timespec times[] = {status_.st_atim, status_.st_mtim};
        utimensat(AT_FDCWD, destination_.c_str(), times, AT_SYMLINK_NOFOLLOW);
        return {};
    }

    Error openBoth() {
        // O_NONBLOCK: another process may have put a pipe here meanwhile.
        input_.reset(
            open(source_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
        if (!input_ || fstat(input_.number(), &status_) != 0) {
            return sourceError();
        }
        if (Error failure = checkKind()) {
            return failure;
        }
        const char* const name = folder_ == nullptr ? destination_.c_str() : name_.c_str();
        output_.reset(openat(folder_ == nullptr ? AT_FDCWD : folder_->number(), name,
                             O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        return output_ ? Error() : destinationError();
    }

    /// Calls `data(begin, end)` and `hole(begin, end)` for the parts of the source, in order, until
    /// one of them answers an error.
    template <class DataPart, class HolePart>
    Error forEachPart(const DataPart& data, const HolePart& hole) {
        std::uint64_t position = 0;
        while (position < size()) {
            const off_t begin = lseek(origin(), offset(position), SEEK_DATA);
            if (begin < 0 && errno == ENXIO) {
                return hole(position, size());
            }
            // A file system that knows no holes, or one that answers nonsense: all of it is data.
            std::uint64_t start = begin < 0 ? position : static_cast<std::uint64_t>(begin);
            start = std::clamp(start, position, size());
            if (start > position) {
                if (Error failure = hole(position, start)) {
                    return failure;
                }
            }
            const off_t found = lseek(origin(), offset(start), SEEK_HOLE);
            std::uint64_t end = found < 0 ? size() : static_cast<std::uint64_t>(found);
            end = end <= start ? size() : std::min(end, size());
            if (end > start) {
                if (Error failure = data(start, end)) {
                    return failure;
                }
            }
            position = end;
        }
        return {};
    }

    Error copyData() {
        if (size() == 0) {
            return copyUnsized();
        }
        std::uint64_t written = 0;
        const auto data = [&](std::uint64_t begin, std::uint64_t end) {
            while (begin < end) {
                const std::uint64_t step = std::min(end - begin, stepBytes);
                if (Error failure = copyStep(begin, begin + step)) {
                    return failure;
                }
                begin += step;
                written = begin;
                if (!tell(begin)) {
                    return stopped();
                }
            }
            return Error();
        };
        const auto hole = [&](std::uint64_t, std::uint64_t end) {
            return tell(end) ? Error() : stopped();
        };
        if (Error failure = forEachPart(data, hole)) {
            return failure;
        }
        return finishSize(written);
    }

    /// Files of the kernel say that they hold nothing: their end alone tells.
    Error copyUnsized() {
        for (std::uint64_t position = 0;;) {
            std::size_t count = blockBytes;
            if (Error failure = readBlock(memory(), position, count)) {
                return failure;
            }
            if (count == 0) {
                return {};
            }
            if (Error failure = writeBlock(memory(), position, count)) {
                return failure;
            }
            position += count;
            if (!tell(position)) {
                return stopped();
            }
        }
    }

    Error copyStep(std::uint64_t begin, std::uint64_t end) {
        if (Error failure = copyByKernel(begin, end)) {
            return failure;
        }
        while (begin < end) {
            auto count = static_cast<std::size_t>(std::min<std::uint64_t>(end - begin, blockBytes));
            if (Error failure = readBlock(memory(), begin, count)) {
                return failure;
            }
            if (count == 0) {
                return becameShorter();
            }
            if (Error failure = writeBlock(memory(), begin, count)) {
                return failure;
            }
            begin += count;
        }
        return {};
    }

    /// Moves `begin` on as far as the kernel copies.
    Error copyByKernel(std::uint64_t& begin, std::uint64_t end) {
        while (begin < end && kernelCopies_) {
            off64_t from = offset(begin);
            off64_t to = from;
            const ssize_t count = copy_file_range(input_.number(), &from, output_.number(), &to,
                                                  static_cast<std::size_t>(end - begin), 0);
            if (count > 0) {
                begin += static_cast<std::uint64_t>(count);
            } else if (count < 0 && (errno == ENOSPC || errno == EDQUOT)) {
                return destinationError();
            } else if (count == 0 || errno != EINTR) {
                // Reading and writing will tell which of both files it was, if it was one.
                kernelCopies_ = false;
            }
        }
        return {};
    }

    /// `count` is the room, then what was read; 0 at the end of the file.
    Error readBlock(std::uint8_t* bytes, std::uint64_t position, std::size_t& count) const {
        for (;;) {
            const ssize_t found = pread(origin(), bytes, count, offset(position));
            if (found >= 0) {
                count = static_cast<std::size_t>(found);
                return {};
            }
            if (errno != EINTR) {
                return isClone_ ? destinationError() : sourceError();
            }
        }
    }

    Error writeBlock(const std::uint8_t* bytes, std::uint64_t position, std::size_t count) const {
        while (count > 0) {
            const ssize_t written = pwrite(output_.number(), bytes, count, offset(position));
            if (written > 0) {
                bytes += written;
                position += static_cast<std::uint64_t>(written);
                count -= static_cast<std::size_t>(written);
            } else if (written == 0) {
                return Error::posix(EIO, destination_);
            } else if (errno != EINTR) {
                return destinationError();
            }
        }
        return {};
    }

    /// Makes a hole at the end, and sees that the source still holds what was read as one.
    Error finishSize(std::uint64_t written) const {
        if (isClone_) {
            return {};
        }
        if (written < size() && ftruncate(output_.number(), status_.st_size) != 0) {
            return destinationError();
        }
        struct stat now {};
        if (fstat(input_.number(), &now) != 0) {
            return sourceError();
        }
        return now.st_size < status_.st_size ? becameShorter() : Error();
    }

    Error copyWithBytes();
    Error fill(Ring& ring);

    Error copyAttributes() const {
        if (Error failure = copyExtendedAttributes()) {
            return failure;
        }
        const timespec times[] = {status_.st_atim, status_.st_mtim};
        // File systems without modes or owners refuse what they cannot hold.
        const auto failed = [](int result) {
            return result != 0 && errno != EPERM && errno != ENOTSUP;
        };
        const mode_t bits = folder_ == nullptr ? 01777U : 01755U;
        if (failed(fchmod(output_.number(), status_.st_mode & bits)) ||
            failed(futimens(output_.number(), times))) {
            return destinationError();
        }
        return {};
    }

    Error copyExtendedAttributes() const {
        std::vector<char> list;
        if (!readAll(list,
                     [&](char* bytes, std::size_t room) {
                         return flistxattr(input_.number(), bytes, room);
                     }) &&
            errno != ENOTSUP) {
            return sourceError();
        }
        bool hasList = false;
        std::vector<char> value;
        for (std::size_t begin = 0; begin < list.size();) {
            const std::string name(&list[begin]);
            begin += name.size() + 1;
            // Labels belong to the place, capabilities go the way of the set-id bits.
            if (name.starts_with("security.")) {
                continue;
            }
            hasList = hasList || name == accessList;
            const auto length = [&](char* bytes, std::size_t room) {
                return fgetxattr(input_.number(), name.c_str(), bytes, room);
            };
            if (!readAll(value, length)) {
                if (errno == ENODATA || errno == EACCES || errno == EPERM) {
                    continue;
                }
                return sourceError();
            }
            if (fsetxattr(output_.number(), name.c_str(), value.data(), value.size(), 0) != 0 &&
                !isBeyondDestination(errno)) {
                return destinationError();
            }
        }
        if (!hasList) {
            // What the folder gave it would let others in beside the permission bits.
            fremovexattr(output_.number(), accessList);
        }
        return {};
    }

    /// The room for attributes is small whatever the disk has left: not even ENOSPC tells of a full
    /// one. Without them the copy is as good.
    static bool isBeyondDestination(int reason) {
        constexpr std::array reasons{ENOTSUP, EPERM, EACCES, ENOSPC, EDQUOT, E2BIG, ERANGE};
        return std::ranges::find(reasons, reason) != reasons.end();
    }

    /// Asks for the size, then for the bytes, until both agree.
    template <class Read>
    static bool readAll(std::vector<char>& bytes, const Read& read) {
        for (;;) {
            const ssize_t room = read(nullptr, 0);
            if (room < 0) {
                bytes.clear();
                return false;
            }
            bytes.resize(static_cast<std::size_t>(room));
            const ssize_t count = room == 0 ? 0 : read(bytes.data(), bytes.size());
            if (count >= 0) {
                bytes.resize(static_cast<std::size_t>(count));
                return true;
            }
            if (errno != ERANGE) {
                bytes.clear();
                return false;
            }
        }
    }

    std::uint8_t* memory() {
        if (memory_ == nullptr) {
            memory_ = std::make_unique_for_overwrite<std::uint8_t[]>(blockBytes);
        }
        return memory_.get();
    }

    bool tell(std::uint64_t position) const {
        return !observer_.progress || observer_.progress(position);
    }
    Error stopped() const { return Error::posix(ECANCELED, destination_); }

    Error becameShorter() const {
        return errorWithText(
            EIO, localizedFormat("%@: the file became shorter while it was copied", source_));
    }

    static constexpr const char* accessList = "system.posix_acl_access";

    const std::string source_;
    const std::string destination_;
    const Folder* const folder_ = nullptr;  ///< In which the copy is made as `name_`, if any.
    const std::string name_;
    const CopyFileObserver& observer_;
    /// Made before memory lacks.
    const Error exhausted_ = Error::posix(ENOMEM, source_);
    FileDescriptor input_;
    FileDescriptor output_;
    struct stat status_ {};  ///< Of the source.
    struct stat cloned_ {};
    bool isClone_ = false;
    bool kernelCopies_ = true;
    std::unique_ptr<std::uint8_t[]> memory_;
};

/// Blocks on their way from the thread that reads and writes to the one that gets the bytes.
class Copy::Ring {
public:
    /// A block to be filled; null when nobody wants any more.
    Block* blockToFill() VELTO_EXCLUDES(mutex_) {
        MutexGuard guard(mutex_);
        while (filled_ == blocks_.size() && !isStopped_) {
            guard.wait(condition_);
        }
        return isStopped_ ? nullptr : &blocks_[(first_ + filled_) % blocks_.size()];
    }
    void filled() VELTO_EXCLUDES(mutex_) {
        const MutexGuard guard(mutex_);
        ++filled_;
        condition_.notify_all();
    }
    /// The last word of the filling thread.
    void end(Error failure) VELTO_EXCLUDES(mutex_) {
        const MutexGuard guard(mutex_);
        failure_ = std::move(failure);
        isEnded_ = true;
        condition_.notify_all();
    }

    /// The oldest filled block; null when there will be none.
    const Block* blockToTake() VELTO_EXCLUDES(mutex_) {
        MutexGuard guard(mutex_);
        while (filled_ == 0 && !isEnded_) {
            guard.wait(condition_);
        }
        return filled_ == 0 ? nullptr : &blocks_[first_];
    }
    void taken() VELTO_EXCLUDES(mutex_) {
        const MutexGuard guard(mutex_);
        first_ = (first_ + 1) % blocks_.size();
        --filled_;
        condition_.notify_all();
    }
    /// Returns once the filling thread uses nothing of the copy any more; why it failed, if so.
    Error stop() VELTO_EXCLUDES(mutex_) {
        MutexGuard guard(mutex_);
        isStopped_ = true;
        condition_.notify_all();
        while (!isEnded_) {
            guard.wait(condition_);
        }
        return failure_;
    }

private:
    Mutex mutex_;
    std::condition_variable condition_;
    std::array<Block, 4> blocks_;  ///< A filled one is the taker's, any other the filler's.
    std::size_t first_ VELTO_GUARDED_BY(mutex_) = 0;
    std::size_t filled_ VELTO_GUARDED_BY(mutex_) = 0;
    bool isStopped_ VELTO_GUARDED_BY(mutex_) = false;
    bool isEnded_ VELTO_GUARDED_BY(mutex_) = false;
    Error failure_ VELTO_GUARDED_BY(mutex_);
};

Error Copy::fill(Ring& ring) {
    const auto pass = [&](std::uint64_t begin, std::uint64_t end, bool isHole) {
        while (begin < end) {
            Block* const block = ring.blockToFill();
            if (block == nullptr) {
                return stopped();
            }
            block->isHole = isHole;
            block->count =
                static_cast<std::size_t>(std::min<std::uint64_t>(end - begin, blockBytes));
            if (!isHole) {
                if (block->bytes == nullptr) {
                    block->bytes = std::make_unique_for_overwrite<std::uint8_t[]>(blockBytes);
                }
                if (Error failure = readBlock(block->bytes.get(), begin, block->count)) {
                    return failure;
                }
                if (block->count == 0) {
                    return size() == 0 ? Error() : becameShorter();
                }
                if (!isClone_) {
                    if (Error failure = writeBlock(block->bytes.get(), begin, block->count)) {
                        return failure;
                    }
                }
            }
            begin += block->count;
            ring.filled();
        }
        return Error();
    };
    std::uint64_t written = 0;
    const auto data = [&](std::uint64_t begin, std::uint64_t end) {
        written = end;
        return pass(begin, end, false);
    };
    const auto hole = [&](std::uint64_t begin, std::uint64_t end) {
        return pass(begin, end, true);
    };
    if (size() == 0) {
        return pass(0, std::numeric_limits<std::uint64_t>::max(), false);  // as in copyUnsized
    }
    if (Error failure = forEachPart(data, hole)) {
        return failure;
    }
    return finishSize(written);
}

Error Copy::copyWithBytes() {
    static const auto* const zeros = new std::vector<std::uint8_t>(blockBytes);
    const auto ring = std::make_shared<Ring>();
    try {
        startThread("velto-copy", [this, ring] {
            Error failure;
            try {
                failure = fill(*ring);
            } catch (const std::bad_alloc&) {
                failure = exhausted_;
            }
            ring->end(std::move(failure));
        });
    } catch (const std::system_error& failure) {
        return Error::posix(failure.code().value(), destination_);
    }
    // Until the thread has ended it uses this object, whatever the observer throws.
    struct Stop {
        Ring& ring;
        ~Stop() { ring.stop(); }
    };
    {
        const Stop stop{*ring};
        std::uint64_t position = 0;
        std::uint64_t told = 0;
        while (const Block* const block = ring->blockToTake()) {
            if (!observer_.bytes(block->isHole ? zeros->data() : block->bytes.get(),
                                 block->count)) {
                return stopped();
            }
            position += block->count;
            ring->taken();
            if (position - told >= stepBytes || position == size()) {
                told = position;
                if (!tell(position)) {
                    return stopped();
                }
            }
        }
    }
    return ring->stop();
}

}  // namespace

bool copyFile(std::string_view source,
              std::string_view destination,
              const CopyFileObserver& observer,
              Error* error) {
    Error failure = Copy(source, destination, observer).run();
    return !failure || fail(error, std::move(failure));
}

bool copyFile(std::string_view source,
              const Folder& folder,
              std::string_view name,
              const CopyFileObserver& observer,
              Error* error) {
    Error failure = Copy(source, folder, name, observer).run();
    return !failure || fail(error, std::move(failure));
}

}  // namespace velto
