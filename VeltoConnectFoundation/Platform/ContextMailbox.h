#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

struct _GMainContext;

namespace velto {

/// Work that is delivered one piece a turn, in order: by a GLib main context, if it has one, and by
/// a thread that waits here. Pieces may deliver the next ones inside.
class ContextMailbox {
public:
    /// Runs each piece, on the thread that delivers it. An empty piece is a turn without work. Must
    /// not throw under a context.
    using Runner = std::function<void(const std::function<void()>& work)>;
    using Time = std::chrono::steady_clock::time_point;

    explicit ContextMailbox(Runner runner);
    ~ContextMailbox();
    ContextMailbox(const ContextMailbox&) = delete;
    ContextMailbox& operator=(const ContextMailbox&) = delete;

    enum class Deliverer : std::uint8_t {
        whoeverRunsTheContext,
        thisThread,  ///< The context delivers only while this thread runs it.
    };
    /// Once, before anything else is done with the mailbox or under a lock of its owner's.
    void attach(_GMainContext* context, Deliverer deliverer);

    void post(std::function<void()> work);  ///< Any thread; dropped once closed.
    /// Asks for a turn without work; allocates nothing. Any thread.
    void knock() noexcept;
    /// Waits for a turn, at most until `end` (none is for ever), and delivers one piece.
    void deliverNext(std::optional<Time> end);
    void close();  ///< Drops what waits. The delivering thread, or when none delivers.

private:
    struct Box;
    struct Source;
    std::shared_ptr<Box> box_;
};

}  // namespace velto
