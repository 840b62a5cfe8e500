#include <VeltoConnectFoundation/Platform/Pool.h>

#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/Thread.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t maximumThreads = 512;
constexpr std::chrono::milliseconds longestWait{10};
constexpr std::chrono::seconds longestIdleness{5};
constexpr int looksBeforeSleep = 5;
constexpr std::chrono::milliseconds pauseWithoutThreads{100};

/// 0, or why the system gives no thread.
int startedThread(const char* name, std::function<void()> body) noexcept {
    try {
        startThread(name, std::move(body));
        return 0;
    } catch (const std::system_error& failure) {
        return failure.code().value();
    } catch (...) {
        return ENOMEM;
    }
}

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

bool Pool::Piece::refuse(int) noexcept {
    return false;
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
    if (isShort_) {
        Pool::shared().refuseWithoutThreads(ENOMEM);
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

void Pool::append(Piece& piece) {
    piece.next_ = nullptr;
    (newest_ == nullptr ? oldest_ : newest_->next_) = &piece;
    newest_ = &piece;
    ++readyCount_;
    isAnyReady_.store(true, std::memory_order_relaxed);
}

void Pool::submit(Piece& piece, Clock::time_point now, Wakes& wakes) {
    piece.readySince_ = now;
    append(piece);
    if (readyCount_ <= arriving_) {
        return;
    }
    if (!idle_.empty()) {
        Worker& worker = *idle_.back();
        idle_.pop_back();
        worker.isAwake = true;
        ++arriving_;
        try {
            wakes.idle_.push_back(&worker);
        } catch (const std::bad_alloc&) {
            worker.wakeUp.notify_one();
        }
    } else if (threadCount_ < coreCount_) {
        try {
            wakes.added_.reserve(wakes.added_.size() + 1);
            wakes.added_.push_back(&addWorker());
        } catch (const std::bad_alloc&) {
            wakes.isShort_ = true;
        }
    } else if (!isSupervised_) {
        isSupervised_ = true;
        takenAtLastLook_ = taken_;
        wakes.isSupervisorMissing_ = !std::exchange(hasSupervisor_, true);
        wakes.isSupervisorAsleep_ = !wakes.isSupervisorMissing_;
    }
}

Pool::Worker& Pool::addWorker() {
    if (unused_.empty()) {
        // So that neither giving one back nor going idle ever fails.
        unused_.reserve(workers_.size() + 1);
        idle_.reserve(workers_.size() + 1);
        unused_.push_back(workers_.emplace_back(std::make_unique<Worker>()).get());
    }
    Worker& worker = *unused_.back();
    unused_.pop_back();
    ++threadCount_;
    ++arriving_;
    return worker;
}

bool Pool::start(Worker& worker) noexcept {
    const int number = startedThread("velto-pool", [this, &worker] { work(worker); });
    if (number == 0) {
        isShort_.store(false, std::memory_order_relaxed);
        return true;
    }
    {
        const MutexGuard guard(poolMutex);
        --threadCount_;
        --arriving_;
        unused_.push_back(&worker);
    }
    refuseWithoutThreads(number);
    return false;
}

/// As long as there is a thread, what is ready waits for it. What the end of one piece makes ready
/// is refused by the same loop, however much it is.
void Pool::refuseWithoutThreads(int number) noexcept {
    noteShortage();
    Piece* kept = nullptr;
    for (bool isFirst = true;; isFirst = false) {
        Piece* piece = nullptr;
        {
            const MutexGuard guard(poolMutex);
            if (isFirst && std::exchange(isRefusing_, true)) {
                return;
            }
            piece = threadCount_ == 0 ? takeOldest() : nullptr;
            if (piece == nullptr) {
                isRefusing_ = false;
                break;
            }
        }
        if (!piece->refuse(number)) {
            piece->next_ = kept;
            kept = piece;
            continue;
        }
        const std::unique_ptr<Piece> ended(piece);
        Wakes wakes;
        const MutexGuard guard(poolMutex);
        piece->ended(wakes);
    }
    if (kept != nullptr) {
        {
            const MutexGuard guard(poolMutex);
            while (kept != nullptr) {
                append(*std::exchange(kept, kept->next_));
            }
        }
        tryAgainLater();
    }
}

void Pool::noteShortage() noexcept {
    if (!isShort_.exchange(true)) {
        platformLog(3, "The system gives the library no more threads.");
    }
}

/// For what nobody else would look at again: only the I/O thread has a clock to wake by.
void Pool::tryAgainLater() noexcept {
    IOThread::Token timer = 0;
    try {
        timer = IOThread::shared().addTimer(pauseWithoutThreads, [this] { tryAgain(); });
    } catch (const std::bad_alloc&) {
        // As without an I/O thread.
    }
    isStranded_ = timer == 0;
}

void Pool::tryAgainIfStranded() noexcept {
    if (isStranded_.load(std::memory_order_relaxed) && isStranded_.exchange(false)) {
        try {
            tryAgain();
        } catch (const std::bad_alloc&) {
            isStranded_ = true;
        }
    }
}

void Pool::tryAgain() {
    Wakes wakes;
    const MutexGuard guard(poolMutex);
    if (readyCount_ <= arriving_) {
        return;
    }
    if (threadCount_ < coreCount_) {
        wakes.added_.reserve(1);
        wakes.added_.push_back(&addWorker());
    } else if (!isSupervised_) {
        isSupervised_ = true;
        wakes.isSupervisorMissing_ = !std::exchange(hasSupervisor_, true);
        wakes.isSupervisorAsleep_ = !wakes.isSupervisorMissing_;
    }
}

void Pool::startSupervisor() noexcept {
    if (startedThread("velto-watch", [this] { supervise(); }) != 0) {
        noteShortage();
        {
            const MutexGuard guard(poolMutex);
            hasSupervisor_ = isSupervised_ = false;
        }
        tryAgainLater();
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
    return takeOldest();
}

Pool::Piece* Pool::takeOldest() {
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

/// False when there was no thread, or no memory, for one of them.
bool Pool::grow(std::size_t count) {
    for (; count > 0; --count) {
        Worker* worker = nullptr;
        try {
            const MutexGuard guard(poolMutex);
            worker = &addWorker();
        } catch (const std::bad_alloc&) {
            return false;
        }
        if (!start(*worker)) {
            return false;
        }
    }
    return true;
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
        const Clock::duration pause = grow(missing) ? longestWait : pauseWithoutThreads;

        MutexGuard guard(poolMutex);
        if (readyCount_ > arriving_) {
            const Clock::time_point due = oldest_->readySince_ + longestWait;
            guard.waitUntil(supervisorWakeUp_, due > now ? due : now + pause);
        } else {
            isSupervised_ = false;
            while (!isSupervised_) {
                guard.wait(supervisorWakeUp_);
            }
        }
    }
}

}  // namespace velto
