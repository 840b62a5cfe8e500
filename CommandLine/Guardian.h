#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Error.h>

#include <sys/types.h>

#include <memory>
#include <optional>

namespace velto::cli {

/// A process that leads the group in which the delivery tool runs, and does nothing but wait: when
/// `velto` is gone without a word, however it was killed, it ends the tool as `velto` would have.
///
/// The tool joins a group that is there already, so there is no moment in which nobody guards it.
/// The guardian has neither secrets nor descriptors of the caller. As long as `velto` lives, the
/// group's number is nobody else's, even when the guardian has ended. Any thread; no member waits.
class Guardian {
public:
    /// `grace` passes from the wish that the tool end to its kill. Null when the system gives no
    /// process.
    static std::unique_ptr<Guardian> start(Seconds grace, Error& error);
    ~Guardian();  ///< It ends at once; what else is in the group stays.
    Guardian(const Guardian&) = delete;
    Guardian& operator=(const Guardian&) = delete;

    pid_t group() const { return group_; }
    void signalGroup(int number) const noexcept;

    /// What `velto` does when it was started as its own guardian: its exit status; none when it
    /// was not. The first thing that main() asks.
    static std::optional<int> runIfMeant(int count, char** arguments);

private:
    Guardian(pid_t group, int lifeLine) noexcept : group_(group), lifeLine_(lifeLine) {}

    const pid_t group_;
    const int lifeLine_;  ///< Its end without a byte is our own.
};

}  // namespace velto::cli
