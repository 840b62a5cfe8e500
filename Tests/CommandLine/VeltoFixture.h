#pragma once

#include <Tests/Sandbox/SandboxFixture.h>

#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

/// The real `velto` and the sandbox's real tool as child processes.
namespace cli_test {

using sandbox_test::Child;
using sandbox_test::contentOf;
using sandbox_test::linesOf;
using sandbox_test::Strings;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Children of all threads of a process.
inline std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    std::error_code problem;
    for (const auto& task : std::filesystem::directory_iterator(
             "/proc/" + std::to_string(parent) + "/task", problem)) {
        std::ifstream list(task.path() / "children");
        for (pid_t child = 0; list >> child;)
            children.push_back(child);
    }
    return children;
}

/// Whether no process of the group runs; one that has ended and waits to be reaped does not.
inline bool groupIsGone(pid_t group) {
    std::error_code problem;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", problem)) {
        if (entry.path().filename().string().find_first_not_of("0123456789") != std::string::npos)
            continue;
        const std::string text = contentOf(entry.path() / "stat");
        const std::size_t name = text.rfind(')');
        if (name == std::string::npos)
            continue;
        std::istringstream fields(text.substr(name + 1));
        char state = 0;
        pid_t parent = 0;
        pid_t own = 0;
        fields >> state >> parent >> own;
        if (own == group && state != 'Z' && state != 'X')
            return false;
    }
    return true;
}

/// The same, given the time that a kill takes to arrive.
inline bool groupEnds(pid_t group, double seconds = 1) {
    const auto start = Clock::now();
    while (!groupIsGone(group)) {
        if (secondsSince(start) > seconds)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// The arguments of a running process, with blanks between.
inline std::string commandLineOf(pid_t process) {
    std::string text = contentOf("/proc/" + std::to_string(process) + "/cmdline");
    std::ranges::replace(text, '\0', ' ');
    return text;
}

/// The delivery tools that a `velto` runs.
inline std::vector<pid_t> toolsOf(pid_t parent) {
    std::vector<pid_t> tools = childrenOf(parent);
    std::erase_if(tools,
                  [](pid_t child) { return commandLineOf(child).starts_with("velto-guardian"); });
    return tools;
}

/// 'R', 'S', 'T' and so on, as the system calls it.
inline char stateOf(pid_t process) {
    const std::string text = contentOf("/proc/" + std::to_string(process) + "/stat");
    const std::size_t name = text.rfind(')');
    return name == std::string::npos ? 'X' : text[name + 2];
}

/// A program on a terminal of its own.
class TerminalChild {
public:
    TerminalChild(const std::filesystem::path& program,
                  const Strings& arguments,
                  const sandbox_test::Environment& environment,
                  unsigned short columns) {
        Strings words{program};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        winsize size{24, columns, 0, 0};
        pid = forkpty(&terminal_, nullptr, nullptr, &size);
        if (pid == 0) {
            for (const auto& [name, value] : environment)
                setenv(name.c_str(), value.c_str(), 1);
            execv(pointers.front(), pointers.data());
            _exit(127);
        }
    }
    TerminalChild(const TerminalChild&) = delete;
    ~TerminalChild() {
        if (pid > 0)
            kill(pid, SIGKILL);
        finish();
        close(terminal_);
    }

    bool readUntil(std::string_view text) {
        while (screen.find(text) == std::string::npos)
            if (!readSome())
                return false;
        return true;
    }
    TerminalChild& finish() {
        while (readSome()) {
        }
        int status = 0;
        if (pid > 0 && waitpid(pid, &status, 0) == pid) {
            pid = 0;
            exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return *this;
    }
    void type(std::string_view keys) const {
        EXPECT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    pid_t pid = 0;
    int exitCode = -1;
    std::string screen;  ///< All that was written to the terminal.

private:
    bool readSome() {
        char buffer[65536];
        const ssize_t count = read(terminal_, buffer, sizeof buffer);
        if (count > 0)
            screen.append(buffer, static_cast<std::size_t>(count));
        return count > 0;
    }
    int terminal_ = -1;
};

/// A home of its own, the sandbox's tool, and demo's password in VELTO_PASSWORD.
class VeltoTest : public sandbox_test::SandboxTest {
protected:
    VeltoTest() {
        environment.erase("PW");
        for (const auto& [name, value] : std::map<std::string, std::string>{
                 {"HOME", folder / "home"},
                 {"XDG_CONFIG_HOME", folder / "home/.config"},
                 {"XDG_DATA_HOME", folder / "home/.local/share"},
                 {"VELTO_VELTODROVANEXECUTABLEPATH",
                  velto::testing::sandboxFolder() / "velm/bin/VelmDrovan"},
                 {"VELTO_PASSWORD", "demo-password"},
                 {"LC_ALL", "C.UTF-8"},
                 {"LANGUAGE", "en"},
                 {"TERM", "xterm"},
                 {"NO_COLOR", ""}})
            environment[name] = value;
        std::filesystem::create_directories(folder / "home");
    }

    Child velto(const Strings& arguments) const {
        return Child(velto::testing::veltoProgram(), arguments, environment);
    }
    Child finished(const Strings& arguments) const {
        return Child(Child::ToItsEnd(), velto::testing::veltoProgram(), arguments, environment);
    }
    TerminalChild veltoOnTerminal(const Strings& arguments, unsigned short columns = 100) const {
        return TerminalChild(velto::testing::veltoProgram(), arguments, environment, columns);
    }

    static Strings job(const std::string& command,
                       const std::filesystem::path& package,
                       const Strings& more = {}) {
        Strings words{command, package, "--user", "demo@sandbox.invalid"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    /// A tool that prints the bytes, waits for the shell command, and ends with `status`.
    std::filesystem::path toolThatPrints(std::string_view bytes,
                                         int status,
                                         const std::string& wait = ":") const {
        write(folder / "printed", bytes);
        write(folder / "tool", "#!/bin/sh\ncat '" + (folder / "printed").string() + "'\n" + wait +
                                   "\nexit " + std::to_string(status) + "\n");
        std::filesystem::permissions(folder / "tool", std::filesystem::perms(0755));
        return folder / "tool";
    }

    /// The objects of `--json`, all of which must be valid.
    static std::vector<Json> objectsOf(const std::string& output) {
        std::vector<Json> objects;
        for (const std::string& line : linesOf(output)) {
            Json object = Json::parse(line, nullptr, false);
            EXPECT_TRUE(object.is_object() && object.contains("type")) << line;
            objects.push_back(std::move(object));
        }
        return objects;
    }
};

}  // namespace cli_test
