#pragma once

namespace velto::testing {

/// For tests of what a process can do only once, such as choosing the main queue's home: runs the
/// current test again in a process of its own, in which nobody has touched the main queue.
///
///     if (ranInFreshProcess()) {
///         return;  // Its failures have been reported here.
///     }
bool ranInFreshProcess();

/// Whether this is such a process.
bool isFreshProcess();

}  // namespace velto::testing
