#pragma once

#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <list>
#include <unordered_map>

/// Schedules series: keeps the pending, active and completed ones, owns the operation queue,
/// limits how many series of one type run at once, and keeps a bounded history.
///
///     auto series = MZWorkSeries::seriesWithWork(worker);
///     MZWorkSeriesManager::defaultManager()->submitWork(series);
///
/// Any member may be called from any thread; each takes the manager's own lock, and lists are
/// returned as copies.
class VELTO_EXPORT MZWorkSeriesManager final
    : public MZWorkSeriesDelegate,
      public std::enable_shared_from_this<MZWorkSeriesManager> {
public:
    using SeriesList = std::vector<std::shared_ptr<MZWorkSeries>>;

    explicit MZWorkSeriesManager(velto::PassKey);  ///< Use velto::make<MZWorkSeriesManager>().
    ~MZWorkSeriesManager() override;

    static std::shared_ptr<MZWorkSeriesManager> defaultManager();  ///< Made on first use.
    static void setDefaultManager(std::shared_ptr<MZWorkSeriesManager> manager);

    /// Starts the series before it returns, or when its type's throttle allows it; inside a report
    /// or a start of this manager, when that is over. One that was submitted before stays as it
    /// is; one that has ended enters the history at once.
    void submitWork(std::shared_ptr<MZWorkSeries> series);
    SeriesList activeWork() const;     ///< Pending, then active.
    SeriesList completedWork() const;  ///< Oldest first.
    SeriesList allWork() const;        ///< Completed, then pending, then active.
    /// Cancels what is pending or active and moves it to the history. What still runs counts
    /// against its throttle until it has ended.
    void cancelAllWork();
    void removeSeriesFromCompletedWork(const std::shared_ptr<MZWorkSeries>& series);
    void clearCompletedWork();

    /// How many series of the type may be active at once; none without a limit. A wider limit
    /// starts what it allows.
    std::optional<std::uint32_t> throttleForType(std::int64_t type) const;
    void setThrottle(std::optional<std::uint32_t> throttle, std::int64_t type);
    /// The history holds one more than this. From the setting
    /// "MZWorkSeriesManagerMaxCompletedWork" when the manager is made.
    std::int64_t maxCompletedWork() const;
    void setMaxCompletedWork(std::int64_t count);

    std::shared_ptr<velto::OperationQueue> operationQueue() override;
    /// Held weakly; told of every series that has ended.
    std::shared_ptr<MZWorkSeriesDelegate> delegate() const;
    void setDelegate(std::weak_ptr<MZWorkSeriesDelegate> delegate);

    /// The delegate is told of 2, and once of 3; the series stays where it is until it ends.
    void workSeriesStatusChanged(MZWorkSeries& series, MZWorkItemStatus status) override;

    std::string description() const;

private:
    friend class MZWorkSeries;

    struct Record {
        std::shared_ptr<MZWorkSeries> series;
        MZSubmittedState state = MZSubmittedState::waiting;
        std::int64_t type = 0;     ///< Under which it counts while it has a place.
        bool isForgotten = false;  ///< The history held it, and holds it no more.
        bool isTold = false;       ///< That it has completed, to the delegate.
    };
    using Records = std::list<Record>;
    struct TypeLimit {
        std::uint32_t active = 0;
        std::optional<std::uint32_t> throttle;

        bool hasRoom() const { return !throttle || active < *throttle; }
    };
    /// The series that this thread has yet to start; starts never nest.
    class Starts;

    void seriesEnded(MZWorkSeries& series);
    /// Steps through the table, moves the record to where it belongs, and counts. Needs no memory,
    /// so that no end is lost for want of it.
    MZSubmittedStep step(Records::iterator record, MZSubmittedEvent event, Records& forgotten)
        VELTO_REQUIRES(lock_);
    Records& list(MZSubmittedState state) VELTO_REQUIRES(lock_);
    /// Starts the first of the type that waits, if there is room; false when there was none.
    bool startOneOfType(std::int64_t type, Starts& starts) VELTO_REQUIRES(lock_);
    void start(Records::iterator record, Starts& starts) VELTO_REQUIRES(lock_);
    /// Takes a record out of the history; what was let go of by that goes to `forgotten`.
    void forget(Records::iterator record, Records& forgotten) VELTO_REQUIRES(lock_);

    const std::shared_ptr<velto::OperationQueue> operationQueue_;
    mutable velto::Lock lock_;
    Records waiting_ VELTO_GUARDED_BY(lock_);
    Records running_ VELTO_GUARDED_BY(lock_);
    Records completed_
        VELTO_GUARDED_BY(lock_);  ///< The history; also of some that have yet to end.
    Records dismissed_ VELTO_GUARDED_BY(lock_);  ///< These, when the history holds them no more.
    /// Of the series that have yet to end.
    std::unordered_map<const MZWorkSeries*, Records::iterator> records_ VELTO_GUARDED_BY(lock_);
    std::unordered_map<std::int64_t, TypeLimit> types_ VELTO_GUARDED_BY(lock_);
    std::int64_t maxCompletedWork_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeriesDelegate> delegate_ VELTO_GUARDED_BY(lock_);
};
