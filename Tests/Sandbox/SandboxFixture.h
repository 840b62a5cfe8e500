#pragma once

#include <Tests/Support/Paths.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

/// The sandbox's tool as a child, with nothing of the library between.
namespace sandbox_test {

using Strings = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// A started program whose two pipes are read until both have ended.
class Child {
public:
    Child(const std::filesystem::path& program, const Strings& arguments, Environment environment) {
        for (char** entry = environ; *entry; ++entry) {
            const std::string_view text(*entry);
            if (const std::size_t equals = text.find('='); equals != std::string_view::npos)
                environment.emplace(text.substr(0, equals), text.substr(equals + 1));
        }
        Strings words{program};
        words.insert(words.end(), arguments.begin(), arguments.end());
        Strings variables;
        for (const auto& [name, value] : environment)
            variables.push_back(name + "=" + value);
        int out[2];
        int err[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
        EXPECT_EQ(posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(words).data(),
                              pointers(variables).data()),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        close(err[1]);
        pipes_[0] = {out[0], POLLIN, 0};
        pipes_[1] = {err[0], POLLIN, 0};
    }

    struct ToItsEnd {};
    Child(ToItsEnd,
          const std::filesystem::path& program,
          const Strings& arguments,
          Environment environment)
        : Child(program, arguments, std::move(environment)) {
        finish();
    }

    Child(const Child&) = delete;

    ~Child() {
        if (pid > 0)
            kill(pid, SIGKILL);
        wait();
        for (const pollfd& pipe : pipes_)
            if (pipe.fd >= 0)
                close(pipe.fd);
    }

    /// Reads until standard output holds `text`, or to the end of both pipes.
    bool readUntil(std::string_view text) {
        while (output.find(text) == std::string::npos)
            if (!readSome())
                return false;
        return true;
    }

    /// Reads to the end of both pipes, then reaps.
    Child& finish() {
        while (readSome()) {
        }
        wait();
        return *this;
    }

    void wait() {
        int status = 0;
        if (pid <= 0 || waitpid(pid, &status, 0) != pid)
            return;
        pid = 0;
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    /// Whether somebody still holds a pipe of the child.
    bool pipesAreOpen() { return poll(pipes_, 2, 0) == 0; }

    std::string all() const { return "--- out\n" + output + "--- err\n" + errors; }

    pid_t pid = 0;
    int exitCode = -1;
    int signal = 0;
    std::string output, errors;

private:
    static std::vector<char*> pointers(Strings& strings) {
        std::vector<char*> result;
        for (auto& text : strings)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    }

    bool readSome() {
        if (pipes_[0].fd < 0 && pipes_[1].fd < 0)
            return false;
        poll(pipes_, 2, -1);
        for (pollfd& pipe : pipes_) {
            if (pipe.fd < 0 || pipe.revents == 0)
                continue;
            char buffer[65536];
            const ssize_t count = read(pipe.fd, buffer, sizeof buffer);
            if (count > 0) {
                (&pipe == pipes_ ? output : errors).append(buffer, static_cast<std::size_t>(count));
            } else {
                close(pipe.fd);
                pipe.fd = -1;
            }
        }
        return true;
    }

    pollfd pipes_[2];
};

inline Strings linesOf(const std::string& text) {
    Strings lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();  // what cannot be read, as of a process that just ended, is left out
    return text.str();
}

/// The lines behind "Error Messages:", without their tabs.
inline Strings errorBlock(const std::string& errors) {
    Strings block;
    bool inside = false;
    for (const auto& line : linesOf(errors)) {
        if (inside)
            block.push_back(line.substr(line.find_first_not_of('\t')));
        inside = inside || line == "Error Messages:";
    }
    return block;
}

/// A folder with a store, a package and a scenario, for one test.
class SandboxTest : public ::testing::Test {
protected:
    SandboxTest() {
        std::string name = std::filesystem::temp_directory_path() / "velm-sandbox-XXXXXX";
        folder = mkdtemp(name.data());
        environment = {
            {"VELM_SANDBOX_STORE", folder / "store"},
            {"VELM_SANDBOX_ACCOUNTS", velto::testing::sourceFolder() / "Sandbox/accounts.json"},
            {"VELM_SANDBOX_SCENARIO", ""},
            {"PW", "demo-password"}};
    }
    ~SandboxTest() override { std::filesystem::remove_all(folder); }

    void write(const std::filesystem::path& path, std::string_view content) const {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

    void useScenario(std::string_view text) {
        write(folder / "scenario", text);
        environment["VELM_SANDBOX_SCENARIO"] = folder / "scenario";
    }

    struct Media {
        std::string name, content, md5;
    };

    static std::string fileElement(const std::string& name,
                                   const std::string& size,
                                   const std::string& md5) {
        return "<asset type=\"full\"><data_file role=\"source\"><file_name>" + name +
               "</file_name><size>" + size + "</size><checksum type=\"md5\">" + md5 +
               "</checksum></data_file></asset>";
    }

    static std::string metadata(const std::string& inside) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<package version=\"film2.3\">"
               "<provider>DemoStudio</provider><assets media_type=\"Film\" vendor_id=\"V1\">" +
               inside + "</assets></package>\n";
    }

    /// A package of two small files, one empty.
    std::filesystem::path makePackage(
        const std::vector<Media>& files = {
            {"first.mov", "first file\n", "ef5940958c334bb7cfc4f3da6ad0f8c3"},
            {"empty.mov", "", "d41d8cd98f00b204e9800998ecf8427e"}}) const {
        const auto package = folder / "P.velmp";
        std::string elements;
        for (const auto& file : files) {
            write(package / file.name, file.content);
            elements += fileElement(file.name, std::to_string(file.content.size()), file.md5);
        }
        write(package / "metadata.xml", metadata(elements));
        return package;
    }

    /// One file of `mebibytes` made by the tools of the sandbox.
    std::filesystem::path makeLargePackage(unsigned mebibytes) const {
        const std::string media = folder / "large.mov";
        const auto tools = velto::testing::sourceFolder() / "Sandbox";
        EXPECT_EQ(
            Child(tools / "make-media", {media, std::to_string(mebibytes)}, {}).finish().exitCode,
            0);
        Child maker(tools / "make-package", {"--link", media, "LARGE", "DemoStudio"}, {});
        EXPECT_EQ(maker.finish().exitCode, 0) << maker.errors;
        return folder / "LARGE.velmp";
    }

    Strings arguments(const std::string& mode, const std::filesystem::path& package) const {
        return {"-m", mode,      "-u", "'demo@sandbox.invalid'",     "-vp",        "json",
                "-p", "@env:PW", "-f", "'" + package.string() + "'", "-indicator", "true",
                "-v", "eXtreme"};
    }

    Child tool(const Strings& words) const { return Child(toolProgram, words, environment); }
    Child finishedTool(const Strings& words) const {
        return Child(Child::ToItsEnd(), toolProgram, words, environment);
    }

    const std::filesystem::path toolProgram =
        velto::testing::sandboxFolder() / "velm/bin/VelmDrovan";

    std::filesystem::path folder;
    Environment environment;
};

}  // namespace sandbox_test
