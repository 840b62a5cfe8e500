#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <chrono>

namespace velto {

/// A span of time in seconds.
using Seconds = std::chrono::duration<double>;

/// Dates for items, samples, rates and expiries: wall time read once, then advanced by the
/// boot-time clock, so that a change of the system's time moves nothing. Any thread.
class VELTO_EXPORT Clock {
public:
    static Date now();

    /// Tests only: adds to every later now().
    static void advance(Seconds by);

    /// True wall time, for log stamps, request ids and token claims.
    static Date wallTime();
};

/// The far future of the platform, 4001-01-01.
inline constexpr Date distantFuture{63113904000.0};

}  // namespace velto
