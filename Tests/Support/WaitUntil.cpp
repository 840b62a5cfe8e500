#include <Tests/Support/WaitUntil.h>

#include <thread>

namespace velto::testing {

bool waitUntil(const std::function<bool()>& predicate, std::chrono::duration<double> limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    return true;
}

}  // namespace velto::testing
