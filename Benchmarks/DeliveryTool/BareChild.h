#pragma once

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <fcntl.h>

/// The peer of both benchmarks: a child by posix_spawn with two pipes, read by blocking calls.
class BareChild {
public:
    BareChild(const std::string& path, const std::string& argument) {
        int out[2];
        int err[2];
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
        std::string program = path;
        std::string only = argument;
        char* const arguments[] = {program.data(), only.data(), nullptr};
        if (posix_spawn(&child_, path.c_str(), &actions, nullptr, arguments, environ) != 0) {
            std::abort();
        }
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        close(err[1]);
        output = out[0];
        error = err[0];
    }
    ~BareChild() {
        close(output);
        close(error);
        int status = 0;
        waitpid(child_, &status, 0);
    }
    BareChild(const BareChild&) = delete;
    BareChild& operator=(const BareChild&) = delete;

    int output = -1;
    int error = -1;

private:
    pid_t child_ = 0;
};

/// The program built from Tests/Children/`name`.cpp, beside this benchmark's folder.
inline std::string childProgram(const std::string& name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
           "tests/children" / name;
}
