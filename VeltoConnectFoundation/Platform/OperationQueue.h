#pragma once

#include <VeltoConnectFoundation/Platform/Operation.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace velto {

/// Runs operations on the process-wide pool: as many threads as cores at first, one more when
/// the oldest ready operation has waited 10 ms and none is idle (up to 512); idle extra threads
/// end after 5 s. An operation that blocks never keeps another from starting. Any thread.
///
/// What an operation throws is caught and logged as critical. When the system gives not one thread,
/// operations end by their couldNotStart.
class VELTO_EXPORT OperationQueue {
public:
    static std::shared_ptr<OperationQueue> make();
    ~OperationQueue();  ///< Operations already added still run.

    /// Raises InvalidArgumentException for none, and for one that has been added before.
    void addOperation(std::shared_ptr<Operation> operation);
    /// The same, but false for one that has been added before, here or to another queue.
    [[nodiscard]] bool addOperationIfNew(const std::shared_ptr<Operation>& operation);
    /// 0 (the default) means no limit of this queue's own.
    void setMaxConcurrentOperationCount(std::size_t count);
    std::size_t operationCount() const;  ///< Waiting and running.
    void cancelAllOperations();
    void waitUntilAllOperationsAreFinished();

    struct State;  ///< Shared with the pool.

private:
    OperationQueue();
    std::shared_ptr<State> state_;
};

}  // namespace velto
