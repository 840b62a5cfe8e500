#pragma once

#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <deque>
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

    /// Starts the series at once, or when its type's throttle allows it. One that is active stays
    /// as it is.
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

    void workSeriesStatusChanged(MZWorkSeries& series, MZWorkItemStatus status) override;

    std::string description() const;

private:
    /// Series in order, with removal of any of them in constant time.
    class SeriesQueue {
    public:
        bool add(const std::shared_ptr<MZWorkSeries>& series);
        std::shared_ptr<MZWorkSeries> take(const MZWorkSeries* series);  ///< Null when not here.
        const std::list<std::shared_ptr<MZWorkSeries>>& list() const { return list_; }
        void clear();

    private:
        std::list<std::shared_ptr<MZWorkSeries>> list_;
        std::unordered_map<const MZWorkSeries*, std::list<std::shared_ptr<MZWorkSeries>>::iterator>
            index_;
    };

    void startNext(const std::shared_ptr<MZWorkSeries>& series);
    /// Starts at most one series. In a loop, for series may end as soon as they are started.
    void startNextOfType(std::int64_t type);
    /// False when the throttle or the list allows none.
    bool startOneOfType(std::int64_t type);
    void activate(const std::shared_ptr<MZWorkSeries>& series) VELTO_REQUIRES(lock_);
    /// Answers the type that has room again.
    std::int64_t deactivate(const MZWorkSeries& series) VELTO_REQUIRES(lock_);
    /// What had to make room goes to `forgotten`, to be let go of after the lock.
    void addToHistory(std::shared_ptr<MZWorkSeries> series, SeriesList& forgotten)
        VELTO_REQUIRES(lock_);
    /// Moves a series that has ended out of the lists; answers its type, or none when it had been
    /// moved before.
    std::optional<std::int64_t> retire(MZWorkSeries& series) VELTO_EXCLUDES(lock_);

    const std::shared_ptr<velto::OperationQueue> operationQueue_;
    mutable velto::Lock lock_;
    SeriesQueue pending_ VELTO_GUARDED_BY(lock_);
    SeriesQueue active_ VELTO_GUARDED_BY(lock_);
    SeriesQueue lingering_ VELTO_GUARDED_BY(lock_);  ///< Cancelled while active, and not yet ended.
    std::deque<std::shared_ptr<MZWorkSeries>> completed_ VELTO_GUARDED_BY(lock_);
    /// The type under which each active or lingering series was counted.
    std::unordered_map<const MZWorkSeries*, std::int64_t> countedAs_ VELTO_GUARDED_BY(lock_);
    std::unordered_map<std::int64_t, std::uint32_t> activeOfType_ VELTO_GUARDED_BY(lock_);
    std::unordered_map<std::int64_t, std::uint32_t> throttles_ VELTO_GUARDED_BY(lock_);
    std::int64_t maxCompletedWork_ VELTO_GUARDED_BY(lock_);
    std::weak_ptr<MZWorkSeriesDelegate> delegate_ VELTO_GUARDED_BY(lock_);
    MZOutbox<std::int64_t> typesWithRoom_;
};
