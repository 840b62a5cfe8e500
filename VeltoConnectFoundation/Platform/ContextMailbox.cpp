#include <VeltoConnectFoundation/Platform/ContextMailbox.h>

#include <glib.h>

#include <utility>

namespace velto {

struct ContextMailbox::Box {
    explicit Box(Runner runs) : runner(std::move(runs)) {}

    /// Called by GLib, which does not touch what this frees. The lock comes first: it is what
    /// makes the box's making visible on this thread.
    gboolean dispatch() {
        std::function<void()> work;
        {
            const MutexGuard guard(mutex);
            if (source == nullptr) {
                return G_SOURCE_REMOVE;
            }
            if (!waiting.empty()) {
                work = std::move(waiting.front());
                waiting.pop_front();
            }
            isArmed = !waiting.empty();
            if (!isArmed) {
                g_source_set_ready_time(source, -1);
            }
        }
        runner(work);
        return G_SOURCE_CONTINUE;
    }

    void arm() VELTO_REQUIRES(mutex) {
        if (!isArmed) {
            isArmed = true;
            g_source_set_ready_time(source, 0);  // Wakes the context from any thread.
        }
    }

    const Runner runner;
    Mutex mutex;
    GSource* source VELTO_GUARDED_BY(mutex) = nullptr;  ///< Null once closed.
    bool isArmed VELTO_GUARDED_BY(mutex) = false;
    std::deque<std::function<void()>> waiting VELTO_GUARDED_BY(mutex);
};

namespace {

gboolean callBack(GSource*, GSourceFunc callback, gpointer data) {
    return callback(data);
}

GSourceFuncs sourceFunctions{nullptr, nullptr, callBack, nullptr, nullptr, nullptr};

}  // namespace

ContextMailbox::ContextMailbox(_GMainContext* context, Runner runner)
    : box_(std::make_shared<Box>(std::move(runner))) {
    GSource* const source = g_source_new(&sourceFunctions, sizeof(GSource));
    g_source_set_can_recurse(source, TRUE);
    g_source_set_callback(
        source,
        [](gpointer data) {
            const std::shared_ptr<Box> box = *static_cast<std::shared_ptr<Box>*>(data);
            return box->dispatch();
        },
        new std::shared_ptr<Box>(box_),
        [](gpointer data) { delete static_cast<std::shared_ptr<Box>*>(data); });
    {
        const MutexGuard guard(box_->mutex);
        box_->source = source;
    }
    g_source_attach(source, context);
}

ContextMailbox::~ContextMailbox() {
    close();
}

void ContextMailbox::post(std::function<void()> work) {
    const MutexGuard guard(box_->mutex);
    if (box_->source != nullptr) {
        box_->waiting.push_back(std::move(work));
        box_->arm();
    }
}

void ContextMailbox::knock() {
    const MutexGuard guard(box_->mutex);
    if (box_->source != nullptr) {
        box_->arm();
    }
}

void ContextMailbox::close() {
    std::deque<std::function<void()>> dropped;
    GSource* source = nullptr;
    {
        const MutexGuard guard(box_->mutex);
        dropped.swap(box_->waiting);
        std::swap(source, box_->source);
    }
    if (source != nullptr) {
        g_source_destroy(source);
        g_source_unref(source);
    }
}

}  // namespace velto
