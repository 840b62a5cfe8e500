#pragma once

#include <functional>

namespace velto::testing {

/// Runs `work` on a thread with a stack of 256 KiB and waits for it: what recurses with the depth
/// of its input ends there.
void onSmallStack(const std::function<void()>& work);

}  // namespace velto::testing
