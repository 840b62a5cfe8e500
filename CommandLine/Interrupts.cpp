#include <CommandLine/Interrupts.h>

#include <CommandLine/ExitCode.h>

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::chrono::milliseconds sameWish(250);

/// The dispositions and the mask that who started us may have left to us.
void takeOwnSignals() {
    // Ignored, it takes the end of each child from whoever waits for it.
    std::signal(SIGCHLD, SIG_DFL);
    // Who reads our output may leave, and a file may become larger than is allowed: an error of
    // the write, which must not end a delivery.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t none;
    ::sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

Interrupts::Interrupts() {
    takeOwnSignals();
    ::sigemptyset(&signals_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGTSTP}) {
        struct sigaction action {};
        // Ignored by who started us (nohup): then we ignore it, too.
        if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            ::sigaddset(&signals_, signal);
        }
    }
    // Goes on after a stop that could not be seen coming; and wakes the thread to its end.
    ::sigaddset(&signals_, SIGCONT);
    ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    thread_ = std::thread([this] { run(); });
}

Interrupts::~Interrupts() {
    {
        const std::lock_guard guard(mutex_);
        isEnding_ = true;
    }
    ::pthread_kill(thread_.native_handle(), SIGCONT);
    thread_.join();
}

void Interrupts::setHandler(Handler handler) {
    const std::lock_guard guard(mutex_);
    handler_ = std::move(handler);
    count_ = 0;
}

void Interrupts::setPauseHandler(PauseHandler handler) {
    const std::lock_guard guard(mutex_);
    pauseHandler_ = std::move(handler);
}

void Interrupts::setTidying(Tidying tidying) {
    const std::lock_guard guard(mutex_);
    tidying_ = std::move(tidying);
}

void Interrupts::run() {
    for (;;) {
        const int signal = ::sigwaitinfo(&signals_, nullptr);
        if (signal < 0) {
            if (errno == EINTR) {
                continue;
            }
            // A system that forbids the call: then the signals do what they do by themselves.
            ::pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
            return;
        }
        {
            const std::lock_guard guard(mutex_);
            if (isEnding_) {
                return;
            }
        }
        if (signal == SIGTSTP) {
            pause();
        } else if (signal == SIGCONT) {
            tellPause(false);
        } else {
            stopWanted();
        }
    }
}

void Interrupts::stopWanted() {
    const std::lock_guard guard(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (count_ != 0 && now - last_ < sameWish) {
        return;
    }
    last_ = now;
    if (handler_ && !handler_(++count_)) {
        return;
    }
    if (tidying_) {
        tidying_(true);
    }
    ::_exit(static_cast<int>(ExitCode::stopped));
}

void Interrupts::pause() {
    tellPause(true);
    const auto start = std::chrono::steady_clock::now();
    sigset_t stop;
    ::sigemptyset(&stop);
    ::sigaddset(&stop, SIGTSTP);
    // By the signal's own doing, which leaves a process alone that no shell would wake.
    ::raise(SIGTSTP);
    ::pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    ::pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    pausedTime_ = pausedTime_.load() + (std::chrono::steady_clock::now() - start);
    tellPause(false);
}

void Interrupts::tellPause(bool isPaused) {
    const std::lock_guard guard(mutex_);
    if (isPaused && tidying_) {
        tidying_(false);
    }
    if (pauseHandler_) {
        pauseHandler_(isPaused);
    }
}

}  // namespace velto::cli
