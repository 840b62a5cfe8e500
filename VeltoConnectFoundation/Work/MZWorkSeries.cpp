#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZServiceCallWorker.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <algorithm>
#include <numeric>

using velto::Array;
using velto::Clock;
using velto::Dictionary;
using velto::Exception;
using velto::Guard;
using velto::Value;

namespace {

/// Answers the first exception after all have been visited.
template <class Visit>
std::exception_ptr visitAll(std::span<const std::shared_ptr<MZWorkItem>> items,
                            const Visit& visit) {
    std::exception_ptr failure;
    for (const std::shared_ptr<MZWorkItem>& item : items) {
        velto::keepingFirst(failure, [&] { visit(*item); });
    }
    return failure;
}

}  // namespace

MZWorkSeriesDelegate::~MZWorkSeriesDelegate() = default;
void MZWorkSeriesDelegate::workSeriesStatusChanged(MZWorkSeries&, MZWorkItemStatus) {
}
std::shared_ptr<velto::OperationQueue> MZWorkSeriesDelegate::operationQueue() {
    return nullptr;
}

MZWorkSeries::MZWorkSeries(velto::PassKey, std::vector<std::shared_ptr<MZWorkItem>> workItems)
    : workItems_(std::move(workItems)),
      manyPlaces_(workItems_.size() > fewItems ? workItems_.size() : 0) {
}

MZWorkSeries::~MZWorkSeries() = default;

std::shared_ptr<MZWorkSeries> MZWorkSeries::seriesWithWork(
    std::shared_ptr<MZAbstractWorker> worker) {
    return seriesWithWorkItem(MZWorkItem::itemWithWorker(std::move(worker)));
}

std::shared_ptr<MZWorkSeries> MZWorkSeries::seriesWithWorkItem(std::shared_ptr<MZWorkItem> item) {
    return seriesWithWorkItems({std::move(item)});
}

std::shared_ptr<MZWorkSeries> MZWorkSeries::seriesWithWorkItems(
    std::vector<std::shared_ptr<MZWorkItem>> items) {
    return velto::make<MZWorkSeries>(std::move(items));
}

void MZWorkSeries::didCreate() {
    std::vector<std::size_t> firsts;
    for (std::size_t index = 0; index < workItems_.size(); ++index) {
        MZWorkItem& item = *workItems_[index];
        item.setDelegate(weak_from_this());
        item.setSeries(weak_from_this());
        const std::size_t first = item.linkTo(weak_from_this(), index);
        if (first != index && firsts.empty()) {
            firsts.resize(workItems_.size());
            std::iota(firsts.begin(), firsts.end(), std::size_t(0));
        }
        if (!firsts.empty()) {
            firsts[index] = first;
        }
    }
    const Guard guard(lock_);
    firstIndexes_ = std::move(firsts);
}

void MZWorkSeries::start() {
    if (startIfPending() == MZSeriesMachine::Start::again) {
        throw Exception(
            velto::InternalInconsistencyException,
            velto::format("Calling start more than once on a work series: %@", description()));
    }
}

MZSeriesMachine::Start MZWorkSeries::startIfPending() {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    Turn turn;
    {
        const Guard guard(lock_);
        if (const auto start = machine_.start(); start != MZSeriesMachine::Start::runs) {
            return start;
        }
        startTime_ = Clock::now();
        completeTime_.reset();
        storeStatus(MZWorkItemStatus::running);
        turn = takeTurn();
        settle();
    }
    deliverReports();
    handOut(turn);
    return MZSeriesMachine::Start::runs;
}

void MZWorkSeries::dispatchNextItem() {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    Turn turn;
    {
        const Guard guard(lock_);
        turn = takeTurn();
        settle();
    }
    deliverReports();
    handOut(turn);
}

MZWorkSeries::Turn MZWorkSeries::takeTurn() {
    while (const std::optional<std::size_t> index = machine_.takeTurn(workItems_.size())) {
        activeIndex_ = *index;
        activeItem_ = workItems_[*index];
        const std::size_t first = firstIndex(*index);
        if (machine_.await(place(first))) {
            return first;
        }
    }
    return std::nullopt;
}

std::size_t MZWorkSeries::firstIndex(std::size_t index) const {
    return firstIndexes_.empty() ? index : firstIndexes_[index];
}

MZItemPlace& MZWorkSeries::place(std::size_t index) {
    return manyPlaces_.empty() ? fewPlaces_[index] : manyPlaces_[index];
}

MZWorkSeries::Turn MZWorkSeries::passItem(std::size_t index) {
    const MZWorkItem& item = *workItems_[index];
    const bool ends = item.hasEnded();
    const bool fails = item.hasFailed();
    Turn turn;
    std::size_t swept = workItems_.size();
    {
        const Guard guard(lock_);
        const bool advances = machine_.pass(place(index), ends);
        if (fails) {
            swept = beginSweep();
        } else if (advances) {
            turn = takeTurn();
        }
        settle();
    }
    deliverReports();
    velto::rethrowIfAny(sweepFrom(swept));
    return turn;
}

void MZWorkSeries::handOut(Turn turn) {
    while (turn) {
        const std::shared_ptr<MZWorkItem>& item = workItems_[*turn];
        if (!item->hasEnded()) {
            enqueue(item);
            return;
        }
        turn = passItem(*turn);  // it ended before its turn: that counts for it
    }
}

void MZWorkSeries::enqueue(const std::shared_ptr<MZWorkItem>& item) {
    if (item->state() != MZItemState::pending) {
        return;  // it runs elsewhere, and is awaited
    }
    try {
        if (const std::shared_ptr<velto::OperationQueue> queue = operationQueue()) {
            (void)queue->addOperationIfNew(item);
        }
    } catch (...) {
        // It will never run: an error of the work, and its end.
        const velto::Finally end([&] { item->threadCompleted(); });
        item->addUncaught();
    }
}

std::size_t MZWorkSeries::beginSweep() {
    if (!machine_.hasWaiting(workItems_.size())) {
        machine_.stop();
        return workItems_.size();
    }
    const std::size_t first = machine_.beginSweep(workItems_.size());
    for (std::size_t index = first; index < workItems_.size(); ++index) {
        machine_.sweep(place(firstIndex(index)));
    }
    return first;
}

/// One that had ended before it was swept tells nobody any more.
void MZWorkSeries::passSwept(std::size_t index) {
    if (workItems_[index]->hasEnded()) {
        const Guard guard(lock_);
        (void)machine_.pass(place(firstIndex(index)), true);
    }
}

std::exception_ptr MZWorkSeries::sweepFrom(std::size_t first) {
    if (first == workItems_.size()) {
        return nullptr;
    }
    std::exception_ptr failure;
    for (std::size_t index = first; index < workItems_.size(); ++index) {
        velto::keepingFirst(failure, [&] {
            workItems_[index]->setDelegate({});
            workItems_[index]->cancel();
        });
        velto::keepingFirst(failure, [&] { passSwept(index); });
    }
    {
        const Guard guard(lock_);
        machine_.endStop();
        settle();
    }
    deliverReports();
    return failure;
}

void MZWorkSeries::workItemStatusChanged(MZWorkItem& item, MZWorkItemStatus status) {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    const MZItemState state = item.state();
    const bool isFact = status == MZWorkItemStatus::completed   ? MZItemHasCompleted(state)
                        : status == MZWorkItemStatus::cancelled ? MZItemWasCancelled(state)
                                                                : false;
    const auto place = std::ranges::find(workItems_, &item, &std::shared_ptr<MZWorkItem>::get);
    if (isFact && place != workItems_.end()) {
        itemPassed(static_cast<std::size_t>(place - workItems_.begin()));
    }
}

void MZWorkSeries::cancelRemainingJobs() {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    std::size_t first = workItems_.size();
    {
        const Guard guard(lock_);
        first = beginSweep();
        settle();
    }
    deliverReports();
    velto::rethrowIfAny(sweepFrom(first));
}

void MZWorkSeries::cancel() {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    {
        const Guard guard(lock_);
        machine_.beginStop();
        settle();
    }
    std::exception_ptr failure = visitAll(workItems_, [](MZWorkItem& item) { item.cancel(); });
    velto::keepingFirst(failure, [this] {
        velto::rethrowIfAny(visitAll(workItems_, [](MZWorkItem& item) {
            item.worker()->setWorkStatus(MZWorkStatusCancelled);
        }));
    });
    {
        const Guard guard(lock_);
        machine_.endStop();
        settle();
    }
    deliverReports();
    velto::rethrowIfAny(failure);
}

void MZWorkSeries::settle() {
    if (machine_.settles()) {
        storeStatus(MZWorkItemStatus::completed, true);
    }
    phase_ = machine_.hasEnded()    ? Phase::ended
             : machine_.isPending() ? Phase::pending
                                    : Phase::begun;
}

void MZWorkSeries::setStatus(MZWorkItemStatus status) {
    {
        const Guard guard(lock_);
        storeStatus(status);
    }
    std::exception_ptr failure;
    deliverReports(&failure);
    velto::rethrowIfAny(failure);
}

void MZWorkSeries::storeStatus(MZWorkItemStatus status, bool ends) {
    const bool completes = status == MZWorkItemStatus::completed;
    const bool isFirst = completes && !std::exchange(isCompletionTold_, true);
    const bool isShown = !completes || isFirst || status_ != status;
    status_ = status;
    if (isFirst || ends) {
        completeTime_ = Clock::now();
    }
    if (isShown || ends) {
        outbox_.add({.status = status, .ends = ends, .isShown = isShown, .completes = isFirst});
    }
}

void MZWorkSeries::deliverReports(std::exception_ptr* failure) {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    outbox_.deliver([this](const Report& report) { tell(report); }, failure);
}

void MZWorkSeries::tell(const Report& report) {
    std::exception_ptr failure;
    std::shared_ptr<MZWorkSeriesDelegate> listener = report.isShown ? delegate() : nullptr;
    std::size_t number = 0;
    for (auto next = manager(number); report.ends && next; next = manager(++number)) {
        if (const std::shared_ptr<MZWorkSeriesManager> owner = next->lock()) {
            if (listener == owner) {
                listener.reset();  // told by the end
            }
            velto::keepingFirst(failure, [&] { owner->seriesEnded(*this); });
        }
    }
    if (listener != nullptr) {
        velto::keepingFirst(failure,
                            [&] { listener->workSeriesStatusChanged(*this, report.status); });
    }
    if (report.completes) {
        // After the managers: who is notified finds the series in the history.
        velto::keepingFirst(failure, [this] {
            velto::NotificationCenter::shared().postOnMainThread(MZWorkSeriesCompletedNotification,
                                                                 shared_from_this());
        });
        velto::keepingFirst(failure, [this] { notifyWorkItemsOfSeriesCompletion(); });
    }
    velto::rethrowIfAny(failure);
}

bool MZWorkSeries::linkTo(const std::weak_ptr<MZWorkSeriesManager>& manager) {
    const auto isSame = [&](const std::weak_ptr<MZWorkSeriesManager>& other) {
        return !other.owner_before(manager) && !manager.owner_before(other);
    };
    const Guard guard(lock_);
    if (isSame(manager_) || std::ranges::any_of(moreManagers_, isSame)) {
        return false;
    }
    if (manager_.expired()) {
        manager_ = manager;
    } else {
        moreManagers_.push_back(manager);
    }
    return true;
}

std::optional<std::weak_ptr<MZWorkSeriesManager>> MZWorkSeries::manager(std::size_t number) const {
    const Guard guard(lock_);
    if (number == 0) {
        return manager_;
    }
    return number <= moreManagers_.size() ? std::optional(moreManagers_[number - 1]) : std::nullopt;
}

void MZWorkSeries::notifyWorkItemsOfSeriesCompletion() {
    const std::shared_ptr<MZWorkSeries> alive = weak_from_this().lock();
    velto::rethrowIfAny(visitAll(workItems_, [](MZWorkItem& item) { item.seriesCompleted(); }));
}

bool MZWorkSeries::isActive() const {
    const MZWorkItemStatus now = status();
    return now == MZWorkItemStatus::pending || now == MZWorkItemStatus::running;
}

bool MZWorkSeries::isCancelled() const {
    bool cancelled = false;
    for (const std::shared_ptr<MZWorkItem>& item : workItems_) {
        if (item->hasErrors()) {
            return false;  // errors outrank cancellation
        }
        cancelled = cancelled || item->status() == MZWorkItemStatus::cancelled;
    }
    return cancelled;
}

std::shared_ptr<MZWorkItem> MZWorkSeries::activeItem() const {
    Guard guard(lock_);
    return activeItem_;
}

std::shared_ptr<velto::OperationQueue> MZWorkSeries::operationQueue() const {
    std::shared_ptr<velto::OperationQueue> queue;
    if (const std::shared_ptr<MZWorkSeriesDelegate> owner = delegate()) {
        queue = owner->operationQueue();
    }
    if (queue == nullptr) {
        MZLogError("delegate is not returning an NSOperationQueue");
    }
    return queue;
}

double MZWorkSeries::percentComplete() const {
    std::shared_ptr<MZWorkItem> item;
    std::size_t index = 0;
    {
        Guard guard(lock_);
        item = activeItem_;
        index = activeIndex_;
    }
    if (item == nullptr) {
        return 0;
    }
    return (static_cast<double>(index) * 100 + item->percentComplete()) /
           static_cast<double>(workItems_.size());
}

std::shared_ptr<MZWorkSeriesDelegate> MZWorkSeries::delegate() const {
    Guard guard(lock_);
    return delegate_.lock();
}

void MZWorkSeries::setDelegate(std::weak_ptr<MZWorkSeriesDelegate> delegate) {
    Guard guard(lock_);
    delegate_ = std::move(delegate);
}

Value MZWorkSeries::userInfo() const {
    Guard guard(lock_);
    return userInfo_;
}

void MZWorkSeries::setUserInfo(Value userInfo) {
    Guard guard(lock_);
    userInfo_ = std::move(userInfo);
}

std::optional<velto::Date> MZWorkSeries::startTime() const {
    Guard guard(lock_);
    return startTime_;
}

std::optional<velto::Date> MZWorkSeries::completeTime() const {
    Guard guard(lock_);
    return completeTime_;
}

std::optional<std::string> MZWorkSeries::statusMessage() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->statusMessage() : std::nullopt;
}

std::optional<std::string> MZWorkSeries::errorMessage() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->errorMessage() : std::nullopt;
}

std::string MZWorkSeries::throughputStatus() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->throughputStatus() : std::string();
}

std::optional<velto::Date> MZWorkSeries::estimatedCompletionTime() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? std::optional(item->estimatedCompletionTime()) : std::nullopt;
}

double MZWorkSeries::estimatedCompletionSeconds() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->estimatedCompletionSeconds() : 0;
}

double MZWorkSeries::elapsedSecondsSinceStart() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->elapsedSecondsSinceStart() : 0;
}

std::string MZWorkSeries::timerMode() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->timerMode() : std::string();
}

MZWorkItemMode MZWorkSeries::mode() const {
    const std::shared_ptr<MZWorkItem> item = activeItem();
    return item ? item->mode() : MZWorkItemMode::elapsed;
}

template <class Visit>
void MZWorkSeries::visitCompletedItems(const Visit& visit) const {
    for (const std::shared_ptr<MZWorkItem>& item : workItems_) {
        if (item->status() == MZWorkItemStatus::completed) {
            visit(*item);
        }
    }
}

std::vector<velto::Error> MZWorkSeries::errors() const {
    std::vector<velto::Error> all;
    visitCompletedItems([&](const MZWorkItem& item) {
        const std::vector<velto::Error> errors = item.errors();
        all.insert(all.end(), errors.begin(), errors.end());
    });
    return all;
}

Array MZWorkSeries::warnings() const {
    Array all;
    visitCompletedItems([&](const MZWorkItem& item) { all.append(item.warnings()); });
    return all;
}

Array MZWorkSeries::infoMessages() const {
    Array all;
    visitCompletedItems([&](const MZWorkItem& item) { all.append(item.infoMessages()); });
    return all;
}

bool MZWorkSeries::hasErrors() const {
    bool any = false;
    visitCompletedItems([&](const MZWorkItem& item) { any = any || item.hasErrors(); });
    return any;
}

bool MZWorkSeries::hasInfoMessages() const {
    bool any = false;
    visitCompletedItems([&](const MZWorkItem& item) { any = any || item.hasInfoMessages(); });
    return any;
}

template <class Entry>
Array MZWorkSeries::serviceCalls(const Entry& entry) const {
    Array all;
    visitCompletedItems([&](const MZWorkItem& item) {
        if (const auto* source = dynamic_cast<const MZServiceCallWorker*>(item.worker().get())) {
            if (const std::optional<MZServiceCallReport> report = source->serviceCallReport()) {
                all.append(Dictionary{{report->method, entry(*report)}});
            }
        }
    });
    return all;
}

Array MZWorkSeries::httpStatusCodes() const {
    return serviceCalls(
        [](const MZServiceCallReport& report) { return Value(report.httpStatusCode); });
}

Array MZWorkSeries::httpHeaders() const {
    return serviceCalls(
        [](const MZServiceCallReport& report) { return Value(report.responseHeaders); });
}

std::string MZWorkSeries::description() const {
    return velto::format("%@ type: %lld status: %@ items: %lu",
                         velto::defaultDescription(typeid(*this), this), type(),
                         MZWorkItem::stringWithStatus(status()), workItems_.size());
}
