#include <CommandLine/Job.h>

#include <CommandLine/Guardian.h>
#include <CommandLine/Interrupts.h>
#include <CommandLine/PhaseIdentifier.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanWorker.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>
#include <VeltoConnectFoundation/Work/MZThroughputWorker.h>
#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <latch>
#include <mutex>
#include <semaphore>
#include <system_error>
#include <thread>
#include <utility>

namespace velto::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// A phase may name a file, and a file's name may be long.
constexpr std::size_t longestPhase = 200;

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

/// A thread that cancels the work when it is told to, and not before the work has begun.
class Job::Canceller {
public:
    explicit Canceller(std::function<void()> cancel)
        : thread_([this, cancel = std::move(cancel)] {
              wish_.acquire();
              start_.wait();
              if (isWanted_) {
                  cancel();
              }
          }) {}
    ~Canceller() {
        begin();
        wish_.release();
        thread_.join();
    }
    Canceller(const Canceller&) = delete;
    Canceller& operator=(const Canceller&) = delete;

    void begin() {
        if (!start_.try_wait()) {
            start_.count_down();
        }
    }
    void cancel() {
        isWanted_ = true;
        wish_.release();
    }

private:
    std::counting_semaphore<> wish_{0};
    std::latch start_{1};
    std::atomic<bool> isWanted_{false};
    std::thread thread_;
};

/// What other threads tell the one that runs the job.
class Job::Watch {
public:
    struct News {
        std::vector<std::string> phases;
        bool isStopWanted = false;
        bool isPaused = false;
        bool hasEnded = false;
    };

    void addPhase(std::string phase) {
        change([&] { news_.phases.push_back(std::move(phase)); });
    }
    void stop() {
        change([&] { news_.isStopWanted = true; });
    }
    void pause(bool isPaused) {
        change([&] { news_.isPaused = isPaused; });
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
          localized("Ended at once; the delivery tool was killed, and "
                    "the store may hold a part of the delivery.")) {
    tool_ = worker;
    hidePhase(worker->storeMessages()->completedOperationWithStoreMessage());
    hidePhase(worker->storeMessages()->cancelledOperationWithStoreMessage());
}

void Job::hidePhase(const std::optional<std::string>& text) {
    if (text) {
        hiddenPhases_.insert(truncated(printable(*text), longestPhase));
    }
}

JobOutcome Job::run() {
    JobOutcome outcome;
    std::unique_ptr<Guardian> guardian;
    if (tool_) {
        Error error;
        guardian = Guardian::start(Process::defaultTerminationGrace(), error);
        if (!guardian) {
            outcome.errors.push_back(error);
            return outcome;
        }
        tool_->drovan()->setProcessGroup(guardian->group());
    }
    const auto signalTool = [&guardian](int number) {
        if (guardian) {
            guardian->signalGroup(number);
        }
    };
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
    // On a thread of its own: to cancel is to log and to tell observers, and either may wait for
    // who reads our output.
    std::optional<Canceller> canceller;
    try {
        canceller.emplace([&series] { series->cancel(); });
    } catch (const std::system_error& error) {
        outcome.errors.push_back(Error::posix(error.code().value(), "velto"));
        return outcome;
    }
    Interrupts& interrupts = frontend_.interrupts();
    const Finally deaf([&] {
        interrupts.setHandler({});
        interrupts.setPauseHandler({});
    });
    const std::string farewell = frontend_.console().encoded("velto: " + farewell_ + "\n");
    interrupts.setHandler([&](unsigned count) {
        if (count == 1) {
            frontend_.console().hurry();
            watch->stop();  // First: the job may end as soon as it is cancelled.
            canceller->cancel();
            return false;
        }
        signalTool(SIGKILL);
        frontend_.console().sayAtOnce(Console::Stream::errors, farewell);
        frontend_.answerStopAtOnce(farewell_);
        return true;
    });
    interrupts.setPauseHandler([&](bool isPaused) {
        signalTool(isPaused ? SIGSTOP : SIGCONT);
        watch->pause(isPaused);
    });

    const std::unique_ptr<Display> display = Display::make(frontend_);
    // By a clock that stands still while we are paused.
    Clock::duration paused = interrupts.pausedTime();
    const Clock::time_point start = Clock::now() - paused;
    Extrapolation extrapolation;
    Progress progress;
    const auto measure = [&](Clock::time_point now) {
        const MZWorkItem& item = current();
        const auto* const transfer = dynamic_cast<const MZThroughputWorker*>(item.worker().get());
        // The tool's figures may be anything.
        const double told = item.worker()->percentComplete();
        const double percent = std::isfinite(told) ? std::min(told, 100.0) : -1;
        progress.elapsed = secondsBetween(start, now - paused);
        progress.size = transfer != nullptr ? transfer->size() : 0;
        progress.completed =
            transfer != nullptr ? std::min(transfer->completed(), progress.size) : 0;
        progress.percent.reset();
        progress.remaining.reset();
        progress.rate = 0;
        // 0 stands for "not known yet" where nothing is transferred, below 0 for "not known".
        if (percent < 0 || (percent == 0 && progress.size == 0)) {
            return;
        }
        progress.percent = percent;
        if (progress.size == 0) {
            progress.remaining = extrapolation.remaining(percent, now - paused);
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
    canceller->begin();
    bool isStopping = false;
    for (;;) {
        const Watch::News news = watch->wait(display->nextProgress());
        if (const auto now = interrupts.pausedTime(); now != paused) {
            paused = now;
            current().forgetSamples();
        }
        const bool beginsToStop = news.isStopWanted && !isStopping;
        isStopping = news.isStopWanted;
        for (const std::string& text : news.phases) {
            const std::string phase = truncated(printable(text), longestPhase);
            if (isStopping || phase.empty() || phase == progress.phase ||
                hiddenPhases_.contains(phase) || (isHidden_ && isHidden_(text))) {
                continue;
            }
            const auto now = Clock::now();
            measure(now);
            progress.phase = phase;
            progress.id = phaseIdentifier(*current().worker(), text);
            MZLogInfo("%@", phase);
            display->phaseChanged(progress, now);
        }
        if (news.hasEnded) {
            break;
        }
        if (news.isPaused) {
            continue;
        }
        const auto now = Clock::now();
        if (beginsToStop) {
            measure(now);
            progress.phase = localized("Stopping…");
            progress.id = "stopping";
            display->phaseChanged(progress, now);
        }
        if (now >= display->nextProgress() && !progress.phase.empty()) {
            measure(now);
            display->progressed(progress, now);
        }
    }
    if (isStopping) {
        // The tool has ended; a process that it left behind has no more time than it had.
        signalTool(SIGKILL);
    }
    display->end();

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
    outcome.seconds = secondsBetween(start, Clock::now() - paused);
    outcome.size = transfer != nullptr ? transfer->size() : 0;
    outcome.completed = transfer != nullptr ? std::min(transfer->completed(), outcome.size) : 0;
    outcome.rate = last.finalRateString().value_or(std::string());
    return outcome;
}

}  // namespace velto::cli
