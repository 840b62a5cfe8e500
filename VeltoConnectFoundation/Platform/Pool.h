#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace velto {

/// The threads that every queue but the main one shares.
///
/// First come, first served. As many threads as cores at first; one more when the oldest ready
/// piece has waited 10 ms and no thread is idle, up to 512. The thread that went idle last is
/// woken first, so that those beyond the cores get their 5 s of idleness and end.
class Pool {
public:
    /// What a thread of the pool runs. Linked, not owned: it stays alive until run() is entered.
    class Piece {
    public:
        /// No lock is held.
        virtual void run() noexcept = 0;

    protected:
        Piece() = default;
        virtual ~Piece() = default;

    private:
        friend class Pool;
        Piece* next_ = nullptr;
        std::chrono::steady_clock::time_point readySince_;
    };

    static Pool& shared();  ///< Never destroyed.

    void submit(Piece& piece) noexcept;

private:
    using Clock = std::chrono::steady_clock;

    /// Kept for the next thread when its thread ends, so that waking it never comes too late.
    struct Worker {
        std::condition_variable wakeUp;
        bool isAwake = false;
    };

    Pool();
    void start(Worker& worker);
    void work(Worker& worker);
    bool sleep(Worker& worker, MutexGuard& guard) VELTO_REQUIRES(mutex_);
    Piece& takeOldest() VELTO_REQUIRES(mutex_);
    Worker& addWorker() VELTO_REQUIRES(mutex_);
    void dropWorker(Worker& worker) VELTO_REQUIRES(mutex_);
    void supervise();
    std::size_t missingThreads(Clock::time_point now) const VELTO_REQUIRES(mutex_);

    const std::size_t coreCount_;
    Mutex mutex_;
    Piece* oldest_ VELTO_GUARDED_BY(mutex_) = nullptr;
    Piece* newest_ VELTO_GUARDED_BY(mutex_) = nullptr;
    std::size_t readyCount_ VELTO_GUARDED_BY(mutex_) = 0;
    std::size_t arriving_ VELTO_GUARDED_BY(mutex_) =
        0;  ///< Threads woken or started, not there yet.
    std::uint64_t taken_ VELTO_GUARDED_BY(mutex_) = 0;
    std::size_t threadCount_ VELTO_GUARDED_BY(mutex_) = 0;
    std::vector<Worker*> idle_ VELTO_GUARDED_BY(mutex_);
    std::vector<std::unique_ptr<Worker>> workers_ VELTO_GUARDED_BY(mutex_);
    std::vector<Worker*> unused_ VELTO_GUARDED_BY(mutex_);

    std::condition_variable supervisorWakeUp_;
    bool hasSupervisor_ VELTO_GUARDED_BY(mutex_) = false;
    bool isSupervised_ VELTO_GUARDED_BY(mutex_) = false;
    std::uint64_t takenAtLastLook_ VELTO_GUARDED_BY(mutex_) = 0;
};

}  // namespace velto
