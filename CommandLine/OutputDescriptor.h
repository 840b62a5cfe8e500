#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

namespace velto::cli {

/// An open descriptor as a place to write to, which stays its owner's. One thread at a time, but
/// for what says otherwise.
class OutputDescriptor {
public:
    /// `hurry` is a descriptor that becomes readable when nobody has time to wait any more.
    OutputDescriptor(int number, int hurry);
    ~OutputDescriptor();
    OutputDescriptor(const OutputDescriptor&) = delete;
    OutputDescriptor& operator=(const OutputDescriptor&) = delete;

    bool isTerminal() const { return isTerminal_; }  ///< Any thread.
    std::size_t width() const;                       ///< Columns of the terminal. Any thread.

    /// All of it, or as much as can be written. Waits for who reads it; once there is hurry, as
    /// long as something is taken in each second, and no more after that.
    void write(std::string_view text);
    /// The first failure of a write, an errno: ETIMEDOUT for what nobody took; 0 without one. Any
    /// thread.
    int problem() const { return problem_; }

    /// What can be written without waiting, up to 4096 bytes; from any thread, beside a write.
    void writeAtOnce(std::string_view text) const noexcept;

private:
    /// 0, or an errno.
    int waitForRoom();

    const int hurry_;
    const bool isTerminal_;
    int descriptor_;  ///< A terminal's or pipe's own, which never waits by itself.
    const bool isOwn_;
    bool isStuck_ = false;
    std::atomic<int> problem_{0};
};

}  // namespace velto::cli
