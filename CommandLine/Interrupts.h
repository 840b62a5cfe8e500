#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

namespace velto::cli {

/// The wishes of the user to stop: SIGINT, SIGTERM and SIGHUP, taken by a thread of their own.
/// Made before any other thread, since all threads must leave those signals to it.
class Interrupts {
public:
    /// `count` is 1 for the first wish; on the thread of the signals.
    using Handler = std::function<void(unsigned count)>;

    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// Counts from here on, signals that come together as one (a program that ends its children
    /// may send one to each and one to all); returns when no handler runs any more. Without a
    /// handler a wish ends the program at once.
    void setHandler(Handler handler);

private:
    void run();

    int signals_ = -1;
    int end_ = -1;
    std::mutex mutex_;
    Handler handler_;
    unsigned count_ = 0;
    std::chrono::steady_clock::time_point last_;
    std::thread thread_;
};

}  // namespace velto::cli
