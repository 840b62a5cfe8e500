#include <VelmDrovan/Console.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace sandbox {
namespace {

/// One line: a control character inside (a name may hold one) must not make two of it.
void writeLine(int descriptor, std::string_view prefix, std::string_view text) {
    std::string line;
    line.reserve(prefix.size() + text.size() + 1);
    line.append(prefix).append(text);
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t'; }, '?');
    line += '\n';
    writeAll(descriptor, line);
}

}  // namespace

void writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd ready{descriptor, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return;  // Nobody reads any more: the work itself goes on.
        }
    }
}

void Console::line(std::string_view text) const {
    if (verbosity_ != Verbosity::Off)
        writeLine(STDOUT_FILENO, "", text);
}

void Console::progress(std::string_view text) const {
    if (indicator_)
        line(text);
}

void Console::detail(std::string_view text) const {
    if (verbosity_ == Verbosity::Detailed)
        writeLine(STDOUT_FILENO, "DBG: ", text);
}

void Console::info(std::string_view text) const {
    if (verbosity_ != Verbosity::Off)
        writeLine(STDOUT_FILENO, "INFO-X: ", text);
}

void Console::warning(std::string_view text) const {
    if (verbosity_ != Verbosity::Off)
        writeLine(STDOUT_FILENO, "WARN: ", text);
}

void Console::result(std::string_view text) const {
    writeLine(STDOUT_FILENO, "", text);
}

void Console::error(std::string_view text) const {
    writeLine(STDERR_FILENO, "", text);
}

}  // namespace sandbox
