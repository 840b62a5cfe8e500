#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

/// Runs a program without its output; the seconds of processor time it took, none when it failed.
inline std::optional<double> runProgram(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = -1;
    rusage usage{};
    const bool done = posix_spawnp(&child, arguments.front(), &actions, nullptr, arguments.data(),
                                   environ) == 0 &&
                      wait4(child, &status, 0, &usage) == child;
    posix_spawn_file_actions_destroy(&actions);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return done && status == 0 ? std::optional(seconds(usage.ru_utime) + seconds(usage.ru_stime))
                               : std::nullopt;
}
