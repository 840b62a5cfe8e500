#include <VeltoConnectFoundation/Platform/Queue.h>

#include <VeltoConnectFoundation/Platform/ContextMailbox.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/MainThread.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <glib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <limits>
#include <utility>

namespace velto {

namespace {

constexpr Seconds longestSilence{5};
constexpr std::string_view silenceReport =
    "Work for the main thread has waited for 5 seconds, and no main loop has run it. Run GLib's "
    "main loop on the main thread, or call velto::MainQueue::runOnOwnThread() before anything else "
    "of the library.";

/// A synchronous call that waits for its turn. Guarded by the queue's mutex.
struct Call {
    enum class Phase { waiting, running, ended, abandoned };

    std::function<void()> work;
    Phase phase = Phase::waiting;
    std::exception_ptr failure;
};

bool ownsDefaultContext() {
    GMainContext* const context = defaultContext();
    return context != nullptr && g_main_context_is_owner(context) != FALSE;
}

}  // namespace

/// The home is the default context's mailbox or a loop of our own. Work that has no home yet, since
/// the system has no descriptor or no thread for it, waits until the queue's next use finds one.
class MainQueue::State {
public:
    State() : mailbox_([this](const std::function<void()>& work) { perform(work); }) {
        // Tells us that somebody runs the default context, before there is any work.
        mailbox_.knock();
        const MutexGuard guard(mutex_);
        settle();
    }

    void moveToOwnThread();
    void async(std::function<void()> work);
    bool sync(const std::function<void()>& work, const std::function<bool()>& cancelled);
    void wakeWaiters();

    bool isCurrent() const {
        const std::uint64_t thread = currentThreadNumber();
        return mainThread_.load() == thread || inlineThread_.load() == thread ||
               (!hasOwnThread() && ownsDefaultContext());
    }

    void settleUnlessDone() {
        if (!isSettled_.load()) {
            const MutexGuard guard(mutex_);
            settle();
        }
    }

    bool hasOwnThread() const { return hasOwnThread_.load(); }

private:
    void settle() VELTO_REQUIRES(mutex_);
    void perform(const std::function<void()>& work) noexcept;
    bool performInline(const std::function<void()>& work);
    bool performInContext(Call& call);
    void perform(Call& call);
    void watchForSilence();

    /// Held by whoever stands in for a main thread that has not shown up yet, so that the queue's
    /// work never runs twice at once; no other is taken inside that waits for it.
    Lock standIn_;
    std::atomic<std::uint64_t> inlineThread_{0};

    std::atomic<std::uint64_t> mainThread_{0};  ///< Who performed last; 0 is nobody yet.
    std::atomic<bool> hasOwnThread_{false};
    std::atomic<bool> isDispatched_{false};
    std::atomic<bool> isWatched_{false};

    ContextMailbox mailbox_;  ///< Of the default context.

    Mutex mutex_;
    std::condition_variable changed_;
    bool isUsed_ VELTO_GUARDED_BY(mutex_) = false;
    std::atomic<bool> isSettled_{false};  ///< Changed under the mutex.
    bool isShortageTold_ VELTO_GUARDED_BY(mutex_) = false;
    std::uint64_t wakeCount_ VELTO_GUARDED_BY(mutex_) = 1;
    std::shared_ptr<RunLoop> ownLoop_ VELTO_GUARDED_BY(mutex_);
};

void MainQueue::State::settle() {
    if (isSettled_) {
        return;
    }
    if (!hasOwnThread()) {
        if (GMainContext* const context = defaultContext()) {
            mailbox_.attach(context, ContextMailbox::Deliverer::whoeverRunsTheContext);
            isSettled_ = true;
        }
        return;
    }
    try {
        startThread("velto-main", [this, loop = ownLoop_] {
            RunLoop::adopt(loop);
            mainThread_.store(currentThreadNumber());
            {
                const Guard guard(standIn_);
                isDispatched_.store(true);
            }
            for (;;) {
                try {
                    loop->run(Seconds(std::numeric_limits<double>::infinity()));
                } catch (...) {
                    platformLogUncaught("the main thread's loop");
                }
            }
        });
        isSettled_ = true;
    } catch (...) {
        if (!std::exchange(isShortageTold_, true)) {
            platformLogUncaught("starting the main queue's thread");
        }
    }
}

void MainQueue::State::moveToOwnThread() {
    const MutexGuard guard(mutex_);
    if (hasOwnThread()) {
        return;
    }
    if (isUsed_) {
        throw Exception(InternalInconsistencyException,
                        "The main queue was used before runOnOwnThread() was called.");
    }
    ownLoop_ = RunLoop::makeForNewThread();
    mailbox_.close();
    hasOwnThread_.store(true);
    isSettled_ = false;
    settle();
    isDispatched_.store(isSettled_);
}

void MainQueue::State::perform(const std::function<void()>& work) noexcept {
    if (!isDispatched_.load()) {
        const Guard guard(standIn_);
        isDispatched_.store(true);
    }
    mainThread_.store(currentThreadNumber());
    try {
        if (work) {
            work();
        }
    } catch (...) {
        platformLogUncaught("the main queue");
    }
}

void MainQueue::State::async(std::function<void()> work) {
    {
        const MutexGuard guard(mutex_);
        isUsed_ = true;
        if (ownLoop_ == nullptr) {
            mailbox_.post(std::move(work));
        } else {
            ownLoop_->perform([this, work = std::move(work)] { perform(work); });
        }
        settle();
    }
    watchForSilence();
}

/// False when there is a main thread after all.
bool MainQueue::State::performInline(const std::function<void()>& work) {
    const Guard guard(standIn_);
    if (isDispatched_.load()) {
        return false;
    }
    struct Scope {
        std::atomic<std::uint64_t>& thread;
        const std::uint64_t outer = thread.exchange(currentThreadNumber());
        ~Scope() { thread.store(outer); }
    } scope{inlineThread_};
    work();
    return true;
}

/// On the default context's thread, while nobody else runs that: true, and the call has ended, if
/// it was not under way.
bool MainQueue::State::performInContext(Call& call) {
    GMainContext* const context = defaultContext();
    if (context == nullptr || g_main_context_acquire(context) == FALSE) {
        return false;
    }
    const Finally released([&] { g_main_context_release(context); });
    mainThread_.store(currentThreadNumber());
    perform(call);
    return true;
}

void MainQueue::State::perform(Call& call) {
    {
        const MutexGuard guard(mutex_);
        if (call.phase != Call::Phase::waiting) {
            return;
        }
        call.phase = Call::Phase::running;
    }
    try {
        call.work();
    } catch (...) {
        call.failure = std::current_exception();
    }
    const MutexGuard guard(mutex_);
    call.phase = Call::Phase::ended;
    changed_.notify_all();
}

bool MainQueue::State::sync(const std::function<void()>& work,
                            const std::function<bool()>& cancelled) {
    if (isCurrent()) {
        work();
        return true;
    }
    {
        const MutexGuard guard(mutex_);
        isUsed_ = true;
        settle();
    }
    if (!isDispatched_.load() && performInline(work)) {
        return true;
    }
    if (cancelled && cancelled()) {
        return false;
    }
    const auto call = std::make_shared<Call>();
    call->work = work;
    // Nobody else may come to run the default context.
    const bool mayPerform = !hasOwnThread() && isThreadOfDefaultContext();
    if (!mayPerform || !performInContext(*call)) {
        async([this, call] { perform(*call); });
    }

    MutexGuard guard(mutex_);
    for (std::uint64_t wakeCount = 0; call->phase != Call::Phase::ended;) {
        if (wakeCount == wakeCount_ || !cancelled) {
            if (!mayPerform) {
                guard.wait(changed_);
            } else if (!guard.waitUntil(changed_,
                                        std::chrono::steady_clock::now() + contextSlice)) {
                guard.unlock();
                performInContext(*call);
                guard.lock();
            }
            continue;
        }
        wakeCount = wakeCount_;
        guard.unlock();
        const bool givesUp = cancelled();
        guard.lock();
        if (givesUp && call->phase != Call::Phase::ended) {
            if (call->phase == Call::Phase::waiting) {
                call->phase = Call::Phase::abandoned;
            }
            return false;
        }
    }
    guard.unlock();
    if (call->failure) {
        std::rethrow_exception(call->failure);
    }
    return true;
}

void MainQueue::State::wakeWaiters() {
    const MutexGuard guard(mutex_);
    ++wakeCount_;
    changed_.notify_all();
}

void MainQueue::State::watchForSilence() {
    if (!isDispatched_.load() && !isWatched_.exchange(true)) {
        const IOThread::Token timer = IOThread::shared().addTimer(longestSilence, [this] {
            {
                const MutexGuard guard(mutex_);
                settle();
            }
            if (!isDispatched_.load()) {
                platformLog(2, silenceReport);
            }
        });
        isWatched_.store(timer != 0);
    }
}

MainQueue::MainQueue() : state_(new State) {
}
MainQueue::~MainQueue() = default;

MainQueue& MainQueue::shared() {
    static auto* const queue = new MainQueue;
    return *queue;
}

void MainQueue::runOnOwnThread() {
    shared().state_->moveToOwnThread();
}

void MainQueue::async(std::function<void()> work) {
    state_->async(std::move(work));
}

void MainQueue::sync(const std::function<void()>& work) {
    state_->sync(work, nullptr);
}

bool MainQueue::sync(const std::function<void()>& work, const std::function<bool()>& cancelled) {
    return state_->sync(work, cancelled);
}

void MainQueue::wakeWaiters() {
    state_->wakeWaiters();
}

bool MainQueue::isCurrent() const {
    return state_->isCurrent();
}

bool MainQueue::hasOwnThread() const {
    return state_->hasOwnThread();
}

_GMainContext* defaultContext() {
    static std::atomic<GMainContext*> known{nullptr};
    GMainContext* context = known.load();
    if (context == nullptr && FileDescriptor(eventfd(0, EFD_CLOEXEC))) {
        const StandardDescriptorsTaken taken;
        context = g_main_context_default();
        known.store(context);
    }
    return context;
}

bool isThreadOfDefaultContext() {
    return ownsDefaultContext() || (gettid() == getpid() && !MainQueue::shared().hasOwnThread());
}

void settleMainQueue() {
    MainQueue::shared().state_->settleUnlessDone();
}

}  // namespace velto
