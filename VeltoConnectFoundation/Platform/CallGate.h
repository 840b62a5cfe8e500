#pragma once

#include <atomic>

namespace velto {

/// Lets calls through until it is shut. Shutting waits for the calls under way on other threads;
/// one that the shutting thread is itself inside of goes on.
class CallGate {
public:
    /// One call; false when the gate was shut. The gate outlives it.
    class Passage {
    public:
        explicit Passage(CallGate& gate);
        ~Passage();
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;
        explicit operator bool() const { return isOpen_; }

    private:
        friend class CallGate;
        CallGate& gate_;
        const Passage* const outer_;
        const bool isOpen_;
    };

    void shut();
    bool isShut() const { return (state_.load() & shutFlag) != 0; }

private:
    static constexpr int shutFlag = 1;
    static constexpr int onePassage = 2;
    std::atomic<int> state_{0};  ///< The calls under way, twice, and the flag.
};

}  // namespace velto
