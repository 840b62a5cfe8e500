#include <VeltoConnectFoundation/Platform/Export.h>

#include <Tests/Memory/FailingAllocations.h>

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <new>

namespace velto::testing {

namespace {

/// Which allocation from now fails; 0 is none.
std::atomic<std::size_t> left = 0;
std::atomic<bool> failsOn = false;
std::atomic<bool> failed = false;

/// Inside an operator that has been counted and that may call malloc.
thread_local bool isCounted = false;

bool failsNow() noexcept {
    std::size_t now = left.load(std::memory_order_relaxed);
    do {
        if (now == 0 || isCounted) {
            return false;
        }
    } while (!left.compare_exchange_weak(now, now == 1 && failsOn ? 1 : now - 1));
    if (now == 1) {
        failed = true;
        errno = ENOMEM;
    }
    return now == 1;
}

/// The function that would have been called, of the C library or of a sanitizer.
template <class Function>
class Next {
public:
    explicit constexpr Next(const char* name) noexcept : name_(name) {}

    template <class... Arguments>
    auto operator()(Arguments... arguments) {
        Function* function = function_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name_));
            function_.store(function, std::memory_order_relaxed);
        }
        return function(arguments...);
    }

private:
    const char* name_;
    std::atomic<Function*> function_ = nullptr;
};

constinit Next<void*(std::size_t)> nextMalloc("malloc");
constinit Next<void*(std::size_t, std::size_t)> nextCalloc("calloc");
constinit Next<void*(void*, std::size_t)> nextRealloc("realloc");
constinit Next<void*(std::size_t)> nextNew("_Znwm");
constinit Next<void*(std::size_t)> nextNewArray("_Znam");
constinit Next<int(pthread_t, pthread_attr_t*)> nextAttributes("pthread_getattr_np");

/// A sanitizer's operators do not come by malloc, the library's do.
template <class Function>
void* countedOnce(Next<Function>& next, std::size_t size) {
    if (failsNow()) {
        throw std::bad_alloc();
    }
    isCounted = true;
    void* const block = next(size);
    isCounted = false;
    return block;
}

}  // namespace

FailingAllocations::FailingAllocations(std::size_t number, Failing failing) noexcept {
    failsOn = failing == Failing::fromThenOn;
    failed = false;
    left = number;
}

bool FailingAllocations::hasFailed() noexcept {
    return failed;
}

void FailingAllocations::stop() noexcept {
    left = 0;
}

}  // namespace velto::testing

// The program's own come before those of every library. What they give is freed as before.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,misc-new-delete-overloads,cert-dcl54-cpp)

extern "C" {

VELTO_EXPORT void* malloc(std::size_t size) {
    return velto::testing::failsNow() ? nullptr : velto::testing::nextMalloc(size);
}

VELTO_EXPORT void* calloc(std::size_t count, std::size_t size) {
    return velto::testing::failsNow() ? nullptr : velto::testing::nextCalloc(count, size);
}

VELTO_EXPORT void* realloc(void* block, std::size_t size) {
    return velto::testing::failsNow() ? nullptr : velto::testing::nextRealloc(block, size);
}

/// By which a sanitizer begins each thread; it bears no failure.
VELTO_EXPORT int pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) {
    velto::testing::isCounted = true;
    const int result = velto::testing::nextAttributes(thread, attributes);
    velto::testing::isCounted = false;
    return result;
}

}  // extern "C"

VELTO_EXPORT void* operator new(std::size_t size) {
    return velto::testing::countedOnce(velto::testing::nextNew, size);
}

VELTO_EXPORT void* operator new[](std::size_t size) {
    return velto::testing::countedOnce(velto::testing::nextNewArray, size);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name,misc-new-delete-overloads,cert-dcl54-cpp)
