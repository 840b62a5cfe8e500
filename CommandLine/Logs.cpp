#include <CommandLine/Logs.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/OutputDescriptor.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Version.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <new>
#include <optional>
#include <utility>

namespace velto::cli {

namespace {

std::string_view levelName(std::int32_t level) {
    constexpr std::string_view names[] = {"debug", "info", "warning", "error", "error", "critical"};
    return level >= 0 && level <= 5 ? names[level] : std::string_view("log");
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
        console_.line(errors, console_.inked(errors, ink, name) + " " +
                                  escapedLogLine(message, std::string(9, ' ')));
    }

private:
    Console& console_;
    const bool isVerbose_;
};

class FileLogger final : public MZLogger {
public:
    /// Takes the descriptor.
    FileLogger(Console& console, int descriptor, std::string path)
        : console_(console),
          path_(std::move(path)),
          descriptor_(descriptor),
          output_(descriptor, console.hurryEvent()) {}
    ~FileLogger() override { ::close(descriptor_); }

    void LogMessage(std::string_view message, std::int32_t level) override {
        output_.write(record(message, level));
        const int problem = output_.problem();
        if (problem != 0 && !std::exchange(hasFailed_, true)) {
            const std::string why = problem == ETIMEDOUT
                                        ? localizedFormat("Nobody reads %@.", path_)
                                        : Error::posix(problem, path_).localizedDescription();
            console_.line(Console::Stream::errors,
                          localizedFormat("velto: The log is incomplete: %@", printable(why)));
        }
    }

    /// Any thread; waits for no lock of the log and no reader.
    void logAtOnce(std::string_view message) const noexcept {
        try {
            output_.writeAtOnce(record(message, MZLogLevelInfo));
        } catch (const std::bad_alloc&) {
            // Then it ends without.
        }
    }

private:
    static std::string record(std::string_view message, std::int32_t level) {
        std::string line = timeStamp();
        line.append(" ").append(levelName(level)).append(" ").append(escapedLogLine(message));
        return line += '\n';
    }

    Console& console_;
    const std::string path_;
    const int descriptor_;
    OutputDescriptor output_;
    bool hasFailed_ = false;  ///< Lines come one at a time.
};

/// The number of "/dev/stderr" and the like, which lead to what is open already.
std::optional<int> openDescriptor(std::string_view path) {
    constexpr std::pair<std::string_view, int> names[] = {{"/dev/stdout", STDOUT_FILENO},
                                                          {"/dev/stderr", STDERR_FILENO}};
    for (const auto& [name, descriptor] : names) {
        if (path == name) {
            return descriptor;
        }
    }
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (path.starts_with(folder)) {
            int descriptor = -1;
            const char* const end = path.data() + path.size();
            const auto result = std::from_chars(path.data() + folder.size(), end, descriptor);
            return result.ec == std::errc() && result.ptr == end ? std::optional(descriptor)
                                                                 : std::nullopt;
        }
    }
    return std::nullopt;
}

/// A descriptor to add to the file with, -1 with errno. A new file is its owner's alone. No link
/// is followed: who made it would choose what is written to. A pipe must have a reader.
int openLog(const std::string& path) {
    if (const auto descriptor = openDescriptor(path)) {
        return ::fcntl(*descriptor, F_DUPFD_CLOEXEC, 3);
    }
    return ::open(path.c_str(),
                  O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK,
                  0600);
}

/// Why it could not be opened.
std::string reasonOf(int problem, const std::string& path) {
    struct stat kind {};
    ::lstat(path.c_str(), &kind);
    if (problem == ELOOP && S_ISLNK(kind.st_mode)) {
        return localizedFormat("%@ is a symbolic link, which is not followed.", path);
    }
    return problem == ENXIO && S_ISFIFO(kind.st_mode)
               ? localizedFormat("Nobody reads the pipe %@.", path)
               : Error::posix(problem, path).localizedDescription();
}

/// "KEY=VALUE" with the value hidden where the setting is a secret, or holds one. What is no
/// setting may be a slip in the name of a secret.
std::string shownAssignment(std::string_view assignment) {
    const std::size_t equals = assignment.find('=');
    Failure unknown;
    const Setting* const setting = declaredSetting(assignment.substr(0, equals), unknown);
    if (equals == std::string_view::npos) {
        return std::string(setting == nullptr ? hiddenText : assignment);
    }
    std::string shown(assignment.substr(0, equals + 1));
    return setting == nullptr ? shown.append(hiddenText)
                              : shown + settingText(*setting, assignment.substr(equals + 1));
}

/// The operands of `config set`, with the values hidden likewise.
std::vector<std::string> shownSettingOperands(std::vector<std::string> operands) {
    Failure unknown;
    const Setting* const setting = declaredSetting(operands.front(), unknown);
    if (setting == nullptr) {
        std::fill(operands.begin() + 1, operands.end(), hiddenText);
        if (operands.front().find('=') != std::string::npos) {
            operands.front() = shownAssignment(operands.front());
        }
    } else {
        Array values;
        for (std::size_t index = 1; index < operands.size(); ++index) {
            values.append(operands[index]);
        }
        const Value shown = shownSetting(*setting, values);
        for (std::size_t index = 1; index < operands.size(); ++index) {
            operands[index] = shown.isArray() ? shown.array()[index - 1].string() : shown.string();
        }
    }
    return operands;
}

/// As it was typed, for a shell, without the secrets that a setting may be.
std::string shownCommandLine(const Invocation& invocation,
                             const std::vector<std::string>& arguments) {
    const std::string option = "--" + std::string(setOption.name);
    const std::vector<std::string> operands =
        invocation.command != nullptr && invocation.command->name == "config set"
            ? shownSettingOperands(invocation.operands)
            : invocation.operands;
    std::size_t operand = 0;
    std::string line = "velto";
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        std::string shown = arguments[index];
        if (index > 0 && arguments[index - 1] == option) {
            shown = shownAssignment(shown);
        } else if (shown.starts_with(option + "=")) {
            shown = option + "=" + shownAssignment(shown.substr(option.size() + 1));
        } else if (operand < operands.size() && shown == invocation.operands[operand]) {
            shown = operands[operand++];
        }
        line.append(" ").append(shellQuoted(shown));
    }
    return line;
}

std::string endOf(ExitCode code) {
    return format("velto ended: %@, exit code %d", outcomeOf(code), static_cast<int>(code));
}

}  // namespace

Logs::Logs(Frontend& frontend)
    : frontend_(frontend),
      consoleLogger_(std::make_shared<ConsoleLogger>(frontend.console(), false)) {
    MZSetLogFunction(&logToLoggersOnly);
    MZAddLogger(consoleLogger_);
}

Logs::~Logs() {
    frontend_.setLastWords({});
    MZRemoveLogger(consoleLogger_);
    MZRemoveLogger(fileLogger_);
}

bool Logs::open(const Invocation& invocation,
                const std::vector<std::string>& arguments,
                Failure& failure) {
    Console& console = frontend_.console();
    if (invocation.has(verboseOption)) {
        MZRemoveLogger(consoleLogger_);
        consoleLogger_ = std::make_shared<ConsoleLogger>(console, true);
        MZAddLogger(consoleLogger_);
    }
    if (const auto given = invocation.value(logFileOption)) {
        const std::string path = FileManager::expandingTilde(*given);
        const int descriptor = openLog(path);
        if (descriptor < 0) {
            const int problem = errno;
            failure = usageFailure(localized("The log file cannot be written."),
                                   localized("Name another file with --log-file."));
            failure.why.push_back(printable(reasonOf(problem, path)));
            return false;
        }
        const auto logger = std::make_shared<FileLogger>(console, descriptor, path);
        fileLogger_ = logger;
        MZAddLogger(fileLogger_);
        frontend_.setLastWords(
            [logger, words = endOf(ExitCode::stopped)] { logger->logAtOnce(words); });
    }
    MZLog("velto %@: %@", libraryVersion(), shownCommandLine(invocation, arguments));
    return true;
}

void Logs::end(ExitCode code) {
    MZLog("%@", endOf(code));
}

}  // namespace velto::cli
