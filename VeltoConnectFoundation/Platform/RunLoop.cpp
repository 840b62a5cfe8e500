#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <VeltoConnectFoundation/Platform/ContextMailbox.h>
#include <VeltoConnectFoundation/Platform/MainThread.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <glib.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <utility>

namespace velto {

/// Shared with nobody but the loop's own mailbox; the context is the thread's own, the host's for
/// this thread, or on the main thread the default one.
class RunLoop::State {
public:
    State()
        : context_(contextOfThread()),
          mailbox_(context_, [this](const std::function<void()>& work) { perform(work); }) {}

    ~State() {
        mailbox_.close();
        g_main_context_unref(context_);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    bool run(Seconds limit, const std::function<bool()>& done);

    /// The thread ends.
    void close() { mailbox_.close(); }

    void wake() {
        isWoken_.store(true);
        g_main_context_wakeup(context_);
    }

    void post(std::function<void()> work) { mailbox_.post(std::move(work)); }

private:
    static GMainContext* contextOfThread() {
        GMainContext* const ofHost = g_main_context_ref_thread_default();
        if (ofHost != g_main_context_default() || runsDefaultContext()) {
            return ofHost;
        }
        g_main_context_unref(ofHost);
        return g_main_context_new();
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

    GMainContext* const context_;
    std::atomic<bool> isWoken_{false};
    int depth_ = 0;
    std::exception_ptr failure_;
    ContextMailbox mailbox_;
};

namespace {

/// Makes a context turn once at a time that is given.
class Deadline {
public:
    Deadline(GMainContext* context, Seconds limit) {
        // Beyond a year there is no deadline.
        if (limit < Seconds(366.0 * 86400)) {
            end_ = g_get_monotonic_time() +
                   static_cast<gint64>(std::ceil(std::max(limit.count(), 0.0) * 1e6));
            source_ = g_source_new(&functions, sizeof(GSource));
            g_source_set_ready_time(source_, end_);
            g_source_attach(source_, context);
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

    bool hasPassed() const { return source_ != nullptr && g_get_monotonic_time() >= end_; }

private:
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        g_source_set_ready_time(source, -1);
        return G_SOURCE_CONTINUE;
    }

    static inline GSourceFuncs functions{nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    gint64 end_ = 0;
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

/// Closes the loop with its thread; others may still hold on to it.
struct LoopOfThread {
    std::shared_ptr<RunLoop> loop;
    std::shared_ptr<RunLoop::State> state;
    ~LoopOfThread() {
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
    const Deadline deadline(context_, limit);
    while (!isWoken_.exchange(false)) {
        g_main_context_iteration(context_, TRUE);
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

std::shared_ptr<RunLoop> RunLoop::current() {
    LoopOfThread& mine = loopOfThread;
    if (mine.loop == nullptr) {
        mine.state = std::make_shared<State>();
        mine.loop = std::shared_ptr<RunLoop>(new RunLoop(mine.state));
    }
    return mine.loop;
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
    return loopOfThread.state == state_;
}

}  // namespace velto
