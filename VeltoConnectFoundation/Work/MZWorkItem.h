#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/Operation.h>
#include <VeltoConnectFoundation/Platform/Outbox.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>
#include <VeltoConnectFoundation/Work/WorkItemSample.h>
#include <VeltoConnectFoundation/Work/WorkStates.h>

class MZThroughputWorker;
class MZWorkItem;
class MZWorkSeries;

namespace velto {
class OperationQueue;
}

/// Of an item and of a series.
enum class MZWorkItemStatus : std::int32_t {
    pending = 0,
    running = 1,
    cancelled = 2,
    completed = 3,
    destroying = 51966,  ///< Only while an item is being destroyed: keeps it from reporting.
};

enum class MZWorkItemMode : std::int32_t { elapsed = 0, remaining = 1 };

/// Posted on the main thread, once for each item, when it has ended in whatever way.
/// The object is the item.
inline constexpr std::string_view MZWorkItemCompletedNotification =
    "MZWorkItemCompletedNotification";

/// Told of an item's changes. Every operation is optional: override only what you need.
class VELTO_EXPORT MZWorkItemDelegate {
public:
    virtual ~MZWorkItemDelegate();

    /// On the thread that changed the status, with no lock held: return quickly.
    virtual void workItemStatusChanged(MZWorkItem& item, MZWorkItemStatus status);
};

/// Runs one worker once on an operation-queue thread, times it, and words its progress.
///
/// Pending -> Running -> Completed, or Pending/Running -> Cancelled; Cancelled is final. What may
/// follow what stands in MZItemTable (WorkStates.h): by it the item runs once and ends once,
/// whatever status is set and shown.
/// Any member may be called from any thread; each takes the item's own lock.
class VELTO_EXPORT MZWorkItem final : public velto::Operation {
public:
    MZWorkItem(velto::PassKey, std::shared_ptr<MZAbstractWorker> worker);  ///< Use itemWithWorker.
    ~MZWorkItem() override;

    /// The next value of the process-wide counter of starts and ends; the first is 1.
    static std::uint64_t sequence();
    /// Shared, because series, queue and notifications all hold it. `worker` is never null.
    static std::shared_ptr<MZWorkItem> itemWithWorker(std::shared_ptr<MZAbstractWorker> worker);
    /// One item for each worker, in the same order.
    static std::vector<std::shared_ptr<MZWorkItem>> itemsWithWorkers(
        const std::vector<std::shared_ptr<MZAbstractWorker>>& workers);

    static std::string stringWithStatus(
        MZWorkItemStatus status);                            ///< Localized; "Unknown" for others.
    static std::string stringWithMode(MZWorkItemMode mode);  ///< Localized; "Unknown" for others.
    /// "HH:MM:SS"; "∞" beyond 999 hours; a negative interval logs a warning and reads as 0.
    static std::string timeStringWithSeconds(velto::Seconds seconds);

    /// Queue thread; returns at once unless the item is pending. A velto::Exception of the worker
    /// is logged and swallowed; any other kind is recorded as an error of the worker and leaves
    /// after the completion has been recorded.
    void main() override;
    /// Idempotent; a pending item still posts its completion. A velto::Exception of the worker is
    /// logged and swallowed; any other kind leaves after that.
    void cancel() override;
    void couldNotStart(const velto::Error& error) override;  ///< The error becomes the worker's.
    bool isCancelled() const override { return MZItemWasCancelled(state()); }
    /// Records the completion and posts its notification, once. A pending item then ends without
    /// having run; one whose worker still runs ends with it.
    void threadCompleted();
    void seriesCompleted();  ///< Passed on to the worker.

    const std::shared_ptr<MZAbstractWorker>& worker() const { return worker_; }
    MZWorkItemStatus status() const { return status_.load(); }
    /// What is shown and told to the delegate, not what happens: the item runs, ends and can be
    /// cancelled as before. An equal value tells nobody. Raises the first exception of those told.
    void setStatus(MZWorkItemStatus status);
    bool isActive() const;  ///< Pending or running.
    bool isRunning() const { return status() == MZWorkItemStatus::running; }

    /// Held weakly; a null or expired delegate is not told.
    std::shared_ptr<MZWorkItemDelegate> delegate() const;
    void setDelegate(std::weak_ptr<MZWorkItemDelegate> delegate);
    std::shared_ptr<MZWorkSeries> series() const;  ///< Held weakly; null without one.
    void setSeries(std::weak_ptr<MZWorkSeries> series);
    std::shared_ptr<velto::OperationQueue> operationQueue()
        const;  ///< The series'; null without one.
    velto::Value userInfo() const;
    void setUserInfo(velto::Value userInfo);

    std::uint64_t startSequence() const;  ///< 0 before the start.
    std::uint64_t endSequence() const;    ///< 0 before the end, and for a cancelled item.
    std::optional<velto::Date> startTime() const;
    std::optional<velto::Date> completeTime() const;
    double elapsedSecondsSinceStart() const;
    double estimatedCompletionSeconds() const;
    velto::Date estimatedCompletionTime() const;
    /// Very large while the rate is 0.
    double throughputEstimatedCompletionSecondsWithPercentComplete(double percent) const;
    MZWorkItemMode mode() const;
    std::string timerMode() const;  ///< "Elapsed:" or "Remaining:", localized.

    /// 0 to 100; a cancelled item answers 100. 0 from the worker restarts the rate measurement.
    double percentComplete() const;
    /// Ignored within 0.5 s of the last accepted one.
    void addRunningSample(std::uint64_t bytesCompleted) const;
    /// The rate begins anew: for a program that has been stopped for a while and goes on.
    void forgetSamples() const;
    std::uint64_t sampleRate() const;                     ///< Bytes a second over the window.
    std::optional<std::string> sampleRateString() const;  ///< none with fewer than 2 samples
    std::optional<std::string> finalRateString()
        const;                          ///< Over the whole transfer; none likewise.
    std::string runningStatus() const;  ///< Takes a sample.
    std::string completedStatus() const;
    std::string throughputStatus() const;

    std::optional<std::string> statusMessage() const { return worker_->statusMessage(); }
    std::optional<std::string> errorMessage() const { return worker_->errorMessage(); }
    bool hasErrors() const { return worker_->hasErrors(); }
    std::vector<velto::Error> errors() const { return worker_->errors(); }
    velto::Array warnings() const { return worker_->warnings(); }
    velto::Array infoMessages() const { return worker_->infoMessages(); }
    bool hasInfoMessages() const { return worker_->hasInfoMessages(); }
    void addError(const velto::Error& error) { worker_->addError(error); }
    void addErrors(const std::vector<velto::Error>& errors) { worker_->addErrors(errors); }
    void addWarning(const velto::Value& warning) { worker_->addWarning(warning); }
    void addWarnings(const velto::Array& warnings) { worker_->addWarnings(warnings); }
    void addInfoMessages(const velto::Array& messages) { worker_->addInfoMessages(messages); }

    std::string description() const { return descriptionWithLocale(0); }
    std::string descriptionWithLocale(std::size_t indent) const;

private:
    friend class MZWorkSeries;

    /// A series that is made of the item, and where the item stands in it first.
    struct SeriesLink {
        std::weak_ptr<MZWorkSeries> series;
        std::size_t index = 0;
    };
    /// What has to be told after the lock, in the order of its members.
    struct Report {
        std::optional<MZWorkItemStatus> status;  ///< To the delegate.
        bool passes = false;    ///< To the series: it was cancelled, or has completed or ended.
        bool notifies = false;  ///< Its completion, on the main thread.
    };

    /// Where the item stands in `series` first: `index`, unless it was told of one before.
    std::size_t linkTo(const std::weak_ptr<MZWorkSeries>& series, std::size_t index);
    MZItemState state() const { return state_.load(); }
    bool hasEnded() const { return MZItemHasEnded(state()); }
    /// Whether the series has to stop for it.
    bool hasFailed() const { return MZItemWasCancelled(state()) || worker_->hasErrors(); }

    void addUncaught();  ///< Inside a catch block: what was caught becomes an error of the worker.
    /// Steps through the table, records what the step asks for, and tells it.
    MZItemStep step(MZItemEvent event);
    std::optional<MZWorkItemStatus> show(MZWorkItemStatus status) VELTO_REQUIRES(lock_);
    void deliverReports(std::exception_ptr* failure = nullptr);
    std::optional<SeriesLink> link(std::size_t number) const;  ///< None behind the last.
    void tellSeries();
    void dropSamples() const VELTO_REQUIRES(lock_);
    std::shared_ptr<MZWorkItem> self();

    const std::shared_ptr<MZAbstractWorker> worker_;
    MZThroughputWorker* const throughput_;  ///< The worker itself, or null.
    std::atomic<MZWorkItemStatus> status_{MZWorkItemStatus::pending};  ///< As it is shown.
    std::atomic<MZItemState> state_{MZItemState::pending};             ///< Changed under the lock.
    mutable velto::Lock lock_;
    velto::Outbox<Report> outbox_{lock_, "a delegate of a work item"};
    std::weak_ptr<MZWorkItemDelegate> delegate_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeries> series_ VELTO_GUARDED_BY(lock_);
    SeriesLink link_ VELTO_GUARDED_BY(lock_);  ///< Most often the only one.
    std::vector<SeriesLink> moreLinks_ VELTO_GUARDED_BY(lock_);
    velto::Value userInfo_ VELTO_GUARDED_BY(lock_);
    std::uint64_t startSequence_ VELTO_GUARDED_BY(lock_) = 0;
    std::uint64_t endSequence_ VELTO_GUARDED_BY(lock_) = 0;
    std::optional<velto::Date> startTime_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Date> completeTime_ VELTO_GUARDED_BY(lock_);
    mutable std::vector<WorkItemSample> samples_
        VELTO_GUARDED_BY(lock_);  ///< About 30 s, oldest first.
    mutable std::optional<WorkItemSample> initialSample_ VELTO_GUARDED_BY(lock_);
    mutable double lastSampleTime_ VELTO_GUARDED_BY(lock_) = 0;
    mutable std::uint64_t lastSampleCompletion_ VELTO_GUARDED_BY(lock_) = 0;
};
