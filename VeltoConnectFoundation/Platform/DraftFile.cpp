#include <VeltoConnectFoundation/Platform/DraftFilePrivate.h>

#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace velto {

namespace {

/// 0 for a lock that is ours, else why it is not.
int lock(int descriptor) {
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

bool isOursAlone(const struct stat& status) {
    return status.st_uid == ::geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// 0, or why the file cannot have the name; nothing is replaced.
int renameToFree(int folder, const char* from, const char* to) {
    if (::renameat2(folder, from, folder, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    // A file system that cannot ask and rename at once.
    struct stat status {};
    if (::fstatat(folder, to, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return EEXIST;
    }
    return errno != ENOENT || ::renameat(folder, from, folder, to) != 0 ? errno : 0;
}

}  // namespace

DraftFile::DraftFile(const Folder& folder, std::string_view name, int descriptor)
    : folder_(&folder), name_(name), descriptor_(descriptor) {
}

bool DraftFile::failWithErrno(Error* error) const {
    return fail(error, Error::posix(errno, folder_->pathOf(name_)));
}

std::optional<DraftFile> DraftFile::create(const Folder& folder,
                                           std::string_view name,
                                           std::uint32_t mode,
                                           Error* error) {
    DraftFile draft(folder, name, -1);
    draft.descriptor_.reset(::openat(folder.number(), draft.name_.c_str(),
                                     O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                                     static_cast<mode_t>(mode)));
    if (!draft.descriptor_) {
        draft.failWithErrno(error);
        return std::nullopt;
    }
    // Without locks nobody can adopt it either.
    if (lock(draft.descriptor_.number()) == EWOULDBLOCK || !draft.isInPlace()) {
        errno = EEXIST;
        draft.failWithErrno(error);
        return std::nullopt;
    }
    return draft;
}

std::optional<DraftFile> DraftFile::adopt(const Folder& folder,
                                          std::string_view name,
                                          Error* error) {
    // O_NONBLOCK: it may be a pipe.
    DraftFile draft(folder, name, -1);
    draft.descriptor_.reset(::openat(folder.number(), draft.name_.c_str(),
                                     O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat own {};
    struct stat above {};
    if (!draft.descriptor_ || ::fstat(draft.descriptor_.number(), &own) != 0 ||
        ::fstat(folder.number(), &above) != 0) {
        draft.failWithErrno(error);
        return std::nullopt;
    }
    errno = !S_ISREG(own.st_mode) || !isOursAlone(own) || !isOursAlone(above)
                ? EPERM
                : lock(draft.descriptor_.number());
    if (errno == 0 && !draft.isInPlace()) {
        errno = ENOENT;  // Its process has published it meanwhile.
    }
    if (errno != 0) {
        draft.failWithErrno(error);
        return std::nullopt;
    }
    return draft;
}

bool DraftFile::isInPlace() const {
    struct stat own {};
    struct stat named {};
    return ::fstat(descriptor_.number(), &own) == 0 &&
           ::fstatat(folder_->number(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

std::optional<FileAttributes> DraftFile::attributes(Error* error) const {
    struct stat status {};
    if (::fstat(descriptor_.number(), &status) != 0) {
        failWithErrno(error);
        return std::nullopt;
    }
    return attributesOfStatus(status);
}

bool DraftFile::publish(std::string_view name, std::string_view bytes, Error* error) {
    std::string published(name);
    const int file = descriptor_.number();
    for (off_t written = 0; !bytes.empty();) {
        const ssize_t count = ::pwrite(file, bytes.data(), bytes.size(), written);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            errno = count == 0 ? EIO : errno;
            return failWithErrno(error);
        }
        written += count;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    if (::fsync(file) != 0) {
        return failWithErrno(error);
    }
    if (const int reason = renameToFree(folder_->number(), name_.c_str(), published.c_str())) {
        return fail(error, Error::posix(reason, folder_->pathOf(name)));
    }
    name_ = std::move(published);
    return folder_->synchronize(error);
}

bool DraftFile::remove(Error* error) {
    // Without memory: it is what is left to do when there is none.
    return ::unlinkat(folder_->number(), name_.c_str(), 0) == 0 || failWithErrno(error);
}

}  // namespace velto
