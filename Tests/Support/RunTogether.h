#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

namespace velto::testing {

/// Runs `body` with 0, 1, … on `count` threads that all start at once, and waits for them.
inline void runTogether(int count, const std::function<void(int)>& body) {
    std::barrier start(count);
    std::vector<std::thread> threads;
    for (int index = 0; index < count; ++index) {
        threads.emplace_back([&, index] {
            start.arrive_and_wait();
            body(index);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace velto::testing
