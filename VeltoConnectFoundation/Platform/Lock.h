#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VELTO_ANNOTATION(x) __attribute__((x))
#else
#define VELTO_ANNOTATION(x)
#endif
#define VELTO_CAPABILITY(name) VELTO_ANNOTATION(capability(name))
#define VELTO_SCOPED_CAPABILITY VELTO_ANNOTATION(scoped_lockable)
#define VELTO_GUARDED_BY(lock) VELTO_ANNOTATION(guarded_by(lock))
#define VELTO_REQUIRES(...) VELTO_ANNOTATION(requires_capability(__VA_ARGS__))
#define VELTO_EXCLUDES(...) VELTO_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VELTO_ACQUIRE(...) VELTO_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VELTO_TRY_ACQUIRE(...) VELTO_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VELTO_RELEASE(...) VELTO_ANNOTATION(release_capability(__VA_ARGS__))
#define VELTO_NO_THREAD_SAFETY_ANALYSIS VELTO_ANNOTATION(no_thread_safety_analysis)

namespace velto {

/// A recursive mutex with the annotations that clang checks.
class VELTO_CAPABILITY("mutex") Lock {
public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() VELTO_ACQUIRE() { mutex_.lock(); }
    bool try_lock() VELTO_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
    void unlock() VELTO_RELEASE() { mutex_.unlock(); }

private:
    std::recursive_mutex mutex_;
};

/// Holds a Lock for a scope.
class VELTO_SCOPED_CAPABILITY Guard {
public:
    explicit Guard(Lock& lock) VELTO_ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
    ~Guard() VELTO_RELEASE() { lock_.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    Lock& lock_;
};

/// A plain mutex, for inner state that threads wait on.
class VELTO_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

private:
    friend class MutexGuard;
    std::mutex mutex_;
};

/// Holds a Mutex for a scope; may let go of it in between, and wait.
class VELTO_SCOPED_CAPABILITY MutexGuard {
public:
    explicit MutexGuard(Mutex& mutex) VELTO_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
    ~MutexGuard() VELTO_RELEASE() {}
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    void lock() VELTO_ACQUIRE() { lock_.lock(); }
    void unlock() VELTO_RELEASE() { lock_.unlock(); }
    void wait(std::condition_variable& condition) { condition.wait(lock_); }
    /// False when the time has come.
    template <class TimePoint>
    bool waitUntil(std::condition_variable& condition, const TimePoint& time) {
        return condition.wait_until(lock_, time) == std::cv_status::no_timeout;
    }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace velto
