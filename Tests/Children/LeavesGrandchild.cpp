// Ends at once, and leaves a process behind that holds both pipes: its number is printed. With
// "flood" that process never stops writing.
#include <csignal>
#include <cstdio>
#include <string_view>

#include <unistd.h>

int main(int argc, char** argv) {
    const pid_t grandchild = fork();
    if (grandchild != 0) {
        std::printf("%d\n", static_cast<int>(grandchild));
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const char text[4096] = "flood";
    while (argc > 1 && std::string_view(argv[1]) == "flood") {
        if (write(1, text, sizeof text) < 0) {
            break;
        }
    }
    for (;;) {
        pause();
    }
}
