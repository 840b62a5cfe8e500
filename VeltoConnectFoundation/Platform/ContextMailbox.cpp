#include <VeltoConnectFoundation/Platform/ContextMailbox.h>

#include <VeltoConnectFoundation/Platform/Thread.h>

#include <glib.h>

#include <atomic>
#include <deque>
#include <new>
#include <utility>

namespace velto {

struct ContextMailbox::Box {
    explicit Box(Runner runs) : runner(std::move(runs)) {}

    bool isReadyHere() const {
        const std::uint64_t only = deliverer.load(std::memory_order_relaxed);
        return isArmed.load(std::memory_order_relaxed) &&
               (only == 0 || only == currentThreadNumber());
    }

    /// What a turn delivers.
    std::function<void()> takeNext() VELTO_REQUIRES(mutex) {
        std::function<void()> work;
        if (!waiting.empty()) {
            work = std::move(waiting.front());
            waiting.pop_front();
        }
        isArmed.store(!waiting.empty(), std::memory_order_relaxed);
        return work;
    }

    void arm() noexcept VELTO_REQUIRES(mutex) {
        if (!isArmed.exchange(true, std::memory_order_relaxed)) {
            if (context != nullptr) {
                g_main_context_wakeup(context);
            }
            changed.notify_one();
        }
    }

    const Runner runner;
    std::atomic<bool> isArmed{false};         ///< A turn is asked for. Changed under the mutex.
    std::atomic<std::uint64_t> deliverer{0};  ///< The one thread's number; 0 is any.
    Mutex mutex;
    std::condition_variable changed;
    bool isClosed VELTO_GUARDED_BY(mutex) = false;
    GMainContext* context VELTO_GUARDED_BY(mutex) = nullptr;
    GSource* source VELTO_GUARDED_BY(mutex) = nullptr;
    std::deque<std::function<void()>> waiting VELTO_GUARDED_BY(mutex);
};

/// What the context asks and calls: another thread may run it while the mailbox goes.
struct ContextMailbox::Source {
    GSource base;
    std::atomic<const std::shared_ptr<Box>*> box;

    static std::shared_ptr<Box> boxOf(GSource* source) {
        return *reinterpret_cast<Source*>(source)->box.load(std::memory_order_acquire);
    }
    static gboolean check(GSource* source) { return boxOf(source)->isReadyHere() ? TRUE : FALSE; }
    static gboolean prepare(GSource* source, gint*) { return check(source); }
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        const std::shared_ptr<Box> box = boxOf(source);
        std::function<void()> work;
        {
            const MutexGuard guard(box->mutex);
            if (box->isClosed) {
                return G_SOURCE_REMOVE;
            }
            work = box->takeNext();
        }
        box->runner(work);
        return G_SOURCE_CONTINUE;
    }
    static void finalize(GSource* source) {
        delete reinterpret_cast<Source*>(source)->box.load(std::memory_order_acquire);
    }

    static inline GSourceFuncs functions{prepare, check, dispatch, finalize, nullptr, nullptr};
};

ContextMailbox::ContextMailbox(Runner runner) : box_(std::make_shared<Box>(std::move(runner))) {
}

ContextMailbox::~ContextMailbox() {
    close();
}

void ContextMailbox::attach(_GMainContext* context, Deliverer deliverer) {
    auto owned = std::make_unique<const std::shared_ptr<Box>>(box_);
    GSource* const source = g_source_new(&Source::functions, sizeof(Source));
    new (&reinterpret_cast<Source*>(source)->box)
        std::atomic(static_cast<const std::shared_ptr<Box>*>(nullptr));
    reinterpret_cast<Source*>(source)->box.store(owned.release(), std::memory_order_release);
    g_source_set_can_recurse(source, TRUE);
    if (deliverer == Deliverer::thisThread) {
        box_->deliverer.store(currentThreadNumber());
    }
    {
        const MutexGuard guard(box_->mutex);
        box_->source = source;
        box_->context = g_main_context_ref(context);
    }
    g_source_attach(source, context);
}

void ContextMailbox::post(std::function<void()> work) {
    const MutexGuard guard(box_->mutex);
    if (!box_->isClosed) {
        box_->waiting.push_back(std::move(work));
        box_->arm();
    }
}

void ContextMailbox::knock() noexcept {
    const MutexGuard guard(box_->mutex);
    if (!box_->isClosed) {
        box_->arm();
    }
}

void ContextMailbox::deliverNext(std::optional<Time> end) {
    std::function<void()> work;
    {
        MutexGuard guard(box_->mutex);
        while (!box_->isArmed.load(std::memory_order_relaxed)) {
            if (!end) {
                guard.wait(box_->changed);
            } else if (!guard.waitUntil(box_->changed, *end)) {
                return;
            }
        }
        work = box_->takeNext();
    }
    box_->runner(work);
}

void ContextMailbox::close() {
    std::deque<std::function<void()>> dropped;
    GSource* source = nullptr;
    GMainContext* context = nullptr;
    {
        const MutexGuard guard(box_->mutex);
        box_->isClosed = true;
        box_->isArmed.store(false, std::memory_order_relaxed);
        dropped.swap(box_->waiting);
        std::swap(source, box_->source);
        std::swap(context, box_->context);
    }
    if (source != nullptr) {
        g_source_destroy(source);
        g_source_unref(source);
        g_main_context_unref(context);
    }
}

}  // namespace velto
