#include <VeltoConnectFoundation/Platform/Folder.h>

#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace velto {

namespace {

FileDescriptor openedFolder(int above, const char* name, int flags) {
    flags |= O_DIRECTORY | O_CLOEXEC;
    FileDescriptor descriptor(::openat(above, name, O_RDONLY | flags));
    if (!descriptor && errno == EACCES) {
        descriptor.reset(::openat(above, name, O_PATH | flags));
    }
    return descriptor;
}

}  // namespace

Folder::Folder(std::string path, FileDescriptor descriptor)
    : path_(std::move(path)), descriptor_(std::move(descriptor)) {
}

std::optional<Folder> Folder::open(std::string_view path, Error* error) {
    std::string whole(path);
    FileDescriptor descriptor = openedFolder(AT_FDCWD, whole.c_str(), 0);
    if (!descriptor) {
        fail(error, Error::posix(errno, path));
        return std::nullopt;
    }
    return Folder(std::move(whole), std::move(descriptor));
}

std::optional<Folder> Folder::openFolder(std::string_view name, Error* error) const {
    std::string whole = pathOf(name);
    FileDescriptor descriptor = openedFolder(number(), std::string(name).c_str(), O_NOFOLLOW);
    if (!descriptor) {
        fail(error, Error::posix(errno, whole));
        return std::nullopt;
    }
    return Folder(std::move(whole), std::move(descriptor));
}

bool Folder::createFolder(std::string_view name, std::uint32_t mode, Error* error) const {
    return ::mkdirat(number(), std::string(name).c_str(), static_cast<mode_t>(mode)) == 0 ||
           fail(error, Error::posix(errno, pathOf(name)));
}

std::string Folder::pathOf(std::string_view name) const {
    return path_ + (path_.ends_with('/') ? "" : "/") + std::string(name);
}

std::optional<FileAttributes> Folder::attributes(Error* error) const {
    struct stat status {};
    if (::fstat(number(), &status) != 0) {
        fail(error, Error::posix(errno, path_));
        return std::nullopt;
    }
    return attributesOfStatus(status);
}

std::optional<FileAttributes> Folder::attributesOf(std::string_view name, Error* error) const {
    struct stat status {};
    if (::fstatat(number(), std::string(name).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        fail(error, Error::posix(errno, pathOf(name)));
        return std::nullopt;
    }
    return attributesOfStatus(status);
}

std::optional<std::vector<std::string>> Folder::names(Error* error) const {
    // Opened anew, since the place that reading has reached belongs to the opening.
    FileDescriptor descriptor(::openat(number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    DIR* const folder = descriptor ? ::fdopendir(descriptor.number()) : nullptr;
    if (folder == nullptr) {
        fail(error, Error::posix(errno, path_));
        return std::nullopt;
    }
    descriptor.release();
    std::vector<std::string> names;
    try {
        while (const dirent* const entry = ::readdir(folder)) {
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") {
                names.emplace_back(name);
            }
        }
    } catch (...) {
        ::closedir(folder);
        throw;
    }
    ::closedir(folder);
    return names;
}

bool Folder::removeFile(std::string_view name, Error* error) const {
    return ::unlinkat(number(), std::string(name).c_str(), 0) == 0 ||
           fail(error, Error::posix(errno, pathOf(name)));
}

bool Folder::removeEmptyFolder(std::string_view name, Error* error) const {
    return ::unlinkat(number(), std::string(name).c_str(), AT_REMOVEDIR) == 0 ||
           fail(error, Error::posix(errno, pathOf(name)));
}

bool Folder::synchronize(Error* error) const {
    // Some file systems have nothing to do for a folder, and say so; EBADF where we may not read.
    return ::fsync(number()) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EBADF ||
           fail(error, Error::posix(errno, path_));
}

}  // namespace velto
