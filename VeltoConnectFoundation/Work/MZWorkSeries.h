#pragma once

#include <VeltoConnectFoundation/Work/MZWorkItem.h>

#include <array>

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
/// of it runs any more: hasErrors() tells failure, isCancelled() cancellation. It runs once. What
/// happens to its items reaches it whoever is their delegate (MZSeriesMachine, WorkStates.h).
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
    /// Hands the next item to the operation queue, beside those that run; without one left the
    /// series ends when none runs any more.
    void dispatchNextItem();

    const std::vector<std::shared_ptr<MZWorkItem>>& workItems() const { return workItems_; }
    MZWorkItemStatus status() const { return status_.load(); }
    /// What is shown and told to the delegate, not what happens: items run and the series ends as
    /// before. 3 is told and posted once. Raises the first exception of those told.
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

    /// Does nothing unless the item has completed or was cancelled: a status that was only set is
    /// not taken for the fact.
    void workItemStatusChanged(MZWorkItem& item, MZWorkItemStatus status) override;

    std::string description() const;

private:
    friend class MZWorkItem;
    friend class MZWorkSeriesManager;

    /// What has to be told after the lock, in the order of its members.
    struct Report {
        MZWorkItemStatus status;
        bool ends;       ///< To the managers.
        bool isShown;    ///< To the delegate.
        bool completes;  ///< It is posted, and the items hear of it: for the first 3.
    };

    /// The manager hears of the series' end, once. False when it was told to do so before.
    [[nodiscard]] bool linkTo(const std::weak_ptr<MZWorkSeriesManager>& manager);
    bool hasEnded() const { return phase_ == Phase::ended; }
    bool isPending() const { return phase_ == Phase::pending; }
    MZSeriesMachine::Start startIfPending();
    /// The item that stands first at `index` was cancelled, has completed, or has ended.
    void itemPassed(std::size_t index) { handOut(passItem(index)); }

    /// Where the item whose turn has come stands first; none when it is nobody's turn.
    using Turn = std::optional<std::size_t>;
    Turn takeTurn() VELTO_REQUIRES(lock_);
    /// Takes in what has become of the item; answers whose turn has come by that.
    Turn passItem(std::size_t index);
    void handOut(Turn turn);
    void enqueue(const std::shared_ptr<MZWorkItem>& item);
    void passSwept(std::size_t index);
    /// Cancels the items from `first` on; answers the first exception.
    [[nodiscard]] std::exception_ptr sweepFrom(std::size_t first);
    /// At the end of whatever changed the machine: shows what has come of it.
    void settle() VELTO_REQUIRES(lock_);
    void storeStatus(MZWorkItemStatus status, bool ends = false) VELTO_REQUIRES(lock_);
    void deliverReports(std::exception_ptr* failure = nullptr);
    void tell(const Report& report);
    /// None behind the last.
    std::optional<std::weak_ptr<MZWorkSeriesManager>> manager(std::size_t number) const;
    /// Takes what waits out of the row, or only stops; answers from which item on.
    std::size_t beginSweep() VELTO_REQUIRES(lock_);
    std::size_t firstIndex(std::size_t index) const VELTO_REQUIRES(lock_);
    MZItemPlace& place(std::size_t index) VELTO_REQUIRES(lock_);
    template <class Visit>
    void visitCompletedItems(const Visit& visit) const;
    template <class Entry>
    velto::Array serviceCalls(const Entry& entry) const;

    static constexpr std::size_t fewItems = 8;

    const std::vector<std::shared_ptr<MZWorkItem>> workItems_;
    std::atomic<MZWorkItemStatus> status_{MZWorkItemStatus::pending};  ///< As it is shown.
    std::atomic<std::int64_t> type_{0};
    /// Of the machine, for a manager, which takes no series' lock under its own.
    enum class Phase : std::uint8_t { pending, begun, ended };
    std::atomic<Phase> phase_{Phase::pending};
    mutable velto::Lock lock_;
    MZSeriesMachine machine_ VELTO_GUARDED_BY(lock_);
    /// One for each item; of one that stands in the list again, the first counts.
    std::array<MZItemPlace, fewItems> fewPlaces_ VELTO_GUARDED_BY(lock_){};
    std::vector<MZItemPlace> manyPlaces_ VELTO_GUARDED_BY(lock_);
    /// By index, where that item stands first; empty when none stands in the list again.
    std::vector<std::size_t> firstIndexes_ VELTO_GUARDED_BY(lock_);
    std::size_t activeIndex_ VELTO_GUARDED_BY(lock_) = 0;
    velto::Outbox<Report> outbox_{lock_, "a delegate or worker of a work series"};
    std::shared_ptr<MZWorkItem> activeItem_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeriesDelegate> delegate_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeriesManager> manager_
        VELTO_GUARDED_BY(lock_);  ///< Most often the only one.
    std::vector<std::weak_ptr<MZWorkSeriesManager>> moreManagers_ VELTO_GUARDED_BY(lock_);
    velto::Value userInfo_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Date> startTime_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Date> completeTime_ VELTO_GUARDED_BY(lock_);
    bool isCompletionTold_ VELTO_GUARDED_BY(lock_) = false;
};
