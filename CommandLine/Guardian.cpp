#include <CommandLine/Guardian.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace velto::cli {

namespace {

/// What `ps` shows.
constexpr const char* processName = "velto-guardian";

/// What the loader of programs needs to find the libraries again, and nothing else.
std::vector<char*> loaderEnvironment() {
    std::vector<char*> variables;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (std::string_view(*variable).starts_with("LD_")) {
            variables.push_back(*variable);
        }
    }
    variables.push_back(nullptr);
    return variables;
}

/// 0, or why there is no process.
int spawn(int lifeLine, std::int64_t graceMilliseconds, pid_t& process) {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_adddup2(&files, lifeLine, STDIN_FILENO);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    // What ends the tool must not end the guardian before it.
    sigset_t signals;
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    std::string name = processName;
    std::string grace = std::to_string(graceMilliseconds);
    char* const arguments[] = {name.data(), grace.data(), nullptr};
    // Also when the program's file has been replaced since it was started.
    const int problem = ::posix_spawn(&process, "/proc/self/exe", &files, &attributes, arguments,
                                      loaderEnvironment().data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    return problem;
}

}  // namespace

std::unique_ptr<Guardian> Guardian::start(Seconds grace, Error& error) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error = Error::posix(errno, processName);
        return nullptr;
    }
    const auto milliseconds =
        static_cast<std::int64_t>(std::clamp(grace.count(), 0.0, 86400.0) * 1000);
    pid_t process = 0;
    const int problem = spawn(ends[0], milliseconds, process);
    ::close(ends[0]);
    if (problem != 0) {
        ::close(ends[1]);
        error = Error::posix(problem, processName);
        return nullptr;
    }
    return std::unique_ptr<Guardian>(new Guardian(process, ends[1]));
}

Guardian::~Guardian() {
    const char farewell = 0;
    [[maybe_unused]] const ssize_t count = ::write(lifeLine_, &farewell, sizeof farewell);
    ::close(lifeLine_);
}

void Guardian::signalGroup(int number) const noexcept {
    ::kill(-group_, number);
}

std::optional<int> Guardian::runIfMeant(int count, char** arguments) {
    // Only as what start() makes of it: it ends its whole group.
    if (count != 2 || std::string_view(arguments[0]) != processName || ::getpgrp() != ::getpid()) {
        return std::nullopt;
    }
    ::prctl(PR_SET_NAME, processName);
    [[maybe_unused]] const int folder = ::chdir("/");
    char farewell = 0;
    ssize_t length = 0;
    do {
        length = ::read(STDIN_FILENO, &farewell, sizeof farewell);
    } while (length < 0 && errno == EINTR);
    if (length > 0) {
        return 0;
    }
    std::int64_t grace = 0;
    const std::string_view text = arguments[1];
    std::from_chars(text.data(), text.data() + text.size(), grace);
    ::kill(0, SIGTERM);
    ::kill(0, SIGCONT);
    std::this_thread::sleep_for(std::chrono::milliseconds(grace));
    ::kill(0, SIGKILL);
    return 0;
}

}  // namespace velto::cli
