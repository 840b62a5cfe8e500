#include <CommandLine/Console.h>

#include <CommandLine/Terminal.h>
#include <CommandLine/Text.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace velto::cli {

namespace {

bool wantsNoColour() {
    const char* value = std::getenv("NO_COLOR");
    return value != nullptr && *value != 0;
}

/// With what it was wrapped into when the window became narrow.
constexpr std::string_view eraseLine = "\r\x1b[J";

/// Columns of a text with colours in it.
std::size_t columnsOfInked(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const std::size_t code = std::min(text.find('\x1b'), text.size());
        columns += columnsOf(text.substr(0, code));
        text.remove_prefix(std::min(text.find('m', code), text.size() - 1) + 1);
    }
    return columns;
}

std::string_view codeOf(Ink ink) {
    switch (ink) {
        case Ink::bold:
            return "\x1b[1m";
        case Ink::faint:
            return "\x1b[2m";
        case Ink::good:
            return "\x1b[32m";
        case Ink::bad:
            return "\x1b[1;31m";
        case Ink::warning:
            return "\x1b[33m";
        case Ink::plain:
            break;
    }
    return {};
}

}  // namespace

Console::Hurry::Hurry() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event < 0) {
        throw std::system_error(errno, std::generic_category());
    }
}

Console::Hurry::~Hurry() {
    ::close(event);
}

Console::Console()
    : output_(STDOUT_FILENO, hurry_.event),
      errors_(STDERR_FILENO, hurry_.event),
      coloursAllowed_(!wantsNoColour()) {
}

Console::~Console() {
    setLiveLine({});
}

void Console::print(Stream stream, std::string_view text) {
    printBytes(stream, charset_.encoded(text));
}

void Console::lineOfBytes(std::string_view bytes) {
    printBytes(Stream::output, std::string(bytes) + "\n");
}

void Console::printBytes(Stream stream, std::string_view bytes) {
    const std::lock_guard guard(mutex_);
    eraseLiveLine();
    write(stream, bytes);
    drawLiveLine();
}

void Console::line(Stream stream, std::string_view text) {
    print(stream, std::string(text) + "\n");
}

void Console::setLiveLine(std::string_view text) {
    const std::lock_guard guard(mutex_);
    if (!isTerminal(Stream::output) || (text == liveLine_ && isLiveLineDrawn_)) {
        return;
    }
    if (text.empty()) {
        eraseLiveLine();
        liveLine_.clear();
        return;
    }
    liveLine_ = text;
    drawLiveLine();
}

void Console::hurry() const noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t count = ::write(hurry_.event, &one, sizeof one);
}

void Console::sayAtOnce(Stream stream, std::string_view bytes) noexcept {
    if (isLiveLineDrawn_.exchange(false)) {
        output_.writeAtOnce(eraseLine);
    }
    of(stream).writeAtOnce(bytes);
}

std::string Console::inked(Stream stream, Ink ink, std::string_view text) const {
    std::string result;
    const std::string_view code = codeOf(ink);
    if (code.empty() || text.empty() || !hasColours(stream)) {
        result = text;
    } else {
        result.append(code).append(text).append("\x1b[0m");
    }
    return result;
}

std::string Console::successHeadline(Stream stream, std::string_view text) const {
    const std::string headline = inked(stream, Ink::bold, text);
    return isTerminal(stream) ? inked(stream, Ink::good, speaksUTF8() ? "✓" : "*") + " " + headline
                              : headline;
}

bool Console::hasColours(Stream stream) const {
    return coloursAllowed_ && isTerminal(stream);
}

std::size_t Console::width() const {
    return output_.width();
}

void Console::write(Stream stream, std::string_view text) {
    (stream == Stream::output ? output_ : errors_).write(text);
}

void Console::eraseLiveLine() {
    if (isLiveLineDrawn_.exchange(false)) {
        write(Stream::output, eraseLine);
    }
}

void Console::drawLiveLine() {
    if (!liveLine_.empty()) {
        const std::size_t columns = width();
        if (columns != drawnWidth_) {
            eraseLiveLine();
        }
        drawnWidth_ = columns;
        isLiveLineDrawn_ = true;
        // Without wrapping, so that a window that has just become narrow does not gain a line; an
        // erasure behind the last column would take its character. The cursor waits at the start,
        // where the terminal's own "^C" and "^Z" are overwritten.
        const bool isFull = columnsOfInked(liveLine_) >= columns;
        write(Stream::output, "\r\x1b[?7l" + charset_.encoded(liveLine_) +
                                  (isFull ? "\x1b[?7h\r" : "\x1b[J\x1b[?7h\r"));
    }
}

}  // namespace velto::cli
