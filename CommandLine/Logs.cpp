#include <CommandLine/Logs.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Console.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Terminal.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <string>

namespace velto::cli {

namespace {

std::string_view levelName(std::int32_t level) {
    constexpr std::string_view names[] = {"debug", "info", "warning", "error", "error", "critical"};
    return level >= 0 && level <= 5 ? names[level] : std::string_view("log");
}

/// "2026-01-31T12:34:56.789Z"
std::string timeStamp() {
    using namespace std::chrono;
    const auto milli = milliseconds(std::llround(Clock::wallTime().unixSeconds() * 1000));
    const sys_time<milliseconds> time(milli);
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    return format("%04d-%02u-%02uT%02ld:%02ld:%02ld.%03ldZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<std::int64_t>(clock.hours().count()),
                  static_cast<std::int64_t>(clock.minutes().count()),
                  static_cast<std::int64_t>(clock.seconds().count()),
                  static_cast<std::int64_t>(clock.subseconds().count()));
}

void logToLoggersOnly(std::int32_t level, std::string_view text, FormatArguments arguments) {
    MZForwardMessageToLoggers(MZLogMaskedMessage(text, arguments), level);
}

class ConsoleLogger final : public MZLogger {
public:
    ConsoleLogger(Console& console, bool isVerbose) : console_(console), isVerbose_(isVerbose) {}

    void LogMessage(std::string_view message, std::int32_t level) override {
        if (!isVerbose_ && level < MZLogLevelStderr) {
            return;
        }
        const auto errors = Console::Stream::errors;
        const Ink ink = level >= MZLogLevelError     ? Ink::bad
                        : level == MZLogLevelWarning ? Ink::warning
                                                     : Ink::faint;
        std::string name(levelName(level));
        name.resize(8, ' ');
        // The tool's own lines may hold anything; line feeds are kept, since some lines have
        // several.
        std::string text;
        while (!message.empty()) {
            const std::size_t end = std::min(message.find('\n'), message.size());
            text.append(text.empty() ? console_.inked(errors, ink, name) + " "
                                     : std::string(9, ' '));
            text.append(printable(message.substr(0, end))).append("\n");
            message.remove_prefix(std::min(end + 1, message.size()));
        }
        console_.print(errors, text);
    }

private:
    Console& console_;
    const bool isVerbose_;
};

class FileLogger final : public MZLogger {
public:
    explicit FileLogger(int descriptor) : descriptor_(descriptor) {}
    ~FileLogger() override { ::close(descriptor_); }

    void LogMessage(std::string_view message, std::int32_t level) override {
        std::string line = timeStamp();
        line.append(" ").append(levelName(level)).append(" ").append(message);
        if (!line.ends_with('\n')) {
            line += '\n';
        }
        writeAll(descriptor_, line);
    }

private:
    const int descriptor_;
};

/// A descriptor of a file that only its owner can read; -1 with errno.
int openPrivateFile(const std::string& path) {
    const int descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
    struct stat status {};
    if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & 0077) != 0 && ::fchmod(descriptor, 0600) != 0) {
        const int problem = errno;
        ::close(descriptor);
        errno = problem;
        return -1;
    }
    return descriptor;
}

}  // namespace

Logs::Logs(Console& console) : consoleLogger_(std::make_shared<ConsoleLogger>(console, false)) {
    MZSetLogFunction(&logToLoggersOnly);
    MZAddLogger(consoleLogger_);
}

Logs::~Logs() {
    MZRemoveLogger(consoleLogger_);
    MZRemoveLogger(fileLogger_);
}

bool Logs::open(const Invocation& invocation, Console& console, Failure& failure) {
    if (invocation.has(verboseOption)) {
        MZRemoveLogger(consoleLogger_);
        consoleLogger_ = std::make_shared<ConsoleLogger>(console, true);
        MZAddLogger(consoleLogger_);
    }
    const auto path = invocation.value(logFileOption);
    if (!path) {
        return true;
    }
    const int descriptor = openPrivateFile(FileManager::expandingTilde(*path));
    if (descriptor < 0) {
        failure = usageFailure(localized("The log file cannot be written."),
                               localized("Name another file with --log-file."));
        failure.why.push_back(printable(Error::posix(errno, *path).localizedDescription()));
        return false;
    }
    fileLogger_ = std::make_shared<FileLogger>(descriptor);
    MZAddLogger(fileLogger_);
    return true;
}

}  // namespace velto::cli
