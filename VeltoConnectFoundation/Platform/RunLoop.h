#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Export.h>

#include <functional>
#include <memory>

namespace velto {

/// One thread's loop: delivers what was posted to it, until a time or a wake-up.
///
/// The main thread's loop runs the main queue's home. What a piece of work throws leaves the
/// loop's own run call after the turn.
class VELTO_EXPORT RunLoop {
public:
    /// The calling thread's loop; held on to by whoever posts to it. Work posted to a loop
    /// whose thread has ended is dropped.
    static std::shared_ptr<RunLoop> current();
    ~RunLoop();

    /// Runs until `limit` has passed, wake() was called, or `done` answers true (asked at the
    /// start and after each turn). Answers whether `done` did. Own thread only.
    bool run(Seconds limit, const std::function<bool()>& done = {});

    /// Ends the run under way, or the next one. Any thread.
    void wake();
    /// Runs `work` on the loop's thread, in order. None is a turn without work, which allocates
    /// nothing. Any thread.
    void perform(std::function<void()> work);
    bool isCurrent() const;  ///< Whether this is the calling thread's loop.

    class State;

private:
    friend class MainQueue;  // Its own thread's loop is there before the thread is.
    static std::shared_ptr<RunLoop> makeForNewThread();
    static void adopt(std::shared_ptr<RunLoop> loop);

    explicit RunLoop(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

}  // namespace velto
