#pragma once

#include <VeltoConnectFoundation/Work/MZWorkItem.h>

class MZWorkSeries;
class MZWorkSeriesManager;

/// Posted on the main thread, once for each series, when nothing of it runs any more.
/// The object is the series.
inline constexpr std::string_view MZWorkSeriesCompletedNotification =
    "MZWorkSeriesCompletedNotification";

/// Told of a series' changes; normally the manager. Every operation is optional.
class VELTO_EXPORT MZWorkSeriesDelegate {
public:
    virtual ~MZWorkSeriesDelegate();

    /// On the thread that changed the status, with no lock held: return quickly.
    virtual void workSeriesStatusChanged(MZWorkSeries& series, MZWorkItemStatus status);
    /// Where the series' items run; null by default, which the series logs.
    virtual std::shared_ptr<velto::OperationQueue> operationQueue();
};

/// An ordered list of work items that run one after another and stop at the first that fails.
///
/// Pending -> Running -> Completed. It ends as completed also when it stopped early, once nothing
/// of it runs any more: hasErrors() tells failure, isCancelled() cancellation. It runs once.
/// Any member may be called from any thread; each takes the series' own lock.
class VELTO_EXPORT MZWorkSeries final : public MZWorkItemDelegate,
                                        public std::enable_shared_from_this<MZWorkSeries> {
public:
    MZWorkSeries(velto::PassKey,
                 std::vector<std::shared_ptr<MZWorkItem>> workItems);  ///< Use a factory.
    ~MZWorkSeries() override;

    static std::shared_ptr<MZWorkSeries> seriesWithWork(std::shared_ptr<MZAbstractWorker> worker);
    static std::shared_ptr<MZWorkSeries> seriesWithWorkItem(std::shared_ptr<MZWorkItem> item);
    static std::shared_ptr<MZWorkSeries> seriesWithWorkItems(
        std::vector<std::shared_ptr<MZWorkItem>> items);
    void didCreate();  ///< Makes the series delegate and owner of its items.

    /// A second call raises "Calling start more than once on a work series: …"; a series that was
    /// cancelled while it was pending stays as it is.
    void start();
    /// Cancels every item and marks each worker as cancelled; the first exception is raised after
    /// all that.
    void cancel();
    /// Cancels what has not been dispatched yet; the series then ends with the item that runs.
    void cancelRemainingJobs();
    /// Hands the next item to the operation queue; without one left the series ends.
    void dispatchNextItem();

    const std::vector<std::shared_ptr<MZWorkItem>>& workItems() const { return workItems_; }
    MZWorkItemStatus status() const { return status_.load(); }
    /// 3 is taken once.
    void setStatus(MZWorkItemStatus status);
    bool isActive() const;  ///< Pending or running.
    bool isRunning() const { return status() == MZWorkItemStatus::running; }
    bool isCancelled() const;  ///< An item was cancelled, and none has errors.
    /// The item on the queue, or the last one that was; null before the start.
    std::shared_ptr<MZWorkItem> activeItem() const;
    std::shared_ptr<velto::OperationQueue> operationQueue()
        const;                       ///< The delegate's; null is logged.
    double percentComplete() const;  ///< 0 to 100 over all items.

    /// The caller's category, the key of throttling.
    std::int64_t type() const { return type_.load(); }
    void setType(std::int64_t type) { type_ = type; }
    std::shared_ptr<MZWorkSeriesDelegate> delegate() const;
    void setDelegate(std::weak_ptr<MZWorkSeriesDelegate> delegate);
    velto::Value userInfo() const;
    void setUserInfo(velto::Value userInfo);
    std::optional<velto::Date> startTime() const;
    std::optional<velto::Date> completeTime() const;

    /// Tells every item; the first exception is raised after all have been told.
    void notifyWorkItemsOfSeriesCompletion();
    void seriesCompleted() { notifyWorkItemsOfSeriesCompletion(); }

    /// The active item's, empty or 0 without one.
    std::optional<std::string> statusMessage() const;
    std::optional<std::string> errorMessage() const;
    std::string throughputStatus() const;
    std::optional<velto::Date> estimatedCompletionTime() const;
    double estimatedCompletionSeconds() const;
    double elapsedSecondsSinceStart() const;
    std::string timerMode() const;
    MZWorkItemMode mode() const;

    /// Over the completed items, in their order.
    std::vector<velto::Error> errors() const;
    velto::Array warnings() const;
    velto::Array infoMessages() const;
    bool hasErrors() const;
    bool hasInfoMessages() const;
    velto::Array httpStatusCodes() const;  ///< { method: status } for each call to a service.
    velto::Array httpHeaders() const;  ///< { method: response headers } for each call to a service.

    void workItemStatusChanged(MZWorkItem& item, MZWorkItemStatus status) override;

    std::string description() const;

private:
    friend class MZWorkItem;
    friend class MZWorkSeriesManager;

    void startIfPending();  ///< The manager's start.
    bool claimStart() VELTO_REQUIRES(lock_);
    void run();
    void cancelWithoutTelling();  ///< Cancels while the delegate hears nothing of it.
    void workItemEnded(MZWorkItem& item);
    void completeIfIdle();
    void storeStatus(MZWorkItemStatus status) VELTO_REQUIRES(lock_);
    void deliverReports();
    template <class Visit>
    void visitCompletedItems(const Visit& visit) const;
    template <class Entry>
    velto::Array serviceCalls(const Entry& entry) const;

    const std::vector<std::shared_ptr<MZWorkItem>> workItems_;
    std::atomic<MZWorkItemStatus> status_{MZWorkItemStatus::pending};
    std::atomic<std::int64_t> type_{0};
    std::atomic<bool> endTold_{false};  ///< Set by the manager.
    mutable velto::Lock lock_;
    std::size_t nextIndex_ VELTO_GUARDED_BY(lock_) = 0;
    std::size_t activeIndex_ VELTO_GUARDED_BY(lock_) = 0;
    /// What keeps the series from ending: items dispatched and not yet ended, and sweeps.
    std::size_t itemsUnderWay_ VELTO_GUARDED_BY(lock_) = 0;
    bool stopping_ VELTO_GUARDED_BY(lock_) = false;  ///< Ends as soon as nothing is under way.
    bool muted_ VELTO_GUARDED_BY(lock_) = false;     ///< The delegate hears nothing.
    MZOutbox<MZWorkItemStatus> outbox_;
    std::shared_ptr<MZWorkItem> activeItem_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeriesDelegate> delegate_ VELTO_GUARDED_BY(lock_);
    velto::Value userInfo_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Date> startTime_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Date> completeTime_ VELTO_GUARDED_BY(lock_);
};
