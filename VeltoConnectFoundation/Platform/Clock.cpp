#include <VeltoConnectFoundation/Platform/Clock.h>

#include <atomic>
#include <ctime>

namespace velto {

namespace {

constexpr double referenceDateInUnixSeconds = 978307200;

std::atomic<double> testOffset{0};

double read(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double wallSecondsSinceReference() {
    return read(CLOCK_REALTIME) - referenceDateInUnixSeconds;
}

}  // namespace

Date Clock::now() {
    // Boot time goes on while the machine sleeps, as wall time does.
    static const double bootDate = wallSecondsSinceReference() - read(CLOCK_BOOTTIME);
    return Date{bootDate + read(CLOCK_BOOTTIME) + testOffset.load(std::memory_order_relaxed)};
}

void Clock::advance(Seconds by) {
    testOffset.fetch_add(by.count(), std::memory_order_relaxed);
}

Date Clock::wallTime() {
    return Date{wallSecondsSinceReference()};
}

}  // namespace velto
