#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace velto {

class Error;

enum class QualityOfService : std::int32_t {
    standard = -1,
    background = 9,
    utility = 17,
    userInitiated = 25,
    userInteractive = 33
};

/// One piece of work for an OperationQueue; runs at most once, so it is added to one queue, once.
class VELTO_EXPORT Operation : public std::enable_shared_from_this<Operation> {
public:
    virtual ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    virtual void main() = 0;
    /// Marks it; the queue never calls main of a cancelled operation. Any thread.
    virtual void cancel();
    /// In place of main, once, when the system gives the queue no thread at all: ends the operation
    /// with the error. This form cancels it. On the thread that added it or ended the one before,
    /// with no lock held.
    virtual void couldNotStart(const Error& error);
    /// Virtual for those that keep a flag of their own. Any thread.
    virtual bool isCancelled() const;
    QualityOfService qualityOfService() const { return qualityOfService_.load(); }
    void setQualityOfService(QualityOfService quality) { qualityOfService_ = quality; }

protected:
    Operation();

private:
    friend class OperationQueue;
    std::atomic<bool> isQueued_{false};
    std::atomic<bool> operationCancelled_{false};
    std::atomic<QualityOfService> qualityOfService_{QualityOfService::standard};
};

}  // namespace velto
