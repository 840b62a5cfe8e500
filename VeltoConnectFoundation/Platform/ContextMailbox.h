#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <deque>
#include <functional>
#include <memory>

struct _GMainContext;
struct _GSource;

namespace velto {

/// Work that a GLib main context delivers, one piece a turn, in order. Pieces may spin the
/// context: the next ones are then delivered inside.
class ContextMailbox {
public:
    /// Runs each piece, on the thread that dispatches the context; must not throw. An empty piece
    /// is the first turn of all.
    using Runner = std::function<void(const std::function<void()>& work)>;

    ContextMailbox(_GMainContext* context, Runner runner);
    ~ContextMailbox();
    ContextMailbox(const ContextMailbox&) = delete;
    ContextMailbox& operator=(const ContextMailbox&) = delete;

    void post(std::function<void()> work);  ///< Any thread; dropped once closed.
    /// Makes the context turn, without any work: the runner gets an empty piece.
    void knock();
    void close();  ///< Drops what waits. The dispatching thread, or when it is nowhere dispatched.

private:
    struct Box;
    std::shared_ptr<Box> box_;
};

}  // namespace velto
