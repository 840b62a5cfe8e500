// Prints what it was started with, one "key: value" line each.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

int main(int argc, char** argv, char** environment) {
    for (int i = 1; i < argc; ++i) {
        std::printf("argument: %s\n", argv[i]);
    }
    for (char** variable = environment; *variable != nullptr; ++variable) {
        std::printf("variable: %s\n", *variable);
    }
    char* folder = getcwd(nullptr, 0);
    std::printf("folder: %s\n", folder);
    std::free(folder);
    std::printf("leads its group: %s\n", getpgrp() == getpid() ? "yes" : "no");

    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    int unusual = 0;
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        const bool isKnown = sigaction(number, nullptr, &action) == 0;
        if (isKnown && (action.sa_handler != SIG_DFL || sigismember(&blocked, number) == 1)) {
            ++unusual;
        }
    }
    std::printf("signals that are blocked or ignored: %d\n", unusual);

    pollfd input{STDIN_FILENO, POLLIN, 0};
    const bool isSilent = poll(&input, 1, 0) == 0;
    char byte = 0;
    std::printf("input: %s\n", isSilent ? "silent" : read(0, &byte, 1) == 0 ? "ended" : "bytes");

    int descriptors = 0;
    DIR* open = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(open)) {
        descriptors += entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(open) ? 1 : 0;
    }
    closedir(open);
    std::printf("descriptors: %d\n", descriptors);
}
