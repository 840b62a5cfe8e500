#pragma once

#include <optional>
#include <string>
#include <vector>

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

/// The current test's command line, run behind `words` (a program that runs it; its path first)
/// with `mark` (NAME=VALUE) in its environment; the exit code, or none when it was not to be run.
std::optional<int> runTestAgain(std::vector<std::string> words, std::string mark);

}  // namespace velto::testing
