#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace velto {

/// Guards the pool and all operation queues: one lock to hand an operation over, one to end it and
/// take the next.
extern Mutex poolMutex;

/// The threads that every queue but the main one shares.
///
/// First come, first served. Without a thread to run it a piece is refused or tried again, never
/// lost. As many threads as cores at first; one more when the oldest ready
/// piece has waited 10 ms and no thread is idle, up to 512. The thread that went idle last is
/// woken first, so that those beyond the cores get their 5 s of idleness and end.
class Pool {
    struct Worker;

public:
    using Clock = std::chrono::steady_clock;

    /// The threads that a change of the pool calls for. Stands before the guard of the mutex, so
    /// that it wakes them after it.
    class Wakes {
    public:
        Wakes() = default;
        ~Wakes();
        Wakes(const Wakes&) = delete;
        Wakes& operator=(const Wakes&) = delete;

        /// For those who wait for a change. One condition, which outlives this.
        void notifyAll(std::condition_variable& condition) { changed_ = &condition; }

    private:
        friend class Pool;
        std::condition_variable* changed_ = nullptr;
        std::vector<Worker*> idle_;
        std::vector<Worker*> added_;
        bool isShort_ = false;
        bool isSupervisorMissing_ = false;
        bool isSupervisorAsleep_ = false;
    };

    /// What a thread of the pool runs; linked, not copied.
    class Piece {
    public:
        virtual ~Piece() = default;

        /// No lock is held. True: the pool then calls ended() and deletes the piece. False: the
        /// pool does not touch it any more.
        virtual bool run() noexcept = 0;
        virtual void ended(Wakes& wakes) noexcept VELTO_REQUIRES(poolMutex);
        /// The pool has no thread, and gets none: `number` is the system's reason. No lock is held.
        /// True ends the piece as run() does; false leaves it with the pool, which tries again.
        virtual bool refuse(int number) noexcept;

    protected:
        Piece() = default;

    private:
        friend class Pool;
        Piece* next_ = nullptr;
        Clock::time_point readySince_;
    };

    static Pool& shared();  ///< Never destroyed.

    void submit(Piece& piece);
    /// Looks again at what waits for a thread, if nothing else does. A piece that gets more to do
    /// calls it.
    void tryAgainIfStranded() noexcept;
    void submit(Piece& piece, Clock::time_point now, Wakes& wakes) VELTO_REQUIRES(poolMutex);

private:
    /// Kept for the next thread when its thread ends, so that waking it never comes too late.
    struct Worker {
        std::condition_variable wakeUp;
        bool isAwake = false;
    };

    Pool();
    void work(Worker& worker);
    void arrive();
    Piece* takeNext(Piece* ended);
    bool lookAgain();
    bool waitForWork(Worker& worker);
    Worker& addWorker() VELTO_REQUIRES(poolMutex);
    bool start(Worker& worker) noexcept;
    void startSupervisor() noexcept;
    void refuseWithoutThreads(int number) noexcept;
    void append(Piece& piece) VELTO_REQUIRES(poolMutex);
    Piece* takeOldest() VELTO_REQUIRES(poolMutex);
    void noteShortage() noexcept;
    void tryAgainLater() noexcept;
    void tryAgain();
    void supervise();
    std::size_t missingThreads(Clock::time_point now) const VELTO_REQUIRES(poolMutex);
    bool grow(std::size_t count);

    const std::size_t coreCount_;
    Piece* oldest_ VELTO_GUARDED_BY(poolMutex) = nullptr;
    Piece* newest_ VELTO_GUARDED_BY(poolMutex) = nullptr;
    std::size_t readyCount_ VELTO_GUARDED_BY(poolMutex) = 0;
    std::atomic<bool> isAnyReady_{false};  ///< Changed under the mutex.
    std::atomic<bool> isShort_{false};     ///< Logged once, until a thread starts again.
    std::atomic<bool> isStranded_{false};  ///< Only the next use tries again.
    /// Threads that are on their way to the ready pieces: woken,
    /// started, or looking again before they sleep.
    std::size_t arriving_ VELTO_GUARDED_BY(poolMutex) = 0;
    bool isRefusing_ VELTO_GUARDED_BY(poolMutex) = false;
    std::uint64_t taken_ VELTO_GUARDED_BY(poolMutex) = 0;
    std::size_t threadCount_ VELTO_GUARDED_BY(poolMutex) = 0;
    std::vector<Worker*> idle_ VELTO_GUARDED_BY(poolMutex);
    std::vector<std::unique_ptr<Worker>> workers_ VELTO_GUARDED_BY(poolMutex);
    std::vector<Worker*> unused_ VELTO_GUARDED_BY(poolMutex);

    std::condition_variable supervisorWakeUp_;
    bool hasSupervisor_ VELTO_GUARDED_BY(poolMutex) = false;
    bool isSupervised_ VELTO_GUARDED_BY(poolMutex) = false;
    std::uint64_t takenAtLastLook_ VELTO_GUARDED_BY(poolMutex) = 0;
};

}  // namespace velto
