#include <CommandLine/StandardInput.h>

#include <unistd.h>

#include <cerrno>

namespace velto::cli {

std::ptrdiff_t StandardInput::read(std::uint8_t* buffer, std::size_t length) {
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, buffer, length);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        error_ = Error::posix(errno, "-");
        status_ = StreamStatus::error;
    } else if (count == 0 && length != 0) {
        status_ = StreamStatus::atEnd;
    }
    return count;
}

}  // namespace velto::cli
