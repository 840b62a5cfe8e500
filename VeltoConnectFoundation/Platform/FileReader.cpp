#include <VeltoConnectFoundation/Platform/FileReaderPrivate.h>

#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace velto {

FileReader::FileReader(std::string path, FileDescriptor descriptor)
    : path_(std::move(path)), descriptor_(std::move(descriptor)) {
}

std::optional<FileReader> FileReader::open(std::string_view path, Error* error) {
    // O_NONBLOCK: opening a pipe nobody writes to must not wait.
    std::string whole(path);
    FileDescriptor descriptor(::open(whole.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!descriptor || ::fstat(descriptor.number(), &status) != 0) {
        fail(error, Error::posix(errno, path));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        fail(error, noFileError(path));
        return std::nullopt;
    }
    return FileReader(std::move(whole), std::move(descriptor));
}

std::optional<FileAttributes> FileReader::attributes(Error* error) const {
    struct stat status {};
    if (::fstat(descriptor_.number(), &status) != 0) {
        fail(error, Error::posix(errno, path_));
        return std::nullopt;
    }
    return attributesOfStatus(status);
}

std::ptrdiff_t FileReader::read(std::uint8_t* buffer, std::size_t length, Error* error) {
    for (;;) {
        const ssize_t count = ::read(descriptor_.number(), buffer, length);
        if (count >= 0 || errno != EINTR) {
            if (count < 0) {
                fail(error, Error::posix(errno, path_));
            }
            return count;
        }
    }
}

}  // namespace velto
