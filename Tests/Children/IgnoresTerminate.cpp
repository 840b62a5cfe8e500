// Says "ready" once it ignores the terminate signal, and never ends by itself. With "family", a
// child of its own does that, and it obeys the signal itself.
#include <csignal>
#include <cstdio>
#include <string_view>

#include <unistd.h>

int main(int argc, char** argv) {
    const bool isFamily = argc > 1 && std::string_view(argv[1]) == "family";
    if (!isFamily || fork() == 0) {
        std::signal(SIGTERM, SIG_IGN);
        std::printf("ready %d\n", static_cast<int>(getpid()));
        std::fflush(stdout);
    }
    for (;;) {
        pause();
    }
}
