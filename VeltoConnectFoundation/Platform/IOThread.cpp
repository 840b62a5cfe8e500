#include <VeltoConnectFoundation/Platform/IOThread.h>

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <system_error>
#include <unordered_map>
#include <utility>

namespace velto {

namespace {

thread_local bool isIOThread = false;

}  // namespace

class IOThread::State {
public:
    State();

    Token addDescriptor(int fd, std::uint32_t events, std::function<void()> callback);
    Token addTimer(Seconds after, std::function<void()> callback);
    void remove(Token token);
    void removeCurrent() { remove(current()); }

private:
    using Time = std::chrono::steady_clock;

    struct Source {
        int fd = -1;
        Time::time_point due;
        std::function<void()> callback;
    };

    Token current() {
        const MutexGuard guard(mutex_);
        return underWay_;
    }

    void work();
    int timeOut();
    void callDueTimers();
    void call(Token token);
    void take(std::unordered_map<Token, std::shared_ptr<Source>>::iterator found)
        VELTO_REQUIRES(mutex_);
    void interrupt() const { eventfd_write(interruption_, 1); }

    const int epoll_;
    const int interruption_;  ///< An eventfd, under token 0.
    Mutex mutex_;
    std::condition_variable callEnded_;
    Token lastToken_ VELTO_GUARDED_BY(mutex_) = 0;
    Token underWay_ VELTO_GUARDED_BY(mutex_) = 0;
    std::unordered_map<Token, std::shared_ptr<Source>> sources_ VELTO_GUARDED_BY(mutex_);
    std::set<std::pair<Time::time_point, Token>> timers_ VELTO_GUARDED_BY(mutex_);
};

IOThread::State::State()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), interruption_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event event{EPOLLIN, {.u64 = 0}};
    if (epoll_ < 0 || interruption_ < 0 ||
        epoll_ctl(epoll_, EPOLL_CTL_ADD, interruption_, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "the I/O thread");
    }
    startThread("velto-io", [this] { work(); });
}

IOThread::Token IOThread::State::addDescriptor(int fd,
                                               std::uint32_t events,
                                               std::function<void()> callback) {
    auto source = std::make_shared<Source>();
    source->fd = fd;
    source->callback = std::move(callback);
    const MutexGuard guard(mutex_);
    const Token token = ++lastToken_;
    epoll_event event{events, {.u64 = token}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) {
        return 0;
    }
    sources_.emplace(token, std::move(source));
    return token;
}

IOThread::Token IOThread::State::addTimer(Seconds after, std::function<void()> callback) {
    // A century is out of reach, and far from overflowing.
    const Seconds wait = std::clamp(after, Seconds(0), Seconds(3.2e9));
    auto source = std::make_shared<Source>();
    source->due = Time::now() + std::chrono::ceil<Time::duration>(wait);
    source->callback = std::move(callback);
    const MutexGuard guard(mutex_);
    const Token token = ++lastToken_;
    const auto place = timers_.emplace(source->due, token).first;
    sources_.emplace(token, std::move(source));
    if (place == timers_.begin()) {
        interrupt();
    }
    return token;
}

void IOThread::State::remove(Token token) {
    std::shared_ptr<Source> removed;  // Its callback is destroyed with no lock held.
    MutexGuard guard(mutex_);
    if (const auto found = sources_.find(token); found != sources_.end()) {
        removed = found->second;
        take(found);
    }
    if (!isIOThread && token != 0) {
        while (underWay_ == token) {
            guard.wait(callEnded_);
        }
    }
    guard.unlock();
}

void IOThread::State::take(std::unordered_map<Token, std::shared_ptr<Source>>::iterator found) {
    const Source& source = *found->second;
    if (source.fd >= 0) {
        epoll_ctl(epoll_, EPOLL_CTL_DEL, source.fd, nullptr);
    } else {
        timers_.erase({source.due, found->first});
    }
    sources_.erase(found);
}

/// In milliseconds, rounded up so that no timer is looked at too early.
int IOThread::State::timeOut() {
    const MutexGuard guard(mutex_);
    if (timers_.empty()) {
        return -1;
    }
    using std::chrono::milliseconds;
    const auto wait = std::chrono::ceil<milliseconds>(timers_.begin()->first - Time::now());
    return static_cast<int>(
        std::clamp(wait, milliseconds(0), milliseconds(std::chrono::hours(24))).count());
}

void IOThread::State::call(Token token) {
    std::shared_ptr<Source> source;
    {
        const MutexGuard guard(mutex_);
        const auto found = sources_.find(token);
        if (found == sources_.end()) {
            return;
        }
        source = found->second;
        underWay_ = token;
        if (source->fd < 0) {
            take(found);
        }
    }
    try {
        source->callback();
    } catch (...) {
        platformLogUncaught("the I/O thread");
    }
    source.reset();
    const MutexGuard guard(mutex_);
    underWay_ = 0;
    callEnded_.notify_all();
}

void IOThread::State::callDueTimers() {
    const Time::time_point now = Time::now();
    for (;;) {
        Token token = 0;
        {
            const MutexGuard guard(mutex_);
            if (timers_.empty() || timers_.begin()->first > now) {
                return;
            }
            token = timers_.begin()->second;
        }
        call(token);
    }
}

void IOThread::State::work() {
    isIOThread = true;
    std::array<epoll_event, 64> events;
    for (;;) {
        const int count =
            epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), timeOut());
        for (int index = 0; index < count; ++index) {
            if (const Token token = events[static_cast<std::size_t>(index)].data.u64; token != 0) {
                call(token);
            } else {
                eventfd_t ignored;
                eventfd_read(interruption_, &ignored);
            }
        }
        callDueTimers();
    }
}

IOThread::IOThread() : state_(new State) {
}

IOThread& IOThread::shared() {
    static auto* const thread = new IOThread;
    return *thread;
}

IOThread::Token IOThread::addReadable(int fd, std::function<void()> callback) {
    return state_->addDescriptor(fd, EPOLLIN | EPOLLRDHUP, std::move(callback));
}

IOThread::Token IOThread::addWritable(int fd, std::function<void()> callback) {
    return state_->addDescriptor(fd, EPOLLOUT, std::move(callback));
}

IOThread::Token IOThread::addTimer(Seconds after, std::function<void()> callback) {
    return state_->addTimer(after, std::move(callback));
}

void IOThread::remove(Token token) {
    state_->remove(token);
}

void IOThread::removeCurrent() {
    state_->removeCurrent();
}

bool IOThread::isCurrent() const {
    return isIOThread;
}

}  // namespace velto
