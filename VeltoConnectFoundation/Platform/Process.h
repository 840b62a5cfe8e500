#pragma once

#include <VeltoConnectFoundation/Platform/ChannelReport.h>
#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/DeliveryTarget.h>
#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace velto {

/// How a child ended.
struct ProcessExit {
    /// The numbers are the platform's own reasons.
    enum class Reason : std::uint8_t {
        exit = 1,
        uncaughtSignal = 2,
        unknown = 3,  ///< The host reaps all children, so the status is lost: a failure.
    };

    Reason reason = Reason::unknown;
    int status = -1;  ///< The exit status or the signal's number; -1 when unknown.
    friend bool operator==(const ProcessExit&, const ProcessExit&) = default;
};

enum class ProcessStream : std::uint8_t { standardOutput, standardError };

/// Told of one child's output and end, on the target of its launch: all blocks, what was left in
/// the pipes when the child ended, then the end. Held weakly; without it the output is dropped.
class VELTO_EXPORT ProcessDelegate {
public:
    virtual ~ProcessDelegate();

    virtual void processDidReport(ProcessStream stream, const ChannelReport& report);
    virtual void processDidTerminate(const ProcessExit& exit);
};

/// What to start, and how.
struct ProcessLaunch {
    enum class StandardInput : std::uint8_t {
        null,        ///< Ends at once.
        silentPipe,  ///< Open as long as the child runs; never written to.
    };

    std::string path;                       ///< Of the program; relative to this process's folder.
    std::vector<std::string> arguments;     ///< Without the program's own name.
    std::optional<Dictionary> environment;  ///< Names to texts; none is this process's own.
    std::string folder;  ///< The child's working folder; empty is this process's.
    StandardInput standardInput = StandardInput::null;
    Seconds terminationGrace{10};  ///< From terminate() to the kill.
    /// The process group to join, one of this session; 0 is one of the child's own. It is the
    /// caller's, who keeps its number from being another's (its leader is not reaped) as long as
    /// this child may be signalled.
    std::int64_t processGroup = 0;
};

/// A child process in a process group of its own or of the caller's, with both its outputs
/// captured.
///
/// Launched once. The handle may go at any time: the child runs on unheard, and is reaped as soon
/// as it ends. No signal handler is set and no disposition changed, in this process; the child
/// starts with default ones, none blocked, and no descriptor beyond the three standard ones. Any
/// thread.
class VELTO_EXPORT Process {
public:
    /// With its pipes; null when the system gives none.
    [[nodiscard]] static std::unique_ptr<Process> make(Error* error = nullptr);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Errors are of the POSIX domain and say what could not be started and why. The delegate hears
    /// nothing of a child that was not started. A second launch raises.
    [[nodiscard]] bool launch(const ProcessLaunch& launch,
                              const DeliveryTarget& target,
                              std::weak_ptr<ProcessDelegate> delegate,
                              Error* error = nullptr);

    bool isLaunched() const;
    bool isRunning() const;                         ///< False as soon as the child has been reaped.
    std::int64_t identifier() const;                ///< The child's number; 0 before the launch.
    std::optional<ProcessExit> exitStatus() const;  ///< none until the child has been reaped

    /// Asks the whole process group to end (SIGTERM), and kills what is left of it after the
    /// grace. False when there is no running child.
    bool terminate();
    bool interrupt();  ///< SIGINT to the whole group.
    /// SIGKILL to the whole group, or to what is left of it when the child has ended. False when
    /// nothing is.
    bool kill();

    /// Runs the calling thread's run loop until the child has been reaped.
    void waitUntilExit() const;

    /// The setting "VeltoProcessTerminationGrace".
    static Seconds defaultTerminationGrace();

private:
    class State;
    explicit Process(std::shared_ptr<State> state) noexcept;
    std::shared_ptr<State> state_;
};

}  // namespace velto
