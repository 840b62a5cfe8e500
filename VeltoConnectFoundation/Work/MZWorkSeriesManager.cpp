#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
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

bool MZWorkSeriesManager::SeriesQueue::add(const std::shared_ptr<MZWorkSeries>& series) {
    const auto [place, added] = index_.try_emplace(series.get());
    if (added) {
        place->second = list_.insert(list_.end(), series);
    }
    return added;
}

std::shared_ptr<MZWorkSeries> MZWorkSeriesManager::SeriesQueue::take(const MZWorkSeries* series) {
    const auto place = index_.find(series);
    if (place == index_.end()) {
        return nullptr;
    }
    std::shared_ptr<MZWorkSeries> taken = std::move(*place->second);
    list_.erase(place->second);
    index_.erase(place);
    return taken;
}

void MZWorkSeriesManager::SeriesQueue::clear() {
    list_.clear();
    index_.clear();
}

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
    series->setDelegate(weak_from_this());
    {
        Guard guard(lock_);
        if (countedAs_.contains(series.get())) {
            return;
        }
        pending_.add(series);
    }
    if (series->status() == MZWorkItemStatus::completed) {
        workSeriesStatusChanged(
            *series, MZWorkItemStatus::completed);  // it was cancelled before it got here
    } else {
        startNext(series);
    }
}

void MZWorkSeriesManager::startNext(const std::shared_ptr<MZWorkSeries>& series) {
    const std::int64_t type = series->type();
    bool starts = false;
    {
        Guard guard(lock_);
        if (!throttles_.contains(type)) {
            if (pending_.take(series.get()) == nullptr) {
                return;
            }
            activate(series);
            starts = true;
        }
    }
    if (starts) {
        series->startIfPending();
    } else {
        startNextOfType(type);
    }
}

void MZWorkSeriesManager::startNextOfType(std::int64_t type) {
    {
        Guard guard(lock_);
        typesWithRoom_.add(type);
    }
    rethrowFirst(
        {typesWithRoom_.deliver(lock_, [this](std::int64_t next) { startOneOfType(next); })});
}

bool MZWorkSeriesManager::startOneOfType(std::int64_t type) {
    std::shared_ptr<MZWorkSeries> next;
    {
        Guard guard(lock_);
        const auto throttle = throttles_.find(type);
        if (throttle == throttles_.end() || activeOfType_[type] >= throttle->second) {
            return false;
        }
        const auto found = std::ranges::find_if(pending_.list(), [&](const auto& series) {
            return series->type() == type && series->status() == MZWorkItemStatus::pending;
        });
        if (found == pending_.list().end()) {
            return false;
        }
        next = pending_.take(found->get());
        activate(next);
    }
    next->startIfPending();
    return true;
}

void MZWorkSeriesManager::activate(const std::shared_ptr<MZWorkSeries>& series) {
    const std::int64_t type = series->type();
    active_.add(series);
    countedAs_[series.get()] = type;
    ++activeOfType_[type];
}

std::int64_t MZWorkSeriesManager::deactivate(const MZWorkSeries& series) {
    const auto counted = countedAs_.find(&series);
    const std::int64_t type = counted->second;
    countedAs_.erase(counted);
    if (const auto count = activeOfType_.find(type); --count->second == 0) {
        activeOfType_.erase(count);
    }
    return type;
}

void MZWorkSeriesManager::addToHistory(std::shared_ptr<MZWorkSeries> series,
                                       SeriesList& forgotten) {
    auto before = static_cast<std::int64_t>(completed_.size());
    completed_.push_back(std::move(series));
    // Required: counted before adding, so the history holds up to one more than the maximum.
    for (; before > std::max<std::int64_t>(maxCompletedWork_, 0); --before) {
        forgotten.push_back(std::move(completed_.front()));
        completed_.pop_front();
    }
}

std::optional<std::int64_t> MZWorkSeriesManager::retire(MZWorkSeries& series) {
    SeriesList forgotten;
    Guard guard(lock_);
    if (std::shared_ptr<MZWorkSeries> ended = active_.take(&series)) {
        const std::int64_t type = deactivate(series);
        addToHistory(std::move(ended), forgotten);
        return type;
    }
    if (std::shared_ptr<MZWorkSeries> ended = pending_.take(&series)) {
        addToHistory(std::move(ended), forgotten);
        return series.type();
    }
    if (lingering_.take(&series) != nullptr) {
        return deactivate(series);
    }
    return std::nullopt;
}

void MZWorkSeriesManager::workSeriesStatusChanged(MZWorkSeries& series, MZWorkItemStatus status) {
    if (status != MZWorkItemStatus::cancelled && status != MZWorkItemStatus::completed) {
        return;
    }
    // The end of a series that is cancelled while it is being submitted comes twice.
    const bool isNews = status != MZWorkItemStatus::completed || !series.endTold_.exchange(true);
    const std::optional<std::int64_t> type = retire(series);
    std::exception_ptr failure;
    if (const std::shared_ptr<MZWorkSeriesDelegate> listener = delegate(); listener && isNews) {
        keepingFirst(failure, [&] { listener->workSeriesStatusChanged(series, status); });
    }
    if (type) {
        keepingFirst(failure, [&] { startNextOfType(*type); });
    }
    rethrowFirst({failure});
}

void MZWorkSeriesManager::cancelAllWork() {
    SeriesList cancelled;
    SeriesList forgotten;
    {
        Guard guard(lock_);
        for (const std::shared_ptr<MZWorkSeries>& series : pending_.list()) {
            cancelled.push_back(series);
            addToHistory(series, forgotten);
        }
        for (const std::shared_ptr<MZWorkSeries>& series : active_.list()) {
            cancelled.push_back(series);
            addToHistory(series, forgotten);
            lingering_.add(series);
        }
        pending_.clear();
        active_.clear();
    }
    std::exception_ptr failure;
    for (const std::shared_ptr<MZWorkSeries>& series : cancelled) {
        keepingFirst(failure, [&] { series->cancelWithoutTelling(); });
    }
    for (const std::shared_ptr<MZWorkSeries>& series : cancelled) {
        if (series->isActive()) {
            continue;
        }
        if (const auto type = retire(*series)) {  // it ended unheard: its place is free
            keepingFirst(failure, [&] { startNextOfType(*type); });
        }
    }
    rethrowFirst({failure});
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::activeWork() const {
    Guard guard(lock_);
    SeriesList all(pending_.list().begin(), pending_.list().end());
    all.insert(all.end(), active_.list().begin(), active_.list().end());
    return all;
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::completedWork() const {
    Guard guard(lock_);
    return SeriesList(completed_.begin(), completed_.end());
}

MZWorkSeriesManager::SeriesList MZWorkSeriesManager::allWork() const {
    Guard guard(lock_);
    SeriesList all(completed_.begin(), completed_.end());
    const SeriesList current = activeWork();
    all.insert(all.end(), current.begin(), current.end());
    return all;
}

void MZWorkSeriesManager::removeSeriesFromCompletedWork(
    const std::shared_ptr<MZWorkSeries>& series) {
    Guard guard(lock_);
    std::erase(completed_, series);
}

void MZWorkSeriesManager::clearCompletedWork() {
    std::deque<std::shared_ptr<MZWorkSeries>> forgotten;  // let go of after the lock
    Guard guard(lock_);
    completed_.swap(forgotten);
}

std::optional<std::uint32_t> MZWorkSeriesManager::throttleForType(std::int64_t type) const {
    Guard guard(lock_);
    const auto throttle = throttles_.find(type);
    return throttle == throttles_.end() ? std::nullopt : std::optional(throttle->second);
}

void MZWorkSeriesManager::setThrottle(std::optional<std::uint32_t> throttle, std::int64_t type) {
    SeriesList freed;
    {
        Guard guard(lock_);
        if (throttle) {
            throttles_[type] = *throttle;
        } else if (throttles_.erase(type) != 0) {
            std::ranges::copy_if(pending_.list(), std::back_inserter(freed),
                                 [&](const auto& series) { return series->type() == type; });
        }
    }
    for (const std::shared_ptr<MZWorkSeries>& series : freed) {
        startNext(series);
    }
    while (throttle && startOneOfType(type)) {
    }
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
                         velto::defaultDescription(typeid(*this), this), pending_.list().size(),
                         active_.list().size(), completed_.size());
}
