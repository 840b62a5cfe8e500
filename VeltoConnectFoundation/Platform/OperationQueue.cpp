#include <VeltoConnectFoundation/Platform/OperationQueue.h>

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Pool.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <limits>
#include <system_error>
#include <utility>
#include <vector>

namespace velto {

struct OperationQueue::State : std::enable_shared_from_this<State> {
    struct Entry;

    void add(std::shared_ptr<Operation> operation);
    void setMaximum(std::size_t value);
    void startAllowed(Pool::Clock::time_point now, Pool::Wakes& wakes) VELTO_REQUIRES(poolMutex);
    std::vector<std::shared_ptr<Operation>> operations() const;
    std::size_t operationCount() const;
    void waitUntilEmpty();

    std::condition_variable becameEmpty;
    std::size_t maximum VELTO_GUARDED_BY(poolMutex) = std::numeric_limits<std::size_t>::max();
    std::size_t count VELTO_GUARDED_BY(poolMutex) = 0;
    std::size_t handedOver VELTO_GUARDED_BY(poolMutex) = 0;  ///< To the pool: ready and running.
    Entry* first VELTO_GUARDED_BY(poolMutex) = nullptr;      ///< All that have not ended, in order.
    Entry* last VELTO_GUARDED_BY(poolMutex) = nullptr;
    Entry* firstHeldBack VELTO_GUARDED_BY(poolMutex) = nullptr;
};

/// One operation in the queue. Owned by the queue's list while it is held back, then by the pool.
struct OperationQueue::State::Entry final : Pool::Piece {
    Entry(std::shared_ptr<State> state, std::shared_ptr<Operation> work)
        : queue(std::move(state)), operation(std::move(work)), observed(operation) {}

    bool run() noexcept override {
        try {
            if (!operation->isCancelled()) {
                operation->main();
            }
        } catch (...) {
            platformLogUncaught("an operation");
        }
        // Before it counts as ended, so that whoever waits for the queue finds it let go of.
        operation.reset();
        return true;
    }

    bool refuse(int number) noexcept override {
        try {
            operation->couldNotStart(Error::make(
                POSIXErrorDomain, number, localized("No thread could be started for the work."),
                std::generic_category().message(number)));
        } catch (...) {
            platformLogUncaught("an operation");
        }
        operation.reset();
        return true;
    }

    void ended(Pool::Wakes& wakes) noexcept VELTO_REQUIRES(poolMutex) override {
        State& state = *queue;
        (previous == nullptr ? state.first : previous->next) = next;
        (next == nullptr ? state.last : next->previous) = previous;
        --state.handedOver;
        if (state.firstHeldBack != nullptr) {
            state.startAllowed(Pool::Clock::now(), wakes);
        }
        if (--state.count == 0) {
            wakes.notifyAll(state.becameEmpty);
        }
    }

    const std::shared_ptr<State> queue;
    std::shared_ptr<Operation> operation;  ///< Of the thread that runs it.
    const std::weak_ptr<Operation> observed;
    Entry* previous = nullptr;
    Entry* next = nullptr;
};

void OperationQueue::State::add(std::shared_ptr<Operation> operation) {
    auto entry = std::make_unique<Entry>(shared_from_this(), std::move(operation));
    const Pool::Clock::time_point now = Pool::Clock::now();
    Pool::Wakes wakes;
    const MutexGuard guard(poolMutex);
    Entry* const added = entry.release();
    added->previous = last;
    (last == nullptr ? first : last->next) = added;
    last = added;
    ++count;
    if (firstHeldBack == nullptr) {
        firstHeldBack = added;
    }
    startAllowed(now, wakes);
}

void OperationQueue::State::startAllowed(Pool::Clock::time_point now, Pool::Wakes& wakes) {
    while (firstHeldBack != nullptr && handedOver < maximum) {
        Entry& entry = *firstHeldBack;
        firstHeldBack = entry.next;
        ++handedOver;
        Pool::shared().submit(entry, now, wakes);
    }
}

void OperationQueue::State::setMaximum(std::size_t value) {
    Pool::Wakes wakes;
    const MutexGuard guard(poolMutex);
    maximum = value == 0 ? std::numeric_limits<std::size_t>::max() : value;
    startAllowed(Pool::Clock::now(), wakes);
}

std::vector<std::shared_ptr<Operation>> OperationQueue::State::operations() const {
    std::vector<std::shared_ptr<Operation>> all;
    const MutexGuard guard(poolMutex);
    for (const Entry* entry = first; entry != nullptr; entry = entry->next) {
        if (auto operation = entry->observed.lock()) {
            all.push_back(std::move(operation));
        }
    }
    return all;
}

std::size_t OperationQueue::State::operationCount() const {
    const MutexGuard guard(poolMutex);
    return count;
}

void OperationQueue::State::waitUntilEmpty() {
    MutexGuard guard(poolMutex);
    while (count != 0) {
        guard.wait(becameEmpty);
    }
}

OperationQueue::OperationQueue() : state_(std::make_shared<State>()) {
}
OperationQueue::~OperationQueue() = default;

std::shared_ptr<OperationQueue> OperationQueue::make() {
    return std::shared_ptr<OperationQueue>(new OperationQueue);
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
    if (operation == nullptr || !addOperationIfNew(operation)) {
        throw Exception(InvalidArgumentException,
                        operation == nullptr ? "An operation queue was given no operation."
                                             : "The operation has already been added to a queue.");
    }
}

bool OperationQueue::addOperationIfNew(const std::shared_ptr<Operation>& operation) {
    if (operation->isQueued_.exchange(true)) {
        return false;
    }
    state_->add(operation);
    return true;
}

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) {
    state_->setMaximum(count);
}

std::size_t OperationQueue::operationCount() const {
    return state_->operationCount();
}

void OperationQueue::cancelAllOperations() {
    for (const std::shared_ptr<Operation>& operation : state_->operations()) {
        operation->cancel();
    }
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    state_->waitUntilEmpty();
}

}  // namespace velto
