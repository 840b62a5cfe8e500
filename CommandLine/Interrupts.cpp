#include <CommandLine/Interrupts.h>

#include <CommandLine/ExitCode.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::chrono::milliseconds sameWish(250);

}  // namespace

Interrupts::Interrupts() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        // Ignored by who started us (nohup): then we ignore it, too.
        if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            sigaddset(&set, signal);
        }
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // Who reads our output may leave; that must not end a delivery.
    std::signal(SIGPIPE, SIG_IGN);
    signals_ = ::signalfd(-1, &set, SFD_CLOEXEC);
    end_ = ::eventfd(0, EFD_CLOEXEC);
    thread_ = std::thread([this] { run(); });
}

Interrupts::~Interrupts() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t count = ::write(end_, &one, sizeof one);
    thread_.join();
    ::close(signals_);
    ::close(end_);
}

void Interrupts::setHandler(Handler handler) {
    const std::lock_guard guard(mutex_);
    handler_ = std::move(handler);
    count_ = 0;
}

void Interrupts::run() {
    pollfd sources[] = {{signals_, POLLIN, 0}, {end_, POLLIN, 0}};
    for (;;) {
        ::poll(sources, 2, -1);
        if (sources[1].revents != 0) {
            return;
        }
        signalfd_siginfo signal{};
        if (::read(signals_, &signal, sizeof signal) != sizeof signal) {
            continue;
        }
        const std::lock_guard guard(mutex_);
        const auto now = std::chrono::steady_clock::now();
        if (count_ != 0 && now - last_ < sameWish) {
            continue;
        }
        last_ = now;
        if (!handler_) {
            ::_exit(static_cast<int>(ExitCode::stopped));
        }
        handler_(++count_);
    }
}

}  // namespace velto::cli
