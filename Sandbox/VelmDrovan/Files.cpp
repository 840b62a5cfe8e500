#include <VelmDrovan/Files.h>

#include <VelmDrovan/Crypto.h>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace sandbox {
namespace {

constexpr std::size_t usualBlock = 1 << 20;

}  // namespace

Descriptor::~Descriptor() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

Descriptor openRegular(const std::string& path, FileStamp& stamp) {
    // O_NONBLOCK: a named pipe in a package must not hang the tool.
    Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0)
        return Descriptor(-1);
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return Descriptor(-1);
    }
    stamp = {status.st_ino, static_cast<std::uint64_t>(status.st_size),
             status.st_mtim.tv_sec * std::int64_t{1'000'000'000} + status.st_mtim.tv_nsec};
    return file;
}

std::optional<std::string> readSmallFile(const std::string& path) {
    return readSmallFile(Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)));
}

std::optional<std::string> readSmallFile(const Descriptor& file) {
    constexpr std::size_t limit = 16 << 20;
    std::string text;
    if (!file || !readBlocks(file.get(), 64 << 10, [&](std::string_view block) {
            text.append(block);
            return text.size() <= limit;
        }))
        return std::nullopt;
    if (text.size() > limit) {
        errno = EFBIG;
        return std::nullopt;
    }
    return text;
}

bool readBlocks(int descriptor,
                std::size_t blockSize,
                const std::function<bool(std::string_view)>& take) {
    std::vector<char> buffer(blockSize);
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    for (;;) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count == 0)
            return true;
        if (count < 0 && errno != EINTR)
            return false;
        if (count > 0 && !take({buffer.data(), static_cast<std::size_t>(count)}))
            return true;
    }
}

std::optional<std::string> md5OfFile(const std::string& path) {
    FileStamp stamp;
    const Descriptor file = openRegular(path, stamp);
    MD5 digest;
    if (!file || !readBlocks(file.get(), usualBlock, [&](std::string_view block) {
            digest.update(block.data(), block.size());
            return true;
        }))
        return std::nullopt;
    return digest.hex();
}

bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           std::none_of(name.begin(), name.end(), [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte < 0x20 || byte == 0x7f || c == '/';
           });
}

std::string homeFolder(const char* variable, const char* fallback) {
    if (const char* set = std::getenv(variable); set && *set == '/')
        return set;
    const char* home = std::getenv("HOME");
    if (!home || !*home) {
        const passwd* entry = getpwuid(getuid());
        home = entry ? entry->pw_dir : "/";
    }
    return std::string(home) + "/" + fallback;
}

std::string systemReason() {
    return std::generic_category().message(errno);
}

std::string unreadableReason(const std::string& path) {
    const std::string reason = systemReason();
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return reason;
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return reason;
        case S_IFDIR:
            return "it is a folder, not a file";
        case S_IFLNK:
            return "it is a symbolic link, not a file";
        case S_IFIFO:
            return "it is a named pipe, not a file";
        case S_IFSOCK:
            return "it is a socket, not a file";
        default:
            return "it is a device, not a file";
    }
}

}  // namespace sandbox
