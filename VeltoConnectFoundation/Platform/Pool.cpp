#include <VeltoConnectFoundation/Platform/Pool.h>

#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t maximumThreads = 512;
constexpr std::chrono::milliseconds longestWait{10};
constexpr std::chrono::seconds longestIdleness{5};
constexpr int looksBeforeSleep = 5;

}  // namespace

constinit Mutex poolMutex;

Pool& Pool::shared() {
    static auto* const pool = new Pool;
    return *pool;
}

Pool::Pool() : coreCount_(std::max(1U, std::thread::hardware_concurrency())) {
}

void Pool::Piece::ended(Wakes&) noexcept {
}

Pool::Wakes::~Wakes() {
    if (changed_ != nullptr) {
        changed_->notify_all();
    }
    for (Worker* const worker : idle_) {
        worker->wakeUp.notify_one();
    }
    for (Worker* const worker : added_) {
        Pool::shared().start(*worker);
    }
    if (isSupervisorMissing_) {
        Pool::shared().startSupervisor();
    }
    if (isSupervisorAsleep_) {
        Pool::shared().supervisorWakeUp_.notify_one();
    }
}

void Pool::submit(Piece& piece) {
    const Clock::time_point now = Clock::now();
    Wakes wakes;
    const MutexGuard guard(poolMutex);
    submit(piece, now, wakes);
}

void Pool::submit(Piece& piece, Clock::time_point now, Wakes& wakes) {
    piece.next_ = nullptr;
    piece.readySince_ = now;
    (newest_ == nullptr ? oldest_ : newest_->next_) = &piece;
    newest_ = &piece;
    ++readyCount_;
    isAnyReady_.store(true, std::memory_order_relaxed);
    if (readyCount_ <= arriving_) {
        return;
    }
    if (!idle_.empty()) {
        Worker& worker = *idle_.back();
        idle_.pop_back();
        worker.isAwake = true;
        wakes.idle_.push_back(&worker);
        ++arriving_;
    } else if (threadCount_ < coreCount_) {
        wakes.added_.push_back(&addWorker());
    } else if (!isSupervised_) {
        isSupervised_ = true;
        takenAtLastLook_ = taken_;
        wakes.isSupervisorMissing_ = !std::exchange(hasSupervisor_, true);
        wakes.isSupervisorAsleep_ = !wakes.isSupervisorMissing_;
    }
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

/// The pieces stay: the next one that is submitted tries again, and so does the supervisor.
bool Pool::start(Worker& worker) noexcept {
    try {
        startThread("velto-pool", [this, &worker] { work(worker); });
        return true;
    } catch (...) {
        platformLogUncaught("starting a thread of the pool");
        const MutexGuard guard(poolMutex);
        --threadCount_;
        --arriving_;
        unused_.push_back(&worker);
        return false;
    }
}

void Pool::startSupervisor() noexcept {
    try {
        startThread("velto-watch", [this] { supervise(); });
    } catch (...) {
        platformLogUncaught("starting a thread of the pool");
        const MutexGuard guard(poolMutex);
        hasSupervisor_ = isSupervised_ = false;
    }
}

void Pool::work(Worker& worker) {
    arrive();
    do {
        std::unique_ptr<Piece> ended;
        while (Piece* const piece = takeNext(ended.get())) {
            ended.reset();
            if (piece->run()) {
                ended.reset(piece);
            }
        }
    } while (waitForWork(worker));
}

void Pool::arrive() {
    const MutexGuard guard(poolMutex);
    --arriving_;
}

Pool::Piece* Pool::takeNext(Piece* ended) {
    Wakes wakes;
    const MutexGuard guard(poolMutex);
    if (ended != nullptr) {
        // This thread is at hand for the first piece that the end of this one makes ready.
        ++arriving_;
        ended->ended(wakes);
        --arriving_;
    }
    Piece* const piece = oldest_;
    if (piece != nullptr) {
        oldest_ = piece->next_;
        --readyCount_;
        if (oldest_ == nullptr) {
            newest_ = nullptr;
            isAnyReady_.store(false, std::memory_order_relaxed);
        }
        ++taken_;
    }
    return piece;
}

/// Looks again for a moment before it sleeps, and lets others run meanwhile: whoever hands over
/// many small pieces need not wake a thread for each.
bool Pool::lookAgain() {
    {
        const MutexGuard guard(poolMutex);
        ++arriving_;
    }
    for (int look = 0; look < looksBeforeSleep && !isAnyReady_.load(std::memory_order_relaxed);
         ++look) {
        std::this_thread::yield();
    }
    const MutexGuard guard(poolMutex);
    --arriving_;
    return oldest_ != nullptr;
}

/// False when the thread is to end.
bool Pool::waitForWork(Worker& worker) {
    if (lookAgain()) {
        return true;
    }
    MutexGuard guard(poolMutex);
    if (oldest_ != nullptr) {
        return true;
    }
    worker.isAwake = false;
    idle_.push_back(&worker);
    const Clock::time_point end = Clock::now() + longestIdleness;
    while (!worker.isAwake) {
        if (threadCount_ <= coreCount_) {
            guard.wait(worker.wakeUp);
        } else if (!guard.waitUntil(worker.wakeUp, end) && !worker.isAwake &&
                   threadCount_ > coreCount_) {
            std::erase(idle_, &worker);
            --threadCount_;
            unused_.push_back(&worker);
            return false;
        }
    }
    --arriving_;
    return true;
}

/// As many threads as pieces have been ready too long, beyond those that threads are on their way
/// to, less those that the pool would start in time at the rate since the last look: so a pool
/// that moves grows by one at a time.
std::size_t Pool::missingThreads(Clock::time_point now) const {
    const std::size_t room = maximumThreads - std::min(maximumThreads, threadCount_);
    std::size_t ahead = arriving_;
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

void Pool::grow(std::size_t count) {
    for (bool isStarted = true; isStarted && count > 0; --count) {
        Worker* worker = nullptr;
        {
            const MutexGuard guard(poolMutex);
            worker = &addWorker();
        }
        isStarted = start(*worker);
    }
}

void Pool::supervise() {
    for (;;) {
        const Clock::time_point now = Clock::now();
        std::size_t missing = 0;
        {
            const MutexGuard guard(poolMutex);
            missing = missingThreads(now);
            takenAtLastLook_ = taken_;
        }
        grow(missing);

        MutexGuard guard(poolMutex);
        if (readyCount_ > arriving_) {
            const Clock::time_point due = oldest_->readySince_ + longestWait;
            guard.waitUntil(supervisorWakeUp_, due > now ? due : now + longestWait);
        } else {
            isSupervised_ = false;
            while (!isSupervised_) {
                guard.wait(supervisorWakeUp_);
            }
        }
    }
}

}  // namespace velto
