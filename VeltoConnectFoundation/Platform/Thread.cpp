#include <VeltoConnectFoundation/Platform/Thread.h>

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace velto {

namespace {

/// A new thread inherits the mask, so it never runs a moment without it.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGPROF}) {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

}  // namespace

void startThread(const char* name, std::function<void()> body) {
    const SignalsBlocked blocked;
    std::thread([name, body = std::move(body)]() noexcept {
        pthread_setname_np(pthread_self(), name);
        body();
    }).detach();
}

std::uint64_t currentThreadNumber() noexcept {
    static std::atomic<std::uint64_t> last{0};
    thread_local const std::uint64_t number = ++last;
    return number;
}

}  // namespace velto
