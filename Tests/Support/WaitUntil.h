#pragma once

#include <chrono>
#include <functional>

namespace velto::testing {

/// Waits until `predicate` answers true, at most for `limit`; answers what it did. For what no
/// event announces to a test: the limit only bounds a failing run.
bool waitUntil(const std::function<bool()>& predicate,
               std::chrono::duration<double> limit = std::chrono::seconds(30));

}  // namespace velto::testing
