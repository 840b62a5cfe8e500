#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

namespace velto::cli {

/// The wishes of the user: to stop (SIGINT, SIGTERM, SIGHUP) and to pause (SIGTSTP), taken by a
/// thread of their own, which needs no descriptor and waits for nobody. Made before any other
/// thread, since all threads must leave those signals to it.
class Interrupts {
public:
    /// `count` is 1 for the first wish; whether the program is to end at once. On the thread of the
    /// signals: one that keeps it waiting keeps it from the next wish.
    using Handler = std::function<bool(unsigned count)>;
    /// Before the process pauses and when it goes on, then maybe more than once. On the thread of
    /// the signals.
    using PauseHandler = std::function<void(bool isPaused)>;
    using Tidying = std::function<void(bool isEnd)>;

    /// Throws std::system_error when the system gives no thread.
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Counts from here on, signals that come together as one (a program that ends its children
    /// may send one to each and one to all); returns when no handler runs any more. Without a
    /// handler a wish ends the program at once.
    void setHandler(Handler handler);
    void setPauseHandler(PauseHandler handler);
    /// Called before the process pauses, and before it is ended at once; returns when the one that
    /// was set before does not run any more.
    void setTidying(Tidying tidying);
    /// How long the process has been paused in all.
    std::chrono::steady_clock::duration pausedTime() const { return pausedTime_; }

private:
    void run();
    void stopWanted();
    void pause();
    void tellPause(bool isPaused);

    sigset_t signals_;
    std::mutex mutex_;
    Handler handler_;
    PauseHandler pauseHandler_;
    Tidying tidying_;
    unsigned count_ = 0;
    std::chrono::steady_clock::time_point last_;
    std::atomic<std::chrono::steady_clock::duration> pausedTime_{};
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace velto::cli
