#include <VeltoConnectFoundation/Platform/Queue.h>

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Pool.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <exception>
#include <utility>
#include <vector>

namespace velto {

namespace {

/// After so many pieces in a row a queue lets the others of the pool go first.
constexpr std::size_t piecesInARow = 512;

/// The serial queues whose work the calling thread is inside of, innermost first.
struct Turn {
    const void* queue;
    const Turn* outer;
};
thread_local const Turn* innermostTurn = nullptr;

class TurnScope {
public:
    explicit TurnScope(const void* queue) : turn_{queue, innermostTurn} { innermostTurn = &turn_; }
    ~TurnScope() { innermostTurn = turn_.outer; }
    TurnScope(const TurnScope&) = delete;
    TurnScope& operator=(const TurnScope&) = delete;

private:
    Turn turn_;
};

/// One synchronous call that waits for its turn.
struct Call {
    void run(const std::function<void()>& work) noexcept {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        // Notified under the lock: the caller's stack holds this.
        const MutexGuard guard(mutex);
        isDone = true;
        done.notify_one();
    }

    void wait() {
        MutexGuard guard(mutex);
        while (!isDone) {
            guard.wait(done);
        }
    }

    std::exception_ptr failure;
    Mutex mutex;
    std::condition_variable done;
    bool isDone VELTO_GUARDED_BY(mutex) = false;
};

}  // namespace

Queue::~Queue() = default;

/// Whoever sets isTaken_ runs the queue's work, one thread at a time: a thread of the pool, or the
/// caller of a synchronous call that finds the queue at rest.
class SerialQueue::State final : public Pool::Piece {
public:
    explicit State(std::string_view text) : label(text) {}

    void async(std::function<void()> work, const std::shared_ptr<State>& self) {
        bool wasTaken = false;
        {
            const MutexGuard guard(mutex_);
            waiting_.push_back(std::move(work));
            wasTaken = std::exchange(isTaken_, true);
        }
        if (wasTaken) {
            Pool::shared().tryAgainIfStranded();
        } else {
            handOver(self);
        }
    }

    void sync(const std::function<void()>& work, const std::shared_ptr<State>& self) {
        if (isCurrent()) {
            work();
            return;
        }
        if (takeIfAtRest()) {
            Rest rest{*this, self};
            const TurnScope turn(this);
            work();
            return;
        }
        Call call;
        async([&] { call.run(work); }, self);
        call.wait();
        if (call.failure) {
            std::rethrow_exception(call.failure);
        }
    }

    bool isCurrent() const {
        const Turn* turn = innermostTurn;
        while (turn != nullptr && turn->queue != this) {
            turn = turn->outer;
        }
        return turn != nullptr;
    }

    bool run() noexcept override {
        const std::shared_ptr<State> self = std::move(keptAlive_);
        const TurnScope turn(this);
        for (std::size_t count = 0; count < piecesInARow; count += running_.size()) {
            running_.clear();
            if (!takeWaiting()) {
                return false;
            }
            for (std::function<void()>& work : running_) {
                try {
                    work();
                } catch (...) {
                    platformLogUncaught(label);
                }
                work = nullptr;
            }
        }
        running_.clear();
        rest(self);
        return false;
    }

    const std::string label;

private:
    struct Rest {
        State& state;
        const std::shared_ptr<State>& self;
        ~Rest() { state.rest(self); }
    };

    bool takeIfAtRest() {
        const MutexGuard guard(mutex_);
        return !isTaken_ && (isTaken_ = true);
    }

    bool takeWaiting() {
        const MutexGuard guard(mutex_);
        running_.swap(waiting_);
        isTaken_ = !running_.empty();
        return isTaken_;
    }

    /// Ends a turn: what came meanwhile goes to the pool.
    void rest(const std::shared_ptr<State>& self) {
        {
            const MutexGuard guard(mutex_);
            isTaken_ = !waiting_.empty();
            if (!isTaken_) {
                return;
            }
        }
        handOver(self);
    }

    void handOver(const std::shared_ptr<State>& self) {
        keptAlive_ = self;
        Pool::shared().submit(*this);
    }

    Mutex mutex_;
    std::vector<std::function<void()>> waiting_ VELTO_GUARDED_BY(mutex_);
    bool isTaken_ VELTO_GUARDED_BY(mutex_) = false;
    std::vector<std::function<void()>> running_;  ///< Of the thread whose turn it is.
    std::shared_ptr<State> keptAlive_;            ///< While the pool has it.
};

SerialQueue::SerialQueue(std::string_view label) : state_(std::make_shared<State>(label)) {
}
SerialQueue::~SerialQueue() = default;

std::shared_ptr<SerialQueue> SerialQueue::make(std::string_view label) {
    return std::shared_ptr<SerialQueue>(new SerialQueue(label));
}

void SerialQueue::async(std::function<void()> work) {
    state_->async(std::move(work), state_);
}

void SerialQueue::sync(const std::function<void()>& work) {
    const std::shared_ptr<State> state = state_;  // The work may let go of the queue.
    state->sync(work, state);
}

bool SerialQueue::isCurrent() const {
    return state_->isCurrent();
}

const std::string& SerialQueue::label() const {
    return state_->label;
}

}  // namespace velto
