#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <VeltoConnectFoundation/Platform/ContextMailbox.h>
#include <VeltoConnectFoundation/Platform/MainThread.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <glib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

namespace velto {

/// Its thread waits for work by itself, which needs no descriptor. A context that the thread may
/// run (the host's for this thread, the default one on the main thread) delivers the work too, and
/// is run here meanwhile.
class RunLoop::State {
public:
    State() : mailbox_([this](const std::function<void()>& work) { perform(work); }) {}
    ~State() {
        if (context_ != nullptr) {
            g_main_context_unref(context_);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// On the loop's thread, once it has one: looks for the context.
    void adopt() {
        GMainContext* const ofHost = g_main_context_get_thread_default();
        mayRunDefaultContext_ = ofHost == nullptr && isThreadOfDefaultContext();
        if (ofHost != nullptr) {
            attach(ofHost);
        } else {
            attachDefaultContext();
        }
    }

    bool run(Seconds limit, const std::function<bool()>& done);

    /// The thread ends.
    void close() { mailbox_.close(); }

    void wake() {
        isWoken_.store(true);
        mailbox_.knock();
    }

    void post(std::function<void()> work) {
        if (work) {
            mailbox_.post(std::move(work));
        } else {
            mailbox_.knock();
        }
    }

private:
    void attach(GMainContext* context) {
        context_ = g_main_context_ref(context);
        mailbox_.attach(context, ContextMailbox::Deliverer::thisThread);
    }

    /// Later, where there is no descriptor for it just now.
    void attachDefaultContext() {
        if (mayRunDefaultContext_ && context_ == nullptr) {
            if (GMainContext* const context = defaultContext()) {
                attach(context);
            }
        }
    }

    /// Unless another thread runs it.
    bool acquiresContext() const {
        if (mayRunDefaultContext_) {
            settleMainQueue();
        }
        return context_ != nullptr && g_main_context_acquire(context_) != FALSE;
    }

    /// Until work comes, or the other thread may have stopped.
    void deliverNext(std::optional<std::chrono::steady_clock::time_point> end) {
        if (context_ != nullptr) {
            const auto slice = std::chrono::steady_clock::now() + contextSlice;
            end = std::min(end.value_or(slice), slice);
        }
        mailbox_.deliverNext(end);
    }

    void perform(const std::function<void()>& work) noexcept {
        try {
            if (work) {
                work();
            }
        } catch (...) {
            if (depth_ > 0 && !failure_) {
                failure_ = std::current_exception();
            } else {
                // The host runs this context itself: there is no run call to leave.
                platformLogUncaught("a run loop");
            }
        }
    }

    GMainContext* context_ = nullptr;
    bool mayRunDefaultContext_ = false;
    std::atomic<bool> isWoken_{false};
    int depth_ = 0;
    std::exception_ptr failure_;
    ContextMailbox mailbox_;
};

namespace {

/// The end of a run.
class Deadline {
    using Monotonic = std::chrono::steady_clock;  // GLib's too.

public:
    explicit Deadline(Seconds limit) {
        // Beyond a year there is none.
        if (limit < Seconds(366.0 * 86400)) {
            end_ = Monotonic::now() +
                   std::chrono::ceil<Monotonic::duration>(std::max(limit, Seconds(0)));
        }
    }
    ~Deadline() {
        if (source_ != nullptr) {
            g_source_destroy(source_);
            g_source_unref(source_);
        }
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    std::optional<Monotonic::time_point> end() const { return end_; }
    bool hasPassed() const { return end_ && Monotonic::now() >= *end_; }

    /// Makes a context turn then.
    void attach(GMainContext* context) {
        if (end_ && source_ == nullptr) {
            source_ = g_source_new(&functions, sizeof(GSource));
            g_source_set_ready_time(
                source_,
                std::chrono::ceil<std::chrono::microseconds>(end_->time_since_epoch()).count());
            g_source_attach(source_, context);
        }
    }

private:
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        g_source_set_ready_time(source, -1);
        return G_SOURCE_CONTINUE;
    }

    static inline GSourceFuncs functions{nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    std::optional<Monotonic::time_point> end_;
    GSource* source_ = nullptr;
};

class Depth {
public:
    explicit Depth(int& depth) : depth_(depth) { ++depth_; }
    ~Depth() { --depth_; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

private:
    int& depth_;
};

/// Behind the end of the thread's own objects, when those of the host's that end later may still
/// ask.
thread_local bool hasThreadEnded = false;

/// Closes the loop with its thread; others may still hold on to it.
struct LoopOfThread {
    std::shared_ptr<RunLoop> loop;
    std::shared_ptr<RunLoop::State> state;
    ~LoopOfThread() {
        hasThreadEnded = true;
        if (state != nullptr) {
            state->close();
        }
    }
};

thread_local LoopOfThread loopOfThread;

}  // namespace

bool RunLoop::State::run(Seconds limit, const std::function<bool()>& done) {
    if (done && done()) {
        return true;
    }
    const Depth depth(depth_);
    Deadline deadline(limit);
    attachDefaultContext();
    while (!isWoken_.exchange(false)) {
        if (acquiresContext()) {
            deadline.attach(context_);
            g_main_context_iteration(context_, TRUE);
            g_main_context_release(context_);
        } else {
            deliverNext(deadline.end());
        }
        if (failure_) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
        if (done && done()) {
            return true;
        }
        if (deadline.hasPassed()) {
            break;
        }
    }
    return false;
}

RunLoop::RunLoop(std::shared_ptr<State> state) : state_(std::move(state)) {
}
RunLoop::~RunLoop() = default;

std::shared_ptr<RunLoop> RunLoop::makeForNewThread() {
    return std::shared_ptr<RunLoop>(new RunLoop(std::make_shared<State>()));
}

void RunLoop::adopt(std::shared_ptr<RunLoop> loop) {
    loop->state_->adopt();
    loopOfThread.state = loop->state_;
    loopOfThread.loop = std::move(loop);
}

std::shared_ptr<RunLoop> RunLoop::current() {
    if (hasThreadEnded) {
        return makeForNewThread();
    }
    if (loopOfThread.loop == nullptr) {
        adopt(makeForNewThread());
    }
    return loopOfThread.loop;
}

bool RunLoop::run(Seconds limit, const std::function<bool()>& done) {
    return state_->run(limit, done);
}

void RunLoop::wake() {
    state_->wake();
}

void RunLoop::perform(std::function<void()> work) {
    state_->post(std::move(work));
}

bool RunLoop::isCurrent() const {
    return !hasThreadEnded && loopOfThread.state == state_;
}

}  // namespace velto
