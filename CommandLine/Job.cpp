#include <CommandLine/Job.h>

#include <CommandLine/Interrupts.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanWorker.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace velto::cli {

namespace {

using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration<double>(end - start).count();
}

/// Time left by what was done since the percentage last began to grow.
class Extrapolation {
public:
    std::optional<double> remaining(double percent, Clock::time_point now) {
        if (percent < percent_ || percent_ < 0) {
            start_ = now;
            first_ = percent;
        }
        percent_ = percent;
        const double seconds = secondsBetween(start_, now);
        if (percent <= first_ || seconds < 1) {
            return std::nullopt;
        }
        return seconds * (100 - percent) / (percent - first_);
    }

private:
    Clock::time_point start_;
    double first_ = 0;
    double percent_ = -1;
};

}  // namespace

/// What other threads tell the one that runs the job.
class Job::Watch {
public:
    struct News {
        std::vector<std::string> phases;
        bool isStopWanted = false;
        bool hasEnded = false;
    };

    void addPhase(std::string phase) {
        change([&] { news_.phases.push_back(std::move(phase)); });
    }
    void stop() {
        change([&] { news_.isStopWanted = true; });
    }
    void end() {
        change([&] { news_.hasEnded = true; });
    }

    /// Waits until there is something new, or until `limit`. The phases are handed over.
    News wait(Clock::time_point limit) {
        std::unique_lock guard(mutex_);
        const auto isNew = [&] { return std::exchange(changed_, false); };
        if (limit == Clock::time_point::max()) {
            condition_.wait(guard, isNew);
        } else {
            condition_.wait_until(guard, limit, isNew);
        }
        News news = news_;
        news_.phases.clear();
        return news;
    }

private:
    template <class Body>
    void change(const Body& body) {
        {
            const std::lock_guard guard(mutex_);
            body();
            changed_ = true;
        }
        condition_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable condition_;
    News news_;
    bool changed_ = false;
};

Job::Job(Frontend& frontend,
         std::vector<std::shared_ptr<MZAbstractWorker>> workers,
         std::string farewell)
    : frontend_(frontend), workers_(std::move(workers)), farewell_(std::move(farewell)) {
}

Job::Job(Frontend& frontend, const std::shared_ptr<VeltoDrovanWorker>& worker)
    : Job(frontend,
          {worker},
          localized("velto: ended at once; the delivery tool was killed, and "
                    "the store may hold a part of the delivery.")) {
    killTool_ = [worker] { worker->drovan()->kill(); };
    hidePhase(worker->storeMessages()->completedOperationWithStoreMessage());
    hidePhase(worker->storeMessages()->cancelledOperationWithStoreMessage());
}

void Job::hidePhase(const std::optional<std::string>& text) {
    if (text) {
        hiddenPhases_.insert(printable(*text));
    }
}

JobOutcome Job::run() {
    const auto watch = std::make_shared<Watch>();
    const auto items = MZWorkItem::itemsWithWorkers(workers_);
    const auto series = MZWorkSeries::seriesWithWorkItems(items);
    // The one that runs, else the last one that ran.
    const auto current = [&]() -> MZWorkItem& {
        const auto pending = std::ranges::find(items, MZWorkItemStatus::pending,
                                               [](const auto& item) { return item->status(); });
        return pending == items.begin() ? *items.front() : **std::prev(pending);
    };

    std::vector<Observation> phases;
    phases.reserve(workers_.size());
    for (const auto& worker : workers_) {
        phases.push_back(
            worker->observe("statusMessage", [source = worker.get(), watch](const PropertyChange&) {
                watch->addPhase(source->statusMessage().value_or(std::string()));
            }));
    }
    const NotificationObservation ending =
        NotificationCenter::shared().observe(MZWorkSeriesCompletedNotification, series.get(),
                                             [watch](const Notification&) { watch->end(); });
    frontend_.interrupts().setHandler([&, watch](unsigned count) {
        if (count == 1) {
            watch->stop();
            return;
        }
        if (killTool_) {
            killTool_();
        }
        frontend_.console().setLiveLine({});
        frontend_.console().line(Console::Stream::errors, farewell_);
        ::_exit(static_cast<int>(ExitCode::stopped));
    });

    const std::unique_ptr<Display> display = Display::make(frontend_);
    const Clock::time_point start = Clock::now();
    Extrapolation extrapolation;
    Progress progress;
    const auto measure = [&](Clock::time_point now) {
        const MZWorkItem& item = current();
        const auto* const transfer = dynamic_cast<const MZThroughputWorker*>(item.worker().get());
        const double percent = item.worker()->percentComplete();
        progress.elapsed = secondsBetween(start, now);
        progress.completed = transfer != nullptr ? transfer->completed() : 0;
        progress.size = transfer != nullptr ? transfer->size() : 0;
        progress.percent.reset();
        progress.remaining.reset();
        progress.rate = 0;
        // 0 stands for "not known yet" where nothing is transferred, below 0 for "not known".
        if (percent < 0 || (percent == 0 && progress.size == 0)) {
            return;
        }
        progress.percent = percent;
        if (progress.size == 0) {
            progress.remaining = extrapolation.remaining(percent, now);
            return;
        }
        if (progress.completed != 0) {
            item.addRunningSample(progress.completed);
            progress.rate = item.sampleRate();
        }
        if (progress.rate != 0) {
            progress.remaining =
                item.throughputEstimatedCompletionSecondsWithPercentComplete(percent);
        }
    };

    MZWorkSeriesManager::defaultManager()->submitWork(series);
    bool isStopping = false;
    for (;;) {
        const Watch::News news = watch->wait(display->nextProgress());
        for (const std::string& text : news.phases) {
            const std::string phase = printable(text);
            if (isStopping || phase.empty() || phase == progress.phase ||
                hiddenPhases_.contains(phase) || (isHidden_ && isHidden_(text))) {
                continue;
            }
            const auto now = Clock::now();
            measure(now);
            progress.phase = phase;
            MZLogInfo("%@", phase);
            display->phaseChanged(progress, now);
        }
        if (news.hasEnded) {
            break;
        }
        const auto now = Clock::now();
        if (news.isStopWanted && !isStopping) {
            isStopping = true;
            measure(now);
            progress.phase = localized("Stopping…");
            display->phaseChanged(progress, now);
            series->cancel();
        }
        if (now >= display->nextProgress() && !progress.phase.empty()) {
            measure(now);
            display->progressed(progress, now);
        }
    }
    if (isStopping && killTool_) {
        // The tool has ended; a process that it left behind has no more time than it had.
        killTool_();
    }
    display->end();
    frontend_.interrupts().setHandler({});

    JobOutcome outcome;
    for (const auto& item : items) {
        const std::vector<Error> errors = item->errors();
        outcome.errors.insert(outcome.errors.end(), errors.begin(), errors.end());
        for (const Error& error : errors) {
            MZLogError("%@", error.localizedDescription());
        }
        outcome.warnings.append(item->warnings());
        outcome.infoMessages.append(item->infoMessages());
        outcome.isStopped =
            outcome.isStopped || (isStopping && item->status() == MZWorkItemStatus::cancelled);
    }
    const MZWorkItem& last = current();
    const auto* const transfer = dynamic_cast<const MZThroughputWorker*>(last.worker().get());
    outcome.seconds = secondsBetween(start, Clock::now());
    outcome.completed = transfer != nullptr ? transfer->completed() : 0;
    outcome.size = transfer != nullptr ? transfer->size() : 0;
    outcome.rate = last.finalRateString().value_or(std::string());
    return outcome;
}

}  // namespace velto::cli
