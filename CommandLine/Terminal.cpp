#include <CommandLine/Terminal.h>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace velto::cli {

bool isTerminal(int descriptor) {
    if (::isatty(descriptor) == 0) {
        return false;
    }
    const char* kind = std::getenv("TERM");
    return kind != nullptr && *kind != 0 && std::string_view(kind) != "dumb";
}

std::size_t terminalWidth(int descriptor) {
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return 80;
    }
    return size.ws_col;
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {
            pollfd room{descriptor, POLLOUT, 0};
            if (::poll(&room, 1, -1) < 0 && errno != EINTR) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace velto::cli
