// Closes both outputs at once and lives on; ends with 7 on the interrupt signal.
#include <csignal>

#include <unistd.h>

int main() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    static_cast<void>(!write(1, "closing\n", 8));
    close(1);
    close(2);
    int received = 0;
    sigwait(&signals, &received);
    return 7;
}
