#include <CommandLine/OutputDescriptor.h>

#include <CommandLine/Terminal.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

namespace velto::cli {

namespace {

constexpr int patience = 1000;  // milliseconds

/// A pipe that has room at all has room for so much, so that a write does not wait.
constexpr std::size_t longestWrite = PIPE_BUF;

/// Another description of the same terminal or pipe: not to wait is a property of the description,
/// which we share with the shell. Whoever else writes there may take the room that we have seen. -1
/// where the system does not allow that.
int ownDescription(int number) {
    struct stat kind {};
    return ::fstat(number, &kind) == 0 && (S_ISFIFO(kind.st_mode) || ::isatty(number) != 0)
               ? ::open(("/proc/self/fd/" + std::to_string(number)).c_str(),
                        O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
               : -1;
}

}  // namespace

OutputDescriptor::OutputDescriptor(int number, int hurry)
    : hurry_(hurry),
      isTerminal_(cli::isTerminal(number)),
      descriptor_(ownDescription(number)),
      isOwn_(descriptor_ >= 0) {
    if (!isOwn_) {
        descriptor_ = number;
    }
}

OutputDescriptor::~OutputDescriptor() {
    if (isOwn_) {
        ::close(descriptor_);
    }
}

std::size_t OutputDescriptor::width() const {
    return terminalWidth(descriptor_);
}

void OutputDescriptor::write(std::string_view text) {
    while (!text.empty() && !isStuck_) {
        int problem = waitForRoom();
        if (problem == 0) {
            const ssize_t count =
                ::write(descriptor_, text.data(), text.substr(0, longestWrite).size());
            if (count >= 0) {
                text.remove_prefix(static_cast<std::size_t>(count));
                continue;
            }
            problem = errno;
        }
        if (problem != EINTR && problem != EAGAIN) {
            int none = 0;
            problem_.compare_exchange_strong(none, problem);
            isStuck_ = problem == ETIMEDOUT;
            return;
        }
    }
}

int OutputDescriptor::waitForRoom() {
    pollfd sources[] = {{descriptor_, POLLOUT, 0}, {hurry_, POLLIN, 0}};
    if (::poll(sources, 2, -1) < 0) {
        return errno;
    }
    if (sources[0].revents == 0) {
        const int count = ::poll(sources, 1, patience);
        return count > 0 ? 0 : count == 0 ? ETIMEDOUT : errno;
    }
    return 0;
}

void OutputDescriptor::writeAtOnce(std::string_view text) const noexcept {
    pollfd room{descriptor_, POLLOUT, 0};
    if (::poll(&room, 1, 0) > 0) {
        [[maybe_unused]] const ssize_t count =
            ::write(descriptor_, text.data(), text.substr(0, longestWrite).size());
    }
}

}  // namespace velto::cli
