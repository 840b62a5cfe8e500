#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZServiceCallWorker.h>

#include <algorithm>

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
        keepingFirst(failure, [&] { visit(*item); });
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
    : workItems_(std::move(workItems)) {
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
    for (const std::shared_ptr<MZWorkItem>& item : workItems_) {
        item->setDelegate(weak_from_this());
        item->setSeries(weak_from_this());
    }
}

void MZWorkSeries::start() {
    bool startedBefore = false;
    bool starts = false;
    {
        Guard guard(lock_);
        startedBefore = startTime_.has_value();
        starts = claimStart();
    }
    if (startedBefore) {
        throw Exception(
            velto::InternalInconsistencyException,
            velto::format("Calling start more than once on a work series: %@", description()));
    }
    if (starts) {
        run();
    }
}

void MZWorkSeries::startIfPending() {
    bool starts = false;
    {
        Guard guard(lock_);
        starts = claimStart();
    }
    if (starts) {
        run();
    }
}

bool MZWorkSeries::claimStart() {
    if (status_ != MZWorkItemStatus::pending || startTime_) {
        return false;
    }
    storeStatus(MZWorkItemStatus::running);
    startTime_ = Clock::now();
    completeTime_.reset();
    return true;
}

void MZWorkSeries::run() {
    deliverReports();
    dispatchNextItem();
}

void MZWorkSeries::dispatchNextItem() {
    std::shared_ptr<MZWorkItem> item;
    {
        Guard guard(lock_);
        if (nextIndex_ < workItems_.size()) {
            activeIndex_ = nextIndex_++;
            item = activeItem_ = workItems_[activeIndex_];
            item->dispatched_ = true;
            ++itemsUnderWay_;
        } else {
            stopping_ = true;
        }
    }
    if (item == nullptr) {
        completeIfIdle();
        return;
    }
    if (item->completeTime()) {  // it was cancelled before it got here
        workItemStatusChanged(*item, item->status());
        workItemEnded(*item);
    } else if (const std::shared_ptr<velto::OperationQueue> queue = operationQueue()) {
        queue->addOperation(item);
    }
}

void MZWorkSeries::workItemEnded(MZWorkItem& item) {
    if (item.dispatched_.exchange(false)) {
        Guard guard(lock_);
        --itemsUnderWay_;
    }
    completeIfIdle();
}

void MZWorkSeries::completeIfIdle() {
    {
        Guard guard(lock_);
        if (!stopping_ || itemsUnderWay_ != 0 || status_ == MZWorkItemStatus::completed) {
            return;
        }
        storeStatus(MZWorkItemStatus::completed);
    }
    deliverReports();
}

void MZWorkSeries::workItemStatusChanged(MZWorkItem& item, MZWorkItemStatus status) {
    if (status == MZWorkItemStatus::completed) {
        if (item.hasErrors()) {
            cancelRemainingJobs();
        } else {
            dispatchNextItem();
        }
    } else if (status == MZWorkItemStatus::cancelled) {
        cancelRemainingJobs();
    }
}

void MZWorkSeries::cancelRemainingJobs() {
    std::size_t first = 0;
    {
        Guard guard(lock_);
        first = std::exchange(nextIndex_, workItems_.size());
        stopping_ = true;
        ++itemsUnderWay_;  // it ends when all have been cancelled, not in between
    }
    std::exception_ptr failure =
        visitAll(std::span(workItems_).subspan(first), [](MZWorkItem& item) {
            item.setDelegate({});
            item.cancel();
        });
    {
        Guard guard(lock_);
        --itemsUnderWay_;
    }
    keepingFirst(failure, [this] { completeIfIdle(); });
    rethrowFirst({failure});
}

void MZWorkSeries::cancel() {
    rethrowFirst({visitAll(workItems_, [](MZWorkItem& item) { item.cancel(); }),
                  visitAll(workItems_, [](MZWorkItem& item) {
                      item.worker()->setWorkStatus(MZWorkStatusCancelled);
                  })});
}

void MZWorkSeries::cancelWithoutTelling() {
    {
        Guard guard(lock_);
        muted_ = true;
    }
    std::exception_ptr failure;
    keepingFirst(failure, [this] { cancel(); });
    {
        Guard guard(lock_);
        muted_ = false;
    }
    rethrowFirst({failure});
}

void MZWorkSeries::setStatus(MZWorkItemStatus status) {
    {
        Guard guard(lock_);
        storeStatus(status);
    }
    deliverReports();
}

void MZWorkSeries::storeStatus(MZWorkItemStatus status) {
    const bool completes = status == MZWorkItemStatus::completed;
    if (completes && completeTime_) {
        return;
    }
    status_ = status;
    if (completes) {
        completeTime_ = Clock::now();
    }
    outbox_.add(status);
}

void MZWorkSeries::deliverReports() {
    const std::shared_ptr<MZWorkSeries> self = shared_from_this();
    const std::exception_ptr failed = outbox_.deliver(lock_, [&](MZWorkItemStatus status) {
        bool muted = false;
        {
            Guard guard(lock_);
            muted = muted_;
        }
        std::exception_ptr failure;
        if (const std::shared_ptr<MZWorkSeriesDelegate> listener = delegate(); listener && !muted) {
            keepingFirst(failure, [&] { listener->workSeriesStatusChanged(*this, status); });
        }
        if (status == MZWorkItemStatus::completed) {
            // After the delegate: who is notified finds the series in the manager's history.
            velto::NotificationCenter::shared().postOnMainThread(MZWorkSeriesCompletedNotification,
                                                                 self);
            keepingFirst(failure, [this] { notifyWorkItemsOfSeriesCompletion(); });
        }
        rethrowFirst({failure});
    });
    rethrowFirst({failed});
}

void MZWorkSeries::notifyWorkItemsOfSeriesCompletion() {
    rethrowFirst({visitAll(workItems_, [](MZWorkItem& item) { item.seriesCompleted(); })});
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
