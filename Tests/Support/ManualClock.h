#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>

namespace velto::testing {

/// Moves the library's clock, and puts it back at the end of the scope.
class ManualClock {
public:
    ManualClock() = default;
    ~ManualClock() { Clock::advance(-total_); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    void advance(Seconds by) {
        total_ += by;
        Clock::advance(by);
    }

private:
    Seconds total_{0};
};

}  // namespace velto::testing
