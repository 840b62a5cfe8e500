#include <VeltoConnectFoundation/Platform/FileDescriptor.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace velto {

void FileDescriptor::reset(int number) noexcept {
    if (number_ >= 0) {
        const int before = errno;
        ::close(number_);
        errno = before;
    }
    number_ = number;
}

int FileDescriptor::close() noexcept {
    const int number = std::exchange(number_, -1);
    // Linux has closed it also when a signal came in between.
    return number < 0 || ::close(number) == 0 || errno == EINTR ? 0 : errno;
}

int Pipe::open() noexcept {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return errno;
    }
    reading.reset(ends[0]);
    writing.reset(ends[1]);
    for (FileDescriptor* end : {&reading, &writing}) {
        if (end->number() <= STDERR_FILENO) {
            const int above = ::fcntl(end->number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            if (above < 0) {
                return errno;
            }
            end->reset(above);
        }
    }
    return 0;
}

}  // namespace velto
