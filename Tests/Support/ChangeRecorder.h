#pragma once

#include <VeltoConnectFoundation/Platform/Observable.h>

#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto::testing {

/// Writes down the keys of an object's changes in the order in which they are announced; what is
/// announced before a change reads "key…" when asked for.
class ChangeRecorder {
public:
    ChangeRecorder(Observable& object,
                   std::initializer_list<std::string_view> keys,
                   ObserverTiming timing = ObserverTiming::after) {
        for (const std::string_view key : keys) {
            observations_.push_back(object.observe(
                key, [this](const PropertyChange& change) { record(change); }, timing));
        }
    }

    /// What has been written down since the last call.
    std::vector<std::string> take() {
        const std::lock_guard guard(mutex_);
        return std::exchange(keys_, {});
    }

private:
    void record(const PropertyChange& change) {
        const std::lock_guard guard(mutex_);
        keys_.push_back(std::string(change.key) + (change.isPrior ? "…" : ""));
    }

    std::mutex mutex_;
    std::vector<std::string> keys_;
    std::vector<Observation> observations_;
};

}  // namespace velto::testing
