#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

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

}  // namespace velto
