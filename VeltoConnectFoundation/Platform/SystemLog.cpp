#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <VeltoConnectFoundation/Platform/DisplayText.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <exception>
#include <optional>
#include <string>

namespace velto {

namespace {

std::atomic<PlatformLogHook> platformLogHook{nullptr};

const char* processName() {
    const char* name = g_get_prgname();
    return name != nullptr ? name : program_invocation_short_name;
}

const char* syslogPriority(int level) {
    switch (level) {
        case 0:
            return "7";
        case 2:
            return "4";
        case 3:
        case 4:
            return "3";
        case 5:
            return "2";
        default:
            return "6";
    }
}

GLogField field(const char* key, std::string_view value) {
    return {key, value.data(), static_cast<gssize>(value.size())};
}

/// Asked when the library is loaded: where it was closed, what has its number later is something
/// else of the host's.
bool hasStandardError() {
    static const bool wasOpen = fcntl(STDERR_FILENO, F_GETFD) != -1;
    return wasOpen;
}

[[maybe_unused]] const bool hadStandardError = hasStandardError();

bool writeToJournal(int level, std::string_view line) {
    static const bool standardErrorIsJournal = g_log_writer_is_journald(STDERR_FILENO) != FALSE;
    if (!standardErrorIsJournal) {
        return false;
    }
    // The first line opens GLib's socket.
    static std::atomic_flag isOpen;
    std::optional<StandardDescriptorsTaken> taken;
    if (!isOpen.test_and_set()) {
        taken.emplace();
    }
    const std::array fields{field("MESSAGE", line), field("PRIORITY", syslogPriority(level)),
                            field("SYSLOG_IDENTIFIER", processName())};
    return g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields.data(), fields.size(), nullptr) ==
           G_LOG_WRITER_HANDLED;
}

void appendNumber(std::string& text, long number, std::size_t width = 1) {
    std::array<char, 24> digits;
    const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const auto length = static_cast<std::size_t>(end - digits.data());
    text.append(width > length ? width - length : 0, '0').append(digits.data(), length);
}

/// "2024-05-01 12:34:56.789 program[process:thread] "
void appendStamp(std::string& text) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local;
    localtime_r(&now.tv_sec, &local);
    appendNumber(text, 1900L + local.tm_year, 4);
    appendNumber(text += '-', 1L + local.tm_mon, 2);
    appendNumber(text += '-', local.tm_mday, 2);
    appendNumber(text += ' ', local.tm_hour, 2);
    appendNumber(text += ':', local.tm_min, 2);
    appendNumber(text += ':', local.tm_sec, 2);
    appendNumber(text += '.', now.tv_nsec / 1'000'000, 3);
    appendNumber(text.append(1, ' ').append(processName()) += '[', getpid());
    appendNumber(text += ':', gettid());
    text += "] ";
}

/// In one call, so that lines of several threads do not mix.
void writeToStandardError(std::string_view text) {
    if (!hasStandardError()) {
        return;
    }
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;
        }
    }
}

}  // namespace

void systemLog(int level, std::string_view line) {
    if (!hasStandardError()) {
        return;
    }
    const std::string record = escapedLogLine(line);
    if (writeToJournal(level, record)) {
        return;
    }
    std::string text;
    text.reserve(record.size() + 64);
    appendStamp(text);
    text.append(record) += '\n';
    writeToStandardError(text);
}

void setPlatformLogHook(PlatformLogHook hook) {
    platformLogHook.store(hook);
}

void platformLog(int level, std::string_view line) noexcept {
    try {
        const PlatformLogHook hook = platformLogHook.load();
        (hook != nullptr ? hook : systemLog)(level, line);
    } catch (...) {
        writeToStandardError(line);
        writeToStandardError("\n");
    }
}

void platformLogUncaught(std::string_view where) noexcept {
    try {
        std::string line("Uncaught exception in ");
        line.append(where).append(": ");
        try {
            throw;
        } catch (const std::exception& exception) {
            line += exception.what();
        } catch (...) {
            line += "of an unknown kind";
        }
        platformLog(5, line);
    } catch (...) {
        platformLog(5, "Uncaught exception");
    }
}

}  // namespace velto
