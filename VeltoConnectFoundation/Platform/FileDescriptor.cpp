#include <VeltoConnectFoundation/Platform/FileDescriptor.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace velto {

int FileDescriptor::aboveStandard(int number) noexcept {
    if (number < 0 || number > STDERR_FILENO) {
        return number;
    }
    const int above = ::fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int failure = errno;
    ::close(number);
    errno = failure;
    return above;
}

void FileDescriptor::take(int number) noexcept {
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
    const int failure = reading ? 0 : errno;
    writing.reset(ends[1]);
    return failure != 0 ? failure : writing ? 0 : errno;
}

StandardDescriptorsTaken::StandardDescriptorsTaken() noexcept {
    int number = -1;
    while ((number = ::open("/", O_PATH | O_CLOEXEC)) >= 0 && number <= STDERR_FILENO) {
        taken_[static_cast<std::size_t>(number)] = true;
    }
    if (number >= 0) {
        ::close(number);
    }
}

StandardDescriptorsTaken::~StandardDescriptorsTaken() {
    for (std::size_t number = 0; number < taken_.size(); ++number) {
        if (taken_[number]) {
            ::close(static_cast<int>(number));
        }
    }
}

}  // namespace velto
