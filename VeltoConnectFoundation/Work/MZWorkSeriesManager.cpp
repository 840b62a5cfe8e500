#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/SmallQueue.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>

using velto::Guard;

namespace {

const velto::Setting maxCompletedWorkSetting("MZWorkSeriesManagerMaxCompletedWork",
                                             velto::SettingKind::integer,
                                             "10",
                                             "How many completed series the manager remembers",
                                             velto::SettingReach::remote);

struct DefaultManager {
    velto::Lock lock;
    std::shared_ptr<MZWorkSeriesManager> manager VELTO_GUARDED_BY(lock);
};

DefaultManager& defaultManagerHolder() {
    static auto* const holder = new DefaultManager;
    return *holder;
}

}  // namespace

/// One for each thread and manager: who starts series while an outer one of this thread is at it
/// leaves them to that one, so that series which end as they start make no recursion.
class MZWorkSeriesManager::Starts {
public:
    explicit Starts(MZWorkSeriesManager& manager) : manager_(manager), outer_(innermost) {
        innermost = this;
    }
    ~Starts() { innermost = outer_; }
    Starts(const Starts&) = delete;
    Starts& operator=(const Starts&) = delete;

    /// Decides, and has what was decided on started.
    template <class Decision>
    static void make(MZWorkSeriesManager& manager, const Decision& decide) {
        for (Starts* other = innermost; other != nullptr; other = other->outer_) {
            if (&other->manager_ == &manager) {
                decide(*other);
                return;
            }
        }
        const std::shared_ptr<MZWorkSeriesManager> alive = manager.weak_from_this().lock();
        Starts own(manager);
        std::exception_ptr failure;
        velto::keepingFirst(failure, [&] { decide(own); });
        while (const auto next = own.waiting_.take()) {
            velto::keepingFirst(failure, [&] {
                if (next->starts) {
                    (void)next->series->startIfPending();
                }
                if (next->series->hasEnded()) {
                    manager.seriesEnded(*next->series);  // perhaps before it was submitted
                }
            });
        }
        velto::rethrowIfAny(failure);
    }

    void add(std::shared_ptr<MZWorkSeries> series) { waiting_.add({std::move(series), true}); }
    /// It is not started, but it may have ended.
    void look(std::shared_ptr<MZWorkSeries> series) { waiting_.add({std::move(series), false}); }

private:
    static inline thread_local Starts* innermost = nullptr;
    MZWorkSeriesManager& manager_;
    Starts* const outer_;
    struct Entry {
        std::shared_ptr<MZWorkSeries> series;
        bool starts;
    };
    velto::SmallQueue<Entry> waiting_;
};

MZWorkSeriesManager::MZWorkSeriesManager(velto::PassKey)
    : operationQueue_(velto::OperationQueue::make()),
      maxCompletedWork_(maxCompletedWorkSetting.integerValue()) {
}

MZWorkSeriesManager::~MZWorkSeriesManager() = default;

std::shared_ptr<MZWorkSeriesManager> MZWorkSeriesManager::defaultManager() {
    DefaultManager& holder = defaultManagerHolder();
    Guard guard(holder.lock);
    if (holder.manager == nullptr) {
        holder.manager = velto::make<MZWorkSeriesManager>();
    }
    return holder.manager;
}

void MZWorkSeriesManager::setDefaultManager(std::shared_ptr<MZWorkSeriesManager> manager) {
    DefaultManager& holder = defaultManagerHolder();
    Guard guard(holder.lock);
    holder.manager.swap(manager);
}

void MZWorkSeriesManager::submitWork(std::shared_ptr<MZWorkSeries> series) {
    const std::shared_ptr<MZWorkSeriesManager> alive = weak_from_this().lock();
    if (!series->linkTo(alive)) {
        return;  // it was submitted before
    }
    series->setDelegate(alive);
    Starts::make(*this, [&](Starts& starts) {
        const std::int64_t type = series->type();
        const Guard guard(lock_);
        const auto record = waiting_.insert(waiting_.end(), {.series = series});
        records_.emplace(series.get(), record);
        const auto limit = types_.find(type);
        if (limit == types_.end() || !limit->second.throttle) {
            start(record, starts);
        } else {
            startOneOfType(type, starts);
            starts.look(series);
        }
    });
}

bool MZWorkSeriesManager::startOneOfType(std::int64_t type, Starts& starts) {
    const auto limit = types_.find(type);
    if (limit != types_.end() && !limit->second.hasRoom()) {
        return false;
    }
    const auto next = std::ranges::find_if(waiting_, [&](const Record& record) {
        return record.series->type() == type && record.series->isPending();
    });
    if (next == waiting_.end()) {
        return false;
    }
    start(next, starts);
    return true;
}

void MZWorkSeriesManager::start(Records::iterator record, Starts& starts) {
    Records none;
    starts.add(record->series);
    record->type = record->series->type();
    (void)step(record, MZSubmittedEvent::start, none);
}

MZSubmittedStep MZWorkSeriesManager::step(Records::iterator record,
                                          MZSubmittedEvent event,
                                          Records& forgotten) {
    const MZSubmittedState before = record->state;
    const MZSubmittedStep step = MZSubmittedStepAfter(before, event);
    record->state = step.next;
    if (step.has(MZSubmittedCounts)) {
        ++types_[record->type].active;
    }
    if (step.has(MZSubmittedFrees)) {
        const auto type = types_.find(record->type);
        if (--type->second.active == 0 && !type->second.throttle) {
            types_.erase(type);
        }
    }
    if (step.next == MZSubmittedState::gone) {
        records_.erase(record->series.get());
    }
    if (step.has(MZSubmittedRemembers)) {
        // Required: counted before adding, so the history holds up to one more than the maximum.
        auto count = static_cast<std::int64_t>(completed_.size());
        completed_.splice(completed_.end(), list(before), record);
        for (; count > std::max<std::int64_t>(maxCompletedWork_, 0); --count) {
            forget(completed_.begin(), forgotten);
        }
    } else if (step.has(MZSubmittedCounts)) {
        running_.splice(running_.end(), waiting_, record);
    } else if (record->isForgotten && step.next == MZSubmittedState::gone) {
        forgotten.splice(forgotten.end(), dismissed_, record);
    }
    return step;
}

void MZWorkSeriesManager::forget(Records::iterator record, Records& forgotten) {
    record->isForgotten = true;
    Records& to = record->state == MZSubmittedState::gone ? forgotten : dismissed_;
    to.splice(to.end(), completed_, record);
}

MZWorkSeriesManager::Records& MZWorkSeriesManager::list(MZSubmittedState state) {
    return state == MZSubmittedState::waiting ? waiting_ : running_;
}

void MZWorkSeriesManager::seriesEnded(MZWorkSeries& series) {
    Records forgotten;
    Starts::make(*this, [&](Starts& starts) {
        std::shared_ptr<MZWorkSeriesDelegate> listener;
        {
            const Guard guard(lock_);
            const auto found = records_.find(&series);
            if (found == records_.end()) {
                return;
            }
            const std::int64_t type = found->second->type;
            const bool isTold = std::exchange(found->second->isTold, true);
            const MZSubmittedStep ended = step(found->second, MZSubmittedEvent::end, forgotten);
            if (ended.has(MZSubmittedTells) && !isTold) {
                listener = delegate_.lock();
            }
            if (ended.has(MZSubmittedFrees)) {
                startOneOfType(type, starts);
            }
        }
        if (listener != nullptr) {
            listener->workSeriesStatusChanged(series, MZWorkItemStatus::completed);
        }
    });
}

void MZWorkSeriesManager::workSeriesStatusChanged(MZWorkSeries& series, MZWorkItemStatus status) {
    if (status != MZWorkItemStatus::cancelled && status != MZWorkItemStatus::completed) {
        return;
    }
    std::shared_ptr<MZWorkSeriesDelegate> listener;
    {
        const Guard guard(lock_);
        const auto found = records_.find(&series);
        const bool isHere =
            found != records_.end() && (found->second->state == MZSubmittedState::waiting ||
                                        found->second->state == MZSubmittedState::running);
        if (isHere && (status == MZWorkItemStatus::cancelled ||
                       !std::exchange(found->second->isTold, true))) {
            listener = delegate_.lock();
        }
    }
    if (listener != nullptr) {
        Starts::make(*this, [&](Starts&) { listener->workSeriesStatusChanged(series, status); });
    }
}

void MZWorkSeriesManager::cancelAllWork() {
    SeriesList cancelled;
    Records forgotten;
    {
        const Guard guard(lock_);
        cancelled.reserve(waiting_.size() + running_.size());
        for (Records* const records : {&waiting_, &running_}) {
            while (!records->empty()) {
                cancelled.push_back(records->front().series);
                (void)step(records->begin(), MZSubmittedEvent::dismiss, forgotten);
            }
        }
    }
    std::exception_ptr failure;
    for (const std::shared_ptr<MZWorkSeries>& series : cancelled) {
        series->setDelegate({});
        velto::keepingFirst(failure, [&] { series->cancel(); });
        series->setDelegate(weak_from_this());
    }
    velto::rethrowIfAny(failure);
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::activeWork() const {
    SeriesList all;
    const Guard guard(lock_);
    for (const Records* const records : {&waiting_, &running_}) {
        std::ranges::transform(*records, std::back_inserter(all), &Record::series);
    }
    return all;
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::completedWork() const {
    SeriesList all;
    const Guard guard(lock_);
    std::ranges::transform(completed_, std::back_inserter(all), &Record::series);
    return all;
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::allWork() const {
    const Guard guard(lock_);
    SeriesList all = completedWork();
    std::ranges::copy(activeWork(), std::back_inserter(all));
    return all;
}

void MZWorkSeriesManager::removeSeriesFromCompletedWork(
    const std::shared_ptr<MZWorkSeries>& series) {
    Records forgotten;  // let go of after the lock
    const Guard guard(lock_);
    const auto found = std::ranges::find(completed_, series, &Record::series);
    if (found != completed_.end()) {
        forget(found, forgotten);
    }
}

void MZWorkSeriesManager::clearCompletedWork() {
    Records forgotten;  // let go of after the lock
    const Guard guard(lock_);
    while (!completed_.empty()) {
        forget(completed_.begin(), forgotten);
    }
}

std::optional<std::uint32_t> MZWorkSeriesManager::throttleForType(std::int64_t type) const {
    const Guard guard(lock_);
    const auto limit = types_.find(type);
    return limit == types_.end() ? std::nullopt : limit->second.throttle;
}

void MZWorkSeriesManager::setThrottle(std::optional<std::uint32_t> throttle, std::int64_t type) {
    Starts::make(*this, [&](Starts& starts) {
        const Guard guard(lock_);
        types_[type].throttle = throttle;
        while (startOneOfType(type, starts)) {
        }
        if (const auto limit = types_.find(type);
            limit->second.active == 0 && !limit->second.throttle) {
            types_.erase(limit);
        }
    });
}

std::int64_t MZWorkSeriesManager::maxCompletedWork() const {
    Guard guard(lock_);
    return maxCompletedWork_;
}

void MZWorkSeriesManager::setMaxCompletedWork(std::int64_t count) {
    Guard guard(lock_);
    maxCompletedWork_ = count;
}

std::shared_ptr<velto::OperationQueue> MZWorkSeriesManager::operationQueue() {
    return operationQueue_;
}

std::shared_ptr<MZWorkSeriesDelegate> MZWorkSeriesManager::delegate() const {
    Guard guard(lock_);
    return delegate_.lock();
}

void MZWorkSeriesManager::setDelegate(std::weak_ptr<MZWorkSeriesDelegate> delegate) {
    Guard guard(lock_);
    delegate_ = std::move(delegate);
}

std::string MZWorkSeriesManager::description() const {
    Guard guard(lock_);
    return velto::format("%@ pending: %lu active: %lu completed: %lu",
                         velto::defaultDescription(typeid(*this), this), waiting_.size(),
                         running_.size(), completed_.size());
}
