#include <VeltoConnectFoundation/Platform/IOThread.h>

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
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
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

namespace velto {

namespace {

constexpr std::chrono::milliseconds pauseWithoutMemory{10};

thread_local bool isIOThread = false;

}  // namespace

class IOThread::State {
public:
    State();

    Token addDescriptor(int fd, std::uint32_t events, std::function<void()> callback);
    Token addTimer(Seconds after, std::function<void()> callback);
    void remove(Token token);
    void watch(Token token, int operation) noexcept;
    void removeCurrent() { remove(current()); }

private:
    using Time = std::chrono::steady_clock;

    struct Source {
        int fd = -1;
        std::uint32_t events = 0;
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
    void postpone(Source& source, Token token) VELTO_REQUIRES(mutex_);
    void take(std::unordered_map<Token, std::shared_ptr<Source>>::iterator found)
        VELTO_REQUIRES(mutex_);
    void interrupt() const { eventfd_write(interruption_.number(), 1); }

    const FileDescriptor epoll_;
    const FileDescriptor interruption_;  ///< An eventfd, under token 0.
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
    if (!epoll_ || !interruption_ ||
        epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, interruption_.number(), &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "the I/O thread");
    }
    startThread("velto-io", [this] { work(); });
}

IOThread::Token IOThread::State::addDescriptor(int fd,
                                               std::uint32_t events,
                                               std::function<void()> callback) {
    auto source = std::make_shared<Source>();
    source->fd = fd;
    source->events = events;
    source->callback = std::move(callback);
    const MutexGuard guard(mutex_);
    const Token token = ++lastToken_;
    const auto added = sources_.emplace(token, std::move(source)).first;
    epoll_event event{events, {.u64 = token}};
    if (epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, fd, &event) != 0) {
        sources_.erase(added);
        return 0;
    }
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
    try {
        sources_.emplace(token, std::move(source));
    } catch (...) {
        timers_.erase(place);
        throw;
    }
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

void IOThread::State::watch(Token token, int operation) noexcept {
    const MutexGuard guard(mutex_);
    if (const auto found = sources_.find(token); found != sources_.end()) {
        epoll_event event{found->second->events, {.u64 = token}};
        epoll_ctl(epoll_.number(), operation, found->second->fd, &event);
    }
}

void IOThread::State::take(std::unordered_map<Token, std::shared_ptr<Source>>::iterator found) {
    const Source& source = *found->second;
    if (source.fd >= 0) {
        epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, source.fd, nullptr);
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
    }
    bool lacksMemory = false;
    try {
        source->callback();
    } catch (const std::bad_alloc&) {
        lacksMemory = true;
    } catch (...) {
        platformLogUncaught("the I/O thread");
    }
    const bool isTimer = source->fd < 0;
    if (lacksMemory && !isTimer) {
        std::this_thread::sleep_for(pauseWithoutMemory);  // It still has something to read.
    }
    MutexGuard guard(mutex_);
    if (const auto found = sources_.find(token); isTimer && found != sources_.end()) {
        lacksMemory ? postpone(*source, token) : take(found);
    }
    guard.unlock();
    source.reset();  // Its callback is destroyed with no lock held.
    guard.lock();
    underWay_ = 0;
    callEnded_.notify_all();
}

void IOThread::State::postpone(Source& source, Token token) {
    auto place = timers_.extract({source.due, token});
    source.due = place.value().first = Time::now() + pauseWithoutMemory;
    timers_.insert(std::move(place));
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
            epoll_wait(epoll_.number(), events.data(), static_cast<int>(events.size()), timeOut());
        for (int index = 0; index < count; ++index) {
            if (const Token token = events[static_cast<std::size_t>(index)].data.u64; token != 0) {
                call(token);
            } else {
                eventfd_t ignored;
                eventfd_read(interruption_.number(), &ignored);
            }
        }
        callDueTimers();
    }
}

IOThread& IOThread::shared() {
    static auto* const thread = new IOThread;
    return *thread;
}

IOThread::State* IOThread::startedState() {
    State* state = state_.load(std::memory_order_acquire);
    if (state == nullptr) {
        const MutexGuard guard(starting_);
        state = state_.load(std::memory_order_acquire);
        if (state == nullptr) {
            try {
                state = new State;
                state_.store(state, std::memory_order_release);
            } catch (const std::system_error& failure) {
                errno = failure.code().value();
            } catch (const std::bad_alloc&) {
                errno = ENOMEM;
            }
        }
    }
    return state;
}

int IOThread::start() {
    return startedState() != nullptr ? 0 : errno;
}

IOThread::Token IOThread::addReadable(int fd, std::function<void()> callback) {
    State* const state = startedState();
    return state == nullptr ? 0
                            : state->addDescriptor(fd, EPOLLIN | EPOLLRDHUP, std::move(callback));
}

IOThread::Token IOThread::addWritable(int fd, std::function<void()> callback) {
    State* const state = startedState();
    return state == nullptr ? 0 : state->addDescriptor(fd, EPOLLOUT, std::move(callback));
}

IOThread::Token IOThread::addTimer(Seconds after, std::function<void()> callback) {
    State* const state = startedState();
    return state == nullptr ? 0 : state->addTimer(after, std::move(callback));
}

void IOThread::remove(Token token) {
    if (State* const state = state_.load(std::memory_order_acquire)) {
        state->remove(token);
    }
}

void IOThread::pause(Token token) noexcept {
    if (State* const state = state_.load(std::memory_order_acquire)) {
        state->watch(token, EPOLL_CTL_DEL);
    }
}

void IOThread::resume(Token token) noexcept {
    if (State* const state = state_.load(std::memory_order_acquire)) {
        state->watch(token, EPOLL_CTL_ADD);
    }
}

void IOThread::removeCurrent() {
    if (isIOThread) {
        state_.load(std::memory_order_acquire)->removeCurrent();
    }
}

bool IOThread::isCurrent() const {
    return isIOThread;
}

}  // namespace velto
