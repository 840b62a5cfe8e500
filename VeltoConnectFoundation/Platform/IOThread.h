#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Export.h>
#include <VeltoConnectFoundation/Platform/Lock.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace velto {

/// The one thread that watches descriptors and timers for the platform. Any thread; callbacks run
/// on the I/O thread with no lock held, one at a time, and must be short. One for which there was
/// no memory is called again a moment later.
///
/// Starts with its first use. Where the system has no thread or descriptor for it, that use is
/// refused, and the next one tries again.
class VELTO_EXPORT_INTERNAL IOThread {
public:
    /// Names what was added; never used again. 0 names nothing.
    using Token = std::uint64_t;

    static IOThread& shared();  ///< Never destroyed.

    /// 0 once it runs, or why it cannot start.
    [[nodiscard]] int start();

    /// Calls back as long as `fd` can be read, was hung up or failed, again and again until it is
    /// removed. The descriptor stays the caller's: close it after remove(). One token at a time
    /// for one descriptor. 0 with errno set when the system refuses.
    Token addReadable(int fd, std::function<void()> callback);
    /// The same for writing; a pipe whose reader is gone counts as writable.
    Token addWritable(int fd, std::function<void()> callback);
    /// Calls back once, not before `after` has passed. 0 with errno set as long as the thread
    /// cannot start.
    Token addTimer(Seconds after, std::function<void()> callback);
    /// After it the callback does not run any more: one under way is waited for, unless this is
    /// the I/O thread. A token that is done, removed or 0 is ignored.
    void remove(Token token);

    /// A descriptor's token keeps its callback but calls it no more, from the end of a call under
    /// way until it is resumed. Neither allocates.
    void pause(Token token) noexcept;
    void resume(Token token) noexcept;

    /// Inside a callback: removes what is calling back, whose token its owner may not have yet.
    void removeCurrent();

    bool isCurrent() const;

private:
    IOThread() = default;
    class State;
    State* startedState();

    Mutex starting_;
    std::atomic<State*> state_{nullptr};
};

}  // namespace velto
