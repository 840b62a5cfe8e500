#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace velto {

/// Runs work one piece after another, in the order given. Any thread.
class VELTO_EXPORT Queue {
public:
    virtual ~Queue();

    virtual void async(std::function<void()> work) = 0;
    /// Returns when the work has run; runs it inline when already on this queue. What the work
    /// throws reaches the caller (from async it is logged as critical).
    virtual void sync(const std::function<void()>& work) = 0;
    /// Whether the calling thread is running a piece of this queue's work.
    virtual bool isCurrent() const = 0;
};

/// A queue that owns no thread and shares the process-wide pool.
class VELTO_EXPORT SerialQueue final : public Queue {
public:
    static std::shared_ptr<SerialQueue> make(std::string_view label);
    ~SerialQueue() override;  ///< Work already queued still runs.

    void async(std::function<void()> work) override;
    void sync(const std::function<void()>& work) override;
    bool isCurrent() const override;
    const std::string& label() const;

private:
    class State;
    explicit SerialQueue(std::string_view label);
    std::shared_ptr<State> state_;
};

/// The main thread's queue. Its home is chosen before its first use: GLib's default main
/// context (nothing to do in a program that runs one), or a thread of the library's own.
class VELTO_EXPORT MainQueue final : public Queue {
public:
    static MainQueue& shared();  ///< Never destroyed.

    /// The one line of a host without a loop: from now on the main queue is a thread of the
    /// library's own. A second call does nothing; after the first use of another home it raises.
    static void runOnOwnThread();

    void async(std::function<void()> work) override;
    /// On the caller's thread as long as nobody has ever dispatched the queue.
    void sync(const std::function<void()>& work) override;
    /// As sync, but gives up waiting (false) when `cancelled` answers true, which is asked at the
    /// start and after each wakeWaiters(). Work that has begun goes on; else it never runs.
    bool sync(const std::function<void()>& work, const std::function<bool()>& cancelled);
    void wakeWaiters();
    bool isCurrent() const override;
    static bool isMainThread() { return shared().isCurrent(); }
    bool hasOwnThread() const;  ///< Whether runOnOwnThread() has chosen its home.

private:
    friend void settleMainQueue();
    MainQueue();
    ~MainQueue() override;
    class State;
    State* state_;
};

}  // namespace velto
