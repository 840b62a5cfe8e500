#include <VeltoConnectFoundation/Platform/OperationQueue.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Pool.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <limits>
#include <utility>
#include <vector>

namespace velto {

struct OperationQueue::State : std::enable_shared_from_this<State> {
    struct Entry;

    void add(std::shared_ptr<Operation> operation);
    void setMaximum(std::size_t count);
    void finish(Entry& entry);
    void startAllowed() VELTO_REQUIRES(mutex);
    std::vector<std::shared_ptr<Operation>> operations();
    void waitUntilEmpty();

    Mutex mutex;
    std::condition_variable becameEmpty;
    std::size_t maximum VELTO_GUARDED_BY(mutex) = std::numeric_limits<std::size_t>::max();
    std::size_t handedOver VELTO_GUARDED_BY(mutex) = 0;  ///< To the pool: ready and running.
    Entry* first VELTO_GUARDED_BY(mutex) = nullptr;      ///< All that have not ended, in order.
    Entry* last VELTO_GUARDED_BY(mutex) = nullptr;
    Entry* firstHeldBack VELTO_GUARDED_BY(mutex) = nullptr;
    std::atomic<std::size_t> count{0};
};

/// One operation in the queue. Owned by whoever holds its turn: the queue's list while it is held
/// back, then the pool, which runs it once.
struct OperationQueue::State::Entry final : Pool::Piece {
    Entry(std::shared_ptr<State> state, std::shared_ptr<Operation> work)
        : queue(std::move(state)), operation(std::move(work)) {}

    void run() noexcept override {
        const std::unique_ptr<Entry> self(this);
        try {
            if (!operation->isCancelled()) {
                operation->main();
            }
        } catch (...) {
            platformLogUncaught("an operation");
        }
        queue->finish(*this);
    }

    std::shared_ptr<State> queue;
    std::shared_ptr<Operation> operation;
    Entry* previous = nullptr;
    Entry* next = nullptr;
};

void OperationQueue::State::add(std::shared_ptr<Operation> operation) {
    auto entry = std::make_unique<Entry>(shared_from_this(), std::move(operation));
    count.fetch_add(1);
    const MutexGuard guard(mutex);
    Entry* const added = entry.release();
    added->previous = last;
    (last == nullptr ? first : last->next) = added;
    last = added;
    if (firstHeldBack == nullptr) {
        firstHeldBack = added;
    }
    startAllowed();
}

void OperationQueue::State::startAllowed() {
    while (firstHeldBack != nullptr && handedOver < maximum) {
        Entry& entry = *firstHeldBack;
        firstHeldBack = entry.next;
        ++handedOver;
        // Under the lock, so that the pool gets them in the order in which they were added.
        Pool::shared().submit(entry);
    }
}

void OperationQueue::State::setMaximum(std::size_t value) {
    const MutexGuard guard(mutex);
    maximum = value == 0 ? std::numeric_limits<std::size_t>::max() : value;
    startAllowed();
}

void OperationQueue::State::finish(Entry& entry) {
    std::shared_ptr<Operation> ended;
    {
        const MutexGuard guard(mutex);
        (entry.previous == nullptr ? first : entry.previous->next) = entry.next;
        (entry.next == nullptr ? last : entry.next->previous) = entry.previous;
        ended = std::move(entry.operation);
        --handedOver;
        startAllowed();
    }
    // Whoever waited for the queue finds the operation let go of.
    ended.reset();
    if (count.fetch_sub(1) == 1) {
        const MutexGuard guard(mutex);
        becameEmpty.notify_all();
    }
}

std::vector<std::shared_ptr<Operation>> OperationQueue::State::operations() {
    std::vector<std::shared_ptr<Operation>> all;
    const MutexGuard guard(mutex);
    for (const Entry* entry = first; entry != nullptr; entry = entry->next) {
        all.push_back(entry->operation);
    }
    return all;
}

void OperationQueue::State::waitUntilEmpty() {
    MutexGuard guard(mutex);
    while (count.load() != 0) {
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
    if (operation == nullptr || operation->isQueued_.exchange(true)) {
        throw Exception(InvalidArgumentException,
                        operation == nullptr ? "An operation queue was given no operation."
                                             : "The operation has already been added to a queue.");
    }
    state_->add(std::move(operation));
}

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) {
    state_->setMaximum(count);
}

std::size_t OperationQueue::operationCount() const {
    return state_->count.load();
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
