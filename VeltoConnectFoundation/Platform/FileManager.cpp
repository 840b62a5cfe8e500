#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/UUID.h>

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace velto {

namespace {

bool failWithErrno(Error* error, std::string_view path) {
    return fail(error, Error::posix(errno, path));
}

std::optional<FileAttributes> attributesAt(std::string_view path, int flags, Error* error) {
    struct stat status {};
    if (fstatat(AT_FDCWD, std::string(path).c_str(), &status, flags) != 0) {
        failWithErrno(error, path);
        return std::nullopt;
    }
    return attributesOfStatus(status);
}

/// Not open, and the error set, unless it is a regular file.
FileDescriptor openRegular(std::string_view path, struct stat& status, Error* error) {
    // O_NONBLOCK: opening a pipe nobody writes to must not wait.
    FileDescriptor file(
        open(std::string(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file || fstat(file.number(), &status) != 0) {
        failWithErrno(error, path);
        return FileDescriptor();
    }
    if (!S_ISREG(status.st_mode)) {
        fail(error, S_ISDIR(status.st_mode) ? Error::posix(EISDIR, path) : noFileError(path));
        return FileDescriptor();
    }
    return file;
}

/// Up to that many bytes: fewer at the file's end only; none where errno says why.
std::optional<std::size_t> readAll(int descriptor, void* bytes, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = ::read(descriptor, static_cast<char*>(bytes) + done, length - done);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return done;
}

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// The folder of an account, by name or else by the process's own id; empty when there is none.
std::string accountFolder(const std::optional<std::string>& name) {
    std::vector<char> buffer(1024);
    for (;;) {
        passwd account{};
        passwd* found = nullptr;
        const int result =
            name ? getpwnam_r(name->c_str(), &account, buffer.data(), buffer.size(), &found)
                 : getpwuid_r(geteuid(), &account, buffer.data(), buffer.size(), &found);
        if (result == ERANGE && buffer.size() < (std::size_t{1} << 20)) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : "";
    }
}

/// An absolute path from the environment, else none: relative ones are to be ignored.
std::optional<std::string> absolutePathFromEnvironment(const char* name) {
    const char* path = std::getenv(name);
    if (path == nullptr || *path != '/') {
        return std::nullopt;
    }
    return path;
}

std::string baseFolder(const char* variable, std::string_view fallback) {
    if (auto folder = absolutePathFromEnvironment(variable)) {
        return *folder + "/velto";
    }
    return FileManager::homeFolder() + '/' + std::string(fallback) + "/velto";
}

}  // namespace

FileAttributes attributesOfStatus(const struct stat& status) {
    FileAttributes result;
    result.kind = S_ISREG(status.st_mode)   ? FileAttributes::Kind::regular
                  : S_ISDIR(status.st_mode) ? FileAttributes::Kind::folder
                  : S_ISLNK(status.st_mode) ? FileAttributes::Kind::symbolicLink
                                            : FileAttributes::Kind::other;
    result.size = static_cast<std::uint64_t>(status.st_size);
    result.mode = status.st_mode & 07777U;
    result.owner = status.st_uid;
    result.modified = Date::fromUnixSeconds(static_cast<double>(status.st_mtim.tv_sec) +
                                            static_cast<double>(status.st_mtim.tv_nsec) * 1e-9);
    result.changed = {status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
    result.device = status.st_dev;
    result.inode = status.st_ino;
    return result;
}

Error noFileError(std::string_view path) {
    return {POSIXErrorDomain,
            EINVAL,
            {{LocalizedDescriptionKey, localizedFormat("%@: it is not a file", path)},
             {LocalizedFailureReasonKey, localized("It is not a file.")}}};
}

std::optional<FileAttributes> FileManager::attributes(std::string_view path, Error* error) {
    return attributesAt(path, 0, error);
}

std::optional<FileAttributes> FileManager::linkAttributes(std::string_view path, Error* error) {
    return attributesAt(path, AT_SYMLINK_NOFOLLOW, error);
}

bool FileManager::exists(std::string_view path) {
    return faccessat(AT_FDCWD, std::string(path).c_str(), F_OK, AT_EACCESS) == 0;
}

bool FileManager::isFolder(std::string_view path) {
    const auto found = attributes(path);
    return found && found->kind == FileAttributes::Kind::folder;
}

bool FileManager::isExecutable(std::string_view path) {
    const auto found = attributes(path);
    return found && found->kind == FileAttributes::Kind::regular &&
           faccessat(AT_FDCWD, std::string(path).c_str(), X_OK, AT_EACCESS) == 0;
}

std::optional<Data> FileManager::read(std::string_view path, std::size_t limit, Error* error) {
    std::vector<std::uint8_t> bytes;
    return read(path, limit, bytes, error) ? std::optional(Data(std::move(bytes))) : std::nullopt;
}

bool FileManager::read(std::string_view path,
                       std::size_t limit,
                       std::vector<std::uint8_t>& bytes,
                       Error* error) {
    struct stat status {};
    const FileDescriptor file = openRegular(path, status, error);
    if (!file) {
        return false;
    }
    // Sizes of files of the kernel read 0: the end alone decides, with a byte of room to see it.
    std::size_t used = 0;
    auto room = static_cast<std::size_t>(status.st_size);
    for (;;) {
        bytes.resize(std::min(room, limit) + 1);
        const std::optional<std::size_t> count =
            readAll(file.number(), bytes.data() + used, bytes.size() - used);
        if (!count) {
            return failWithErrno(error, path);
        }
        used += *count;
        if (used > limit) {
            return fail(error, Error::posix(EFBIG, path));
        }
        if (used < bytes.size()) {
            bytes.resize(used);
            return true;
        }
        room = used * 2;
    }
}

bool FileManager::readBlocks(std::string_view path,
                             std::size_t blockSize,
                             const std::function<bool(std::string_view block)>& use,
                             Error* error) {
    struct stat status {};
    const FileDescriptor file = openRegular(path, status, error);
    if (!file) {
        return false;
    }
    std::string block(blockSize, '\0');
    for (;;) {
        const std::optional<std::size_t> count = readAll(file.number(), block.data(), blockSize);
        if (!count) {
            return failWithErrno(error, path);
        }
        if (*count != 0 && !use(std::string_view(block).substr(0, *count))) {
            return false;
        }
        if (*count < blockSize) {
            return true;
        }
    }
}

bool FileManager::writeAtomically(std::string_view path,
                                  std::string_view bytes,
                                  std::uint32_t mode,
                                  Error* error) {
    std::string target(path);
    if (char* followed = realpath(target.c_str(), nullptr)) {
        target = followed;
        std::free(followed);
    }
    const std::size_t slash = target.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    const std::string temporary = folder + "/.velto-" + UUID::random();

    FileDescriptor file(open(temporary.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                             static_cast<mode_t>(mode)));
    if (!file) {
        return failWithErrno(error, path);
    }
    if (!writeAll(file.number(), bytes) || fsync(file.number()) != 0 || file.close() != 0 ||
        rename(temporary.c_str(), target.c_str()) != 0) {
        const int reason = errno;
        unlink(temporary.c_str());
        return fail(error, Error::posix(reason, path));
    }
    // The new name is on the disk once its folder is; the content is safe either way.
    const FileDescriptor parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent) {
        fsync(parent.number());
    }
    return true;
}

bool FileManager::createFolder(std::string_view path, std::uint32_t mode, Error* error) {
    if (isFolder(path)) {
        return true;
    }
    const std::string whole(path);
    for (std::size_t end = whole.find_first_not_of('/'); end < whole.size();) {
        end = whole.find('/', end);
        if (end == std::string::npos) {
            end = whole.size();
        }
        const std::string part = whole.substr(0, end);
        if (mkdir(part.c_str(), static_cast<mode_t>(mode)) != 0) {
            const int reason = errno;
            if (!isFolder(part)) {
                // Below something else, or dangling, nothing can be created.
                const bool isBelow = reason == EEXIST && end != whole.size();
                return fail(error, Error::posix(isBelow ? ENOTDIR : reason, path));
            }
        }
        end = whole.find_first_not_of('/', end);
    }
    return isFolder(path) || fail(error, Error::posix(ENOENT, path));
}

std::optional<std::vector<std::string>> FileManager::namesInFolder(std::string_view path,
                                                                   Error* error) {
    DIR* folder = opendir(std::string(path).c_str());
    if (folder == nullptr) {
        failWithErrno(error, path);
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(folder)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    closedir(folder);
    return names;
}

bool FileManager::remove(std::string_view path, Error* error) {
    std::error_code failure;
    const auto count = std::filesystem::remove_all(std::filesystem::path(path), failure);
    if (failure) {
        return fail(error, Error::posix(failure.value(), path));
    }
    return count != 0 || fail(error, Error::posix(ENOENT, path));
}

std::string FileManager::homeFolder() {
    const auto folder = absolutePathFromEnvironment("HOME");
    return folder ? *folder : accountFolder(std::nullopt);
}

std::string FileManager::expandingTilde(std::string_view path) {
    if (!path.starts_with('~')) {
        return std::string(path);
    }
    const std::size_t slash = path.find('/');
    const std::string name(path.substr(1, slash == std::string_view::npos ? slash : slash - 1));
    const std::string folder = name.empty() ? homeFolder() : accountFolder(name);
    if (folder.empty()) {
        return std::string(path);
    }
    return folder + std::string(slash == std::string_view::npos ? "" : path.substr(slash));
}

std::string FileManager::configurationFolder() {
    return baseFolder("XDG_CONFIG_HOME", ".config");
}

std::string FileManager::cacheFolder() {
    return baseFolder("XDG_CACHE_HOME", ".cache");
}

std::string FileManager::temporaryFolder() {
    return absolutePathFromEnvironment("TMPDIR").value_or("/tmp");
}

}  // namespace velto
