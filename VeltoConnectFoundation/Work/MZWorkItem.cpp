#include <VeltoConnectFoundation/Work/MZWorkItem.h>

#include <VeltoConnectFoundation/Platform/DateFormat.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZServiceCallWorker.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>
#include <VeltoConnectFoundation/Work/MZWorkSeries.h>

#include <algorithm>
#include <cmath>

using velto::Clock;
using velto::Date;
using velto::Exception;
using velto::Guard;
using velto::localized;
using velto::localizedFormat;
using velto::Seconds;

namespace {

constexpr double sampleSpacing = 0.5;      // seconds
constexpr std::size_t windowSamples = 60;  // about 30 s
constexpr double maxHours = 999;

/// Seconds from `start` to now; 0 without a start.
double secondsSince(const std::optional<Date>& start) {
    return start ? Clock::now().secondsSinceReference - start->secondsSinceReference : 0;
}

std::string timeText(const std::optional<Date>& time) {
    static const auto* const form = new velto::DateFormat("yyyy-MM-dd HH:mm:ss.SSS");
    return time ? form->stringFromDate(*time) : std::string("(null)");
}

bool isGone(const std::weak_ptr<MZWorkSeries>& series) {
    return series.expired();
}

void logWorkerException(const Exception& exception) {
    MZLogError("Worker exception: %@ - %@", exception.name(), exception.reason());
}

}  // namespace

MZThroughputWorker::~MZThroughputWorker() = default;
MZServiceCallWorker::~MZServiceCallWorker() = default;
MZWorkItemDelegate::~MZWorkItemDelegate() = default;
void MZWorkItemDelegate::workItemStatusChanged(MZWorkItem&, MZWorkItemStatus) {
}

MZWorkItem::MZWorkItem(velto::PassKey, std::shared_ptr<MZAbstractWorker> worker)
    : worker_(std::move(worker)), throughput_(dynamic_cast<MZThroughputWorker*>(worker_.get())) {
    velto::assertParameter(worker_ != nullptr, "worker", "MZWorkItem::itemWithWorker",
                           "MZWorkItem.cpp");
    setQualityOfService(velto::QualityOfService::userInteractive);
}

MZWorkItem::~MZWorkItem() {
    status_ = MZWorkItemStatus::destroying;
    Operation::cancel();
}

std::uint64_t MZWorkItem::sequence() {
    static constinit std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

std::shared_ptr<MZWorkItem> MZWorkItem::itemWithWorker(std::shared_ptr<MZAbstractWorker> worker) {
    return velto::make<MZWorkItem>(std::move(worker));
}

std::vector<std::shared_ptr<MZWorkItem>> MZWorkItem::itemsWithWorkers(
    const std::vector<std::shared_ptr<MZAbstractWorker>>& workers) {
    std::vector<std::shared_ptr<MZWorkItem>> items;
    items.reserve(workers.size());
    for (const std::shared_ptr<MZAbstractWorker>& worker : workers) {
        items.push_back(itemWithWorker(worker));
    }
    return items;
}

std::string MZWorkItem::stringWithStatus(MZWorkItemStatus status) {
    switch (status) {
        case MZWorkItemStatus::pending:
            return localized("Pending");
        case MZWorkItemStatus::running:
            return localized("Running");
        case MZWorkItemStatus::cancelled:
            return localized("Cancelled");
        case MZWorkItemStatus::completed:
            return localized("Completed");
        default:
            return localized("Unknown");
    }
}

std::string MZWorkItem::stringWithMode(MZWorkItemMode mode) {
    switch (mode) {
        case MZWorkItemMode::elapsed:
            return localized("Elapsed");
        case MZWorkItemMode::remaining:
            return localized("Remaining");
        default:
            return localized("Unknown");
    }
}

std::string MZWorkItem::timeStringWithSeconds(Seconds seconds) {
    double rest = seconds.count();
    if (rest < 0) {
        MZLogWarning("Time interval is negative! %@", timeStringWithSeconds(Seconds(-rest)));
        rest = 0;
    }
    const double hours = std::trunc(rest / 3600);
    if (!(hours <= maxHours)) {
        return "∞";
    }
    const double minutes = std::trunc((rest - hours * 3600) / 60);
    // Required: a rounded 60 is shown as 59 and carries nothing over.
    const double secondsLeft = std::min(std::round(rest - hours * 3600 - minutes * 60), 59.0);
    return velto::format("%02ld:%02ld:%02ld", static_cast<long>(hours), static_cast<long>(minutes),
                         static_cast<long>(secondsLeft));
}

void MZWorkItem::main() {
    const std::shared_ptr<Operation> alive = weak_from_this().lock();
    if (!step(MZItemEvent::claim).has(MZItemCallerOwns)) {
        return;  // it was cancelled, or has run elsewhere
    }
    const velto::Finally end([this] { step(MZItemEvent::finish); });
    try {
        worker_->run();
    } catch (const Exception& exception) {
        logWorkerException(exception);
    } catch (...) {
        addUncaught();
        throw;
    }
}

void MZWorkItem::addUncaught() {
    try {
        throw;
    } catch (const Exception& exception) {
        worker_->addException(exception);
    } catch (const std::exception& exception) {
        worker_->addException(Exception(velto::typeName(typeid(exception)), exception.what()));
    } catch (...) {
        worker_->addException(Exception({}, {}));
    }
}

void MZWorkItem::cancel() {
    const std::shared_ptr<Operation> alive = weak_from_this().lock();
    const MZItemStep cancelled = step(MZItemEvent::cancel);
    const velto::Finally end([&] {
        Operation::cancel();
        if (cancelled.has(MZItemCallerOwns)) {
            step(MZItemEvent::finish);
        } else if (cancelled.has(MZItemCallerLeaves)) {
            step(MZItemEvent::leave);
        }
    });
    if (cancelled.has(MZItemStops)) {
        try {
            worker_->cancel();
        } catch (const Exception& exception) {
            logWorkerException(exception);
        }
    }
}

void MZWorkItem::couldNotStart(const velto::Error& error) {
    const std::shared_ptr<Operation> alive = weak_from_this().lock();
    const velto::Finally end([this] { threadCompleted(); });
    worker_->addError(error);
}

void MZWorkItem::threadCompleted() {
    step(MZItemEvent::close);
}

MZItemStep MZWorkItem::step(MZItemEvent event) {
    MZItemStep step{};
    {
        const Guard guard(lock_);
        step = MZItemStepAfter(state_, event);
        state_ = step.next;
        Report report;
        if (step.has(MZItemRuns)) {
            startSequence_ = sequence();
            startTime_ = Clock::now();
            report.status = show(MZWorkItemStatus::running);
        }
        if (step.has(MZItemStops)) {
            report.status = show(MZWorkItemStatus::cancelled);
        }
        if (step.has(MZItemRecords)) {
            completeTime_ = Clock::now();
        }
        if (step.has(MZItemCompletes)) {
            endSequence_ = sequence();
            report.status = show(MZWorkItemStatus::completed);
        }
        report.passes = step.has(MZItemStops) || step.has(MZItemCompletes) || step.has(MZItemEnds);
        report.notifies = step.has(MZItemNotifies);
        if (report.status || report.passes || report.notifies) {
            outbox_.add(report);
        }
    }
    deliverReports();
    return step;
}

void MZWorkItem::seriesCompleted() {
    worker_->seriesCompleted();
}

void MZWorkItem::setStatus(MZWorkItemStatus status) {
    {
        const Guard guard(lock_);
        if (const auto shown = show(status)) {
            outbox_.add({.status = shown});
        }
    }
    std::exception_ptr failure;
    deliverReports(&failure);
    velto::rethrowIfAny(failure);
}

std::optional<MZWorkItemStatus> MZWorkItem::show(MZWorkItemStatus status) {
    return status_.exchange(status) == status ? std::nullopt : std::optional(status);
}

void MZWorkItem::deliverReports(std::exception_ptr* failure) {
    const std::shared_ptr<Operation> alive = weak_from_this().lock();
    outbox_.deliver(
        [this](const Report& report) {
            std::exception_ptr raised;
            if (const auto listener = report.status ? delegate() : nullptr;
                listener != nullptr &&
                listener != link(0)->series.lock()) {  // which is told of the facts
                velto::keepingFirst(
                    raised, [&] { listener->workItemStatusChanged(*this, *report.status); });
            }
            if (report.passes) {
                velto::keepingFirst(raised, [this] { tellSeries(); });
            }
            if (report.notifies) {
                velto::keepingFirst(raised, [this] {
                    velto::NotificationCenter::shared().postOnMainThread(
                        MZWorkItemCompletedNotification, self());
                });
            }
            velto::rethrowIfAny(raised);
        },
        failure);
}

std::size_t MZWorkItem::linkTo(const std::weak_ptr<MZWorkSeries>& series, std::size_t index) {
    const auto isSame = [&](const SeriesLink& link) {
        return !link.series.owner_before(series) && !series.owner_before(link.series);
    };
    const Guard guard(lock_);
    if (isSame(link_)) {
        return link_.index;
    }
    if (const auto same = std::ranges::find_if(moreLinks_, isSame); same != moreLinks_.end()) {
        return same->index;
    }
    // In the place of one that is gone: who walks them goes by their numbers.
    if (link_.series.expired()) {
        link_ = {series, index};
    } else if (const auto gone = std::ranges::find_if(moreLinks_, &isGone, &SeriesLink::series);
               gone != moreLinks_.end()) {
        *gone = {series, index};
    } else {
        moreLinks_.push_back({series, index});
    }
    return index;
}

std::optional<MZWorkItem::SeriesLink> MZWorkItem::link(std::size_t number) const {
    const Guard guard(lock_);
    if (number == 0) {
        return link_;
    }
    return number <= moreLinks_.size() ? std::optional(moreLinks_[number - 1]) : std::nullopt;
}

void MZWorkItem::tellSeries() {
    std::exception_ptr failure;
    std::size_t number = 0;
    for (auto next = link(number); next; next = link(++number)) {
        if (const std::shared_ptr<MZWorkSeries> series = next->series.lock()) {
            velto::keepingFirst(failure, [&] { series->itemPassed(next->index); });
        }
    }
    velto::rethrowIfAny(failure);
}

std::shared_ptr<MZWorkItem> MZWorkItem::self() {
    return std::static_pointer_cast<MZWorkItem>(shared_from_this());
}

bool MZWorkItem::isActive() const {
    const MZWorkItemStatus now = status();
    return now == MZWorkItemStatus::pending || now == MZWorkItemStatus::running;
}

std::shared_ptr<MZWorkItemDelegate> MZWorkItem::delegate() const {
    Guard guard(lock_);
    return delegate_.lock();
}

void MZWorkItem::setDelegate(std::weak_ptr<MZWorkItemDelegate> delegate) {
    Guard guard(lock_);
    delegate_ = std::move(delegate);
}

std::shared_ptr<MZWorkSeries> MZWorkItem::series() const {
    Guard guard(lock_);
    return series_.lock();
}

void MZWorkItem::setSeries(std::weak_ptr<MZWorkSeries> series) {
    Guard guard(lock_);
    series_ = std::move(series);
}

std::shared_ptr<velto::OperationQueue> MZWorkItem::operationQueue() const {
    const std::shared_ptr<MZWorkSeries> owner = series();
    return owner == nullptr ? nullptr : owner->operationQueue();
}

velto::Value MZWorkItem::userInfo() const {
    Guard guard(lock_);
    return userInfo_;
}

void MZWorkItem::setUserInfo(velto::Value userInfo) {
    Guard guard(lock_);
    userInfo_ = std::move(userInfo);
}

std::uint64_t MZWorkItem::startSequence() const {
    Guard guard(lock_);
    return startSequence_;
}

std::uint64_t MZWorkItem::endSequence() const {
    Guard guard(lock_);
    return endSequence_;
}

std::optional<Date> MZWorkItem::startTime() const {
    Guard guard(lock_);
    return startTime_;
}

std::optional<Date> MZWorkItem::completeTime() const {
    Guard guard(lock_);
    return completeTime_;
}

double MZWorkItem::elapsedSecondsSinceStart() const {
    Guard guard(lock_);
    if (completeTime_ && startTime_) {
        return std::abs(completeTime_->secondsSinceReference - startTime_->secondsSinceReference);
    }
    return completeTime_ ? 0 : std::abs(secondsSince(startTime_));
}

double MZWorkItem::estimatedCompletionSeconds() const {
    const MZWorkItemStatus now = status();
    if (now == MZWorkItemStatus::cancelled || now == MZWorkItemStatus::completed) {
        return 0;
    }
    const double percent = percentComplete();
    const double elapsed = std::abs(secondsSince(startTime()));
    if (percent == 0) {
        return elapsed;
    }
    if (throughput_ != nullptr) {
        return throughputEstimatedCompletionSecondsWithPercentComplete(percent);
    }
    return std::abs(100 / percent * elapsed - elapsed);
}

Date MZWorkItem::estimatedCompletionTime() const {
    return Date{Clock::now().secondsSinceReference + estimatedCompletionSeconds()};
}

double MZWorkItem::throughputEstimatedCompletionSecondsWithPercentComplete(double percent) const {
    const std::uint64_t rate = sampleRate();
    if (rate == 0 || throughput_ == nullptr) {
        return velto::distantFuture.secondsSinceReference;
    }
    return (100 - percent) / 100 * static_cast<double>(throughput_->size()) /
           static_cast<double>(rate);
}

MZWorkItemMode MZWorkItem::mode() const {
    return percentComplete() != 0 ? MZWorkItemMode::remaining : MZWorkItemMode::elapsed;
}

std::string MZWorkItem::timerMode() const {
    return stringWithMode(mode()) + ":";
}

double MZWorkItem::percentComplete() const {
    // Required: a cancelled item reports full progress, so that progress displays close.
    if (status() == MZWorkItemStatus::cancelled) {
        return 100;
    }
    const double percent = worker_->percentComplete();
    if (percent <= 0) {
        Guard guard(lock_);
        dropSamples();
    }
    return percent;
}

void MZWorkItem::forgetSamples() const {
    Guard guard(lock_);
    dropSamples();
}

void MZWorkItem::dropSamples() const {
    samples_.clear();
    initialSample_.reset();
}

void MZWorkItem::addRunningSample(std::uint64_t bytesCompleted) const {
    const std::uint64_t size = throughput_ == nullptr ? 0 : throughput_->size();
    const Date now = Clock::now();
    Guard guard(lock_);
    if (now.secondsSinceReference - lastSampleTime_ < sampleSpacing) {
        return;
    }
    if (bytesCompleted == lastSampleCompletion_) {
        if (bytesCompleted == size) {
            return;
        }
        if (!samples_.empty()) {
            samples_.pop_back();  // a stalled value moves forward in time
        }
    }
    lastSampleTime_ = now.secondsSinceReference;
    lastSampleCompletion_ = bytesCompleted;
    const WorkItemSample sample{.completed = bytesCompleted, .time = now};
    if (!initialSample_) {
        initialSample_ = sample;
    }
    samples_.push_back(sample);
    if (samples_.size() < 3) {
        return;
    }
    const bool progressed = samples_.front().completed != samples_.back().completed;
    const std::size_t keep =
        progressed ? windowSamples : 2;  // no progress: the rate falls to 0 at once
    if (samples_.size() > keep) {
        samples_.erase(samples_.begin(), samples_.end() - static_cast<std::ptrdiff_t>(keep));
    }
}

std::uint64_t MZWorkItem::sampleRate() const {
    Guard guard(lock_);
    if (samples_.size() < 2) {
        return 0;
    }
    bool valid = false;
    return BytesPerSecondWithStartAndEndSamples(samples_.front(), samples_.back(), valid);
}

std::optional<std::string> MZWorkItem::sampleRateString() const {
    Guard guard(lock_);
    if (samples_.size() < 2) {
        return std::nullopt;
    }
    return BytesPerSecondStringWithStartAndEndSamples(samples_.front(), samples_.back());
}

std::optional<std::string> MZWorkItem::finalRateString() const {
    Guard guard(lock_);
    if (samples_.size() < 2) {
        return std::nullopt;
    }
    return BytesPerSecondStringWithStartAndEndSamples(initialSample_, samples_.back());
}

std::string MZWorkItem::runningStatus() const {
    const std::uint64_t done = throughput_ == nullptr ? 0 : throughput_->completed();
    if (done == 0) {
        return stringWithStatus(MZWorkItemStatus::running);
    }
    addRunningSample(done);
    const std::string doneText = MZHumanReadableStringFromBytes(done);
    const std::string sizeText = MZHumanReadableStringFromBytes(throughput_->size());
    if (const std::optional<std::string> rate = sampleRateString()) {
        return localizedFormat("%@ of %@ (%@/s)", doneText, sizeText, *rate);
    }
    return localizedFormat("%@ of %@", doneText, sizeText);
}

std::string MZWorkItem::completedStatus() const {
    const std::uint64_t done = throughput_ == nullptr ? 0 : throughput_->completed();
    if (done == 0) {
        return stringWithStatus(MZWorkItemStatus::completed);
    }
    std::string doneText = MZHumanReadableStringFromBytes(done);
    if (const std::optional<std::string> rate = finalRateString()) {
        return localizedFormat("%@ (%@/s)", doneText, *rate);
    }
    return doneText;
}

std::string MZWorkItem::throughputStatus() const {
    const MZWorkItemStatus now = status();
    if (throughput_ != nullptr && now == MZWorkItemStatus::completed) {
        return completedStatus();
    }
    if (throughput_ != nullptr && now == MZWorkItemStatus::running) {
        return runningStatus();
    }
    return stringWithStatus(now);
}

std::string MZWorkItem::descriptionWithLocale(std::size_t indent) const {
    return velto::format("%@ status: %@ startTime: %@ completeTime: %@ worker: %@",
                         velto::defaultDescription(typeid(*this), this), stringWithStatus(status()),
                         timeText(startTime()), timeText(completeTime()),
                         worker_->descriptionWithLocale(indent));
}
