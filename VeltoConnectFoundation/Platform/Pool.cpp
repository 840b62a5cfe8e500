#include <VeltoConnectFoundation/Platform/Pool.h>

#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <algorithm>
#include <thread>

namespace velto {

namespace {

constexpr std::size_t maximumThreads = 512;
constexpr std::chrono::milliseconds longestWait{10};
constexpr std::chrono::seconds longestIdleness{5};

}  // namespace

Pool& Pool::shared() {
    static Pool* const pool = new Pool;
    return *pool;
}

Pool::Pool() : coreCount_(std::max(1U, std::thread::hardware_concurrency())) {
}

void Pool::submit(Piece& piece) noexcept {
    piece.next_ = nullptr;
    piece.readySince_ = Clock::now();
    Worker* idle = nullptr;
    Worker* added = nullptr;
    bool needsSupervisor = false;
    bool wakesSupervisor = false;
    {
        const MutexGuard guard(mutex_);
        (newest_ == nullptr ? oldest_ : newest_->next_) = &piece;
        newest_ = &piece;
        ++readyCount_;
        if (readyCount_ <= arriving_) {
            return;
        }
        if (!idle_.empty()) {
            idle = idle_.back();
            idle_.pop_back();
            idle->isAwake = true;
            ++arriving_;
        } else if (threadCount_ < coreCount_) {
            added = &addWorker();
        } else if (!isSupervised_) {
            isSupervised_ = wakesSupervisor = true;
            takenAtLastLook_ = taken_;
            needsSupervisor = !hasSupervisor_;
            hasSupervisor_ = true;
        }
    }
    try {
        if (idle != nullptr) {
            idle->wakeUp.notify_one();
        } else if (added != nullptr) {
            start(*added);
        } else if (needsSupervisor) {
            startThread("velto-pool", [this] { supervise(); });
        } else if (wakesSupervisor) {
            supervisorWakeUp_.notify_one();
        }
    } catch (...) {
        // The piece stays; the next one that is submitted tries again.
        platformLogUncaught("starting a thread of the pool");
        const MutexGuard guard(mutex_);
        if (added != nullptr) {
            dropWorker(*added);
        } else {
            hasSupervisor_ = isSupervised_ = false;
        }
    }
}

Pool::Piece& Pool::takeOldest() {
    Piece& piece = *oldest_;
    oldest_ = piece.next_;
    if (oldest_ == nullptr) {
        newest_ = nullptr;
    }
    --readyCount_;
    ++taken_;
    return piece;
}

Pool::Worker& Pool::addWorker() {
    if (unused_.empty()) {
        unused_.push_back(workers_.emplace_back(std::make_unique<Worker>()).get());
    }
    Worker& worker = *unused_.back();
    unused_.pop_back();
    ++threadCount_;
    ++arriving_;
    return worker;
}

void Pool::dropWorker(Worker& worker) {
    --threadCount_;
    --arriving_;
    unused_.push_back(&worker);
}

void Pool::start(Worker& worker) {
    startThread("velto-pool", [this, &worker] { work(worker); });
}

void Pool::work(Worker& worker) {
    MutexGuard guard(mutex_);
    do {
        --arriving_;
        while (oldest_ != nullptr) {
            Piece& piece = takeOldest();
            guard.unlock();
            piece.run();
            guard.lock();
        }
    } while (sleep(worker, guard));
    --threadCount_;
    unused_.push_back(&worker);
}

/// False when the thread is to end.
bool Pool::sleep(Worker& worker, MutexGuard& guard) {
    worker.isAwake = false;
    idle_.push_back(&worker);
    const Clock::time_point end = Clock::now() + longestIdleness;
    while (!worker.isAwake) {
        if (threadCount_ <= coreCount_) {
            guard.wait(worker.wakeUp);
        } else if (!guard.waitUntil(worker.wakeUp, end) && !worker.isAwake &&
                   threadCount_ > coreCount_) {
            std::erase(idle_, &worker);
            return false;
        }
    }
    return true;
}

/// As many as have been kept waiting too long, less those that the pool would start in time at
/// the rate since the last look; so a pool that moves grows by one at a time.
std::size_t Pool::missingThreads(Clock::time_point now) const {
    const std::size_t room = maximumThreads - std::min(maximumThreads, threadCount_);
    std::size_t ahead = arriving_;  // These are taken by threads that are on their way.
    std::size_t late = 0;
    for (const Piece* piece = oldest_; piece != nullptr && late < room; piece = piece->next_) {
        if (ahead > 0) {
            --ahead;
        } else if (piece->readySince_ + longestWait <= now) {
            ++late;
        } else {
            break;
        }
    }
    const std::uint64_t rate = taken_ - takenAtLastLook_;
    return late == 0 ? 0 : rate < late ? late - static_cast<std::size_t>(rate) : 1;
}

void Pool::supervise() {
    MutexGuard guard(mutex_);
    for (;;) {
        if (readyCount_ <= arriving_) {
            isSupervised_ = false;
            while (!isSupervised_) {
                guard.wait(supervisorWakeUp_);
            }
        }
        const Clock::time_point now = Clock::now();
        const std::size_t missing = missingThreads(now);
        takenAtLastLook_ = taken_;
        for (std::size_t count = 0; count < missing; ++count) {
            Worker& worker = addWorker();
            guard.unlock();
            bool started = true;
            try {
                start(worker);
            } catch (...) {
                started = false;
            }
            guard.lock();
            if (!started) {
                dropWorker(worker);
                break;
            }
        }
        const Clock::time_point due = oldest_ == nullptr ? now : oldest_->readySince_ + longestWait;
        const Clock::time_point next = due > now ? due : now + longestWait;
        while (readyCount_ > 0 && Clock::now() < next) {
            guard.waitUntil(supervisorWakeUp_, next);
        }
    }
}

}  // namespace velto
