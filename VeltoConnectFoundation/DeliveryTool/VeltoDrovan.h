#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/Outbox.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class VeltoDrovan;

inline constexpr std::string_view VeltoDrovanExecutablePath = "VeltoDrovanExecutablePath";
inline constexpr std::string_view VeltoDrovanRelativeExecutablePath = "velm/bin/VelmDrovan";
inline constexpr std::string_view VeltoDrovanRelativeJavaExecutablePath = "velm/java/bin/java";
inline constexpr std::string_view VeltoDrovanJavaExecutablePathRelativeToDrovanExecutable =
    "VeltoDrovanJavaExecutablePathRelativeToDrovanExecutable";
inline constexpr std::string_view VeltoDrovanJavaVersionSearchStrings =
    "VeltoDrovanJavaVersionSearchStrings";
inline constexpr std::string_view VeltoDrovanAdditionalPathsToVELMDrovan =
    "VeltoDrovanAdditionalPathsToVELMDrovan";
inline constexpr std::string_view VeltoDrovanDefaultsURL = "VeltoDrovanDefaultsURL";
inline constexpr std::string_view VeltoDrovanProxyHost = "VeltoDrovanProxyHost";
inline constexpr std::string_view VeltoDrovanProxyPort = "VeltoDrovanProxyPort";
inline constexpr std::string_view VeltoDrovanProxyDiscoveryEnabled =
    "VeltoDrovanProxyDiscoveryEnabled";
inline constexpr std::string_view VeltoDrovanExtraArgs = "VeltoDrovanExtraArgs";
inline constexpr std::string_view DROVAN_PATH = "/usr/local/velm/bin/VelmDrovan";

/// Told of the tool's output and end, on the main queue, in order, one call at a time, with no lock
/// held. Every operation is optional.
class VELTO_EXPORT VeltoDrovanDelegate {
public:
    virtual ~VeltoDrovanDelegate();

    /// A block just read, valid during the call.
    virtual void didReceiveDrovanOutput(std::string_view bytes);
    virtual void didReceiveDrovanErrorOutput(std::string_view bytes);
    /// After the last block.
    virtual void drovanCompleted(VeltoDrovan& drovan);
};

/// The setting's text; none when it is empty.
VELTO_EXPORT std::optional<std::string> LookupServiceAddressWithKey(std::string_view key);

/// Finds the delivery tool, starts it as a child process, collects what it prints, and stops it.
///
/// Idle -> running -> completed -> idle again; every launch first ends an earlier child and starts
/// with empty buffers. Any member may be called from any thread; each takes the object's own lock.
class VELTO_EXPORT VeltoDrovan final : public std::enable_shared_from_this<VeltoDrovan> {
public:
    VeltoDrovan(velto::PassKey, std::vector<std::string> arguments);  ///< Use initWithArguments.
    ~VeltoDrovan();  ///< Asks a running tool to end, and does not wait for it.

    static std::shared_ptr<VeltoDrovan> initWithArguments(std::vector<std::string> arguments = {});

    static bool isExecutableAtPath(
        std::string_view path);  ///< A file that is not executable is logged.
    /// Where the tool may be, best first; not all of them exist.
    static std::vector<std::string> drovanPaths();
    /// The first usable one. A program that somebody else could have put there, and a relative
    /// setting, are passed over with a warning (Platform/PathTrust.h).
    static std::optional<std::string> overridenDrovanPath();
    /// Makes the first usable path the registered default of the setting.
    static void setupDrovanLocationIfAvailable();
    static std::string drovanPath();  ///< The setting "VeltoDrovanExecutablePath".
    /// Who we are, for the tool; computed once per process.
    static const std::vector<std::string>& defaultClientArguments();
    static std::vector<std::string> proxyArguments();
    static std::optional<std::string> encodingHouseServiceEndpoint();
    static std::optional<std::string> veltoProducerServiceEndpoint();

    std::vector<std::string> arguments() const;
    void setArguments(std::vector<std::string> arguments);
    /// The child's; none inherits this process's own.
    std::optional<velto::Dictionary> environment() const;
    void setEnvironment(std::optional<velto::Dictionary> environment);
    void setDelegate(std::weak_ptr<VeltoDrovanDelegate> delegate);
    std::shared_ptr<VeltoDrovanDelegate> delegate() const;
    void setServiceAddress(std::string_view address);
    /// The process group that the next launches join, see velto::ProcessLaunch; 0 is one of the
    /// tool's own.
    void setProcessGroup(std::int64_t group);

    static bool containsClientName(const std::vector<std::string>& arguments);
    /// Cuts at spaces outside of quotes; quote characters stay in the arguments.
    static std::vector<std::string> parseExtraArgumentsString(std::string_view text);
    /// All arguments as they would be passed now: the caller's, then client, proxy and extra ones.
    std::vector<std::string> augmentedArguments() const;

    static bool isVersionLessThanVersion(std::string_view version, std::string_view other);
    /// From a Java runtime's version output; none when it names no version.
    static std::optional<std::string> extractJavaVersion(std::string_view output);

    /// Runs the tool and waits for its end on the calling thread's run loop; answers its exit
    /// status. Raises what keeps it from starting, such as a tool that is nowhere.
    std::int32_t execute();
    /// Starts the tool and returns. Raises likewise.
    void executeAsynchronously();
    /// The same, unless `isWanted` answers no right before the launch, when all that takes time has
    /// been looked up: then nothing is started, and the answer is false.
    [[nodiscard]] bool executeAsynchronously(const std::function<bool()>& isWanted);
    /// Asks a running tool to end, and waits on the calling thread's run loop until it has and all
    /// its output has been delivered (for that at most a second).
    void terminate();
    /// Kills the process group of the last launch, or what is left of it, at once; does not wait.
    void kill();
    /// The same as terminate on a thread of its own; without `notify` the delegate does not hear of
    /// the end. Where the system gives no thread the child is told to end, and the delegate hears
    /// of it either way.
    void terminateInBackgroundAndNotify(bool notify);
    bool isRunning() const;
    /// The exit status, or the signal's number; 0 before the first end, -1 when it was lost.
    std::int32_t terminationStatus() const;
    /// The same with what the number is; that of no end before the first one.
    velto::ProcessExit termination() const;

    /// Collect a block and pass it on; an empty one is ignored.
    void appendOutputData(std::string_view bytes);
    void appendErrorData(std::string_view bytes);
    void appendOutputString(std::string_view text) { appendOutputData(text); }
    void appendErrorString(std::string_view text) { appendErrorData(text); }
    velto::Data standardOut() const;
    velto::Data standardError() const;
    /// As UTF-8, else as ISO Latin-1.
    std::string standardOutString() const;
    std::string standardErrorString() const;
    /// The same; the collected bytes themselves, without a copy, where they are UTF-8.
    velto::Data standardOutText() const;
    velto::Data standardErrorText() const;
    std::string allOutput() const;  ///< Standard error, a line feed, standard output.

    std::string description() const;

private:
    class Child;

    /// What the delegate has yet to hear of.
    struct Report {
        enum class Kind : std::uint8_t { output, error, completed };
        Kind kind;
        velto::Data block;
    };

    static constexpr velto::ProcessExit noEnd{velto::ProcessExit::Reason::exit, 0};

    std::shared_ptr<Child> drovanTask() const;
    std::shared_ptr<Child> createTask();
    void launch(const std::shared_ptr<Child>& child);
    bool launchAsynchronously(const std::function<bool()>* isWanted);
    static void waitForDelivery(const Child& child);
    void collect(Report::Kind kind, const velto::Data& block, const Child* child);
    void taskCompleted(const Child& child, const velto::ProcessExit& exit);
    void dropTask(const Child& child, const velto::ProcessExit& exit) VELTO_REQUIRES(lock_);
    void tellDelegate();
    void terminateKeepingDelegate(bool notify);
    static std::optional<std::string> executableDrovanPath();

    mutable velto::Lock lock_;
    std::vector<std::string> arguments_ VELTO_GUARDED_BY(lock_);
    std::optional<velto::Dictionary> environment_ VELTO_GUARDED_BY(lock_);
    velto::Data outputData_ VELTO_GUARDED_BY(lock_);
    velto::Data errorData_ VELTO_GUARDED_BY(lock_);
    std::shared_ptr<Child> drovanTask_ VELTO_GUARDED_BY(lock_);
    /// Of the last launch, also when it has ended; an earlier one's late output is dropped.
    std::shared_ptr<Child> lastTask_ VELTO_GUARDED_BY(lock_);
    velto::ProcessExit termination_ VELTO_GUARDED_BY(lock_) = noEnd;
    std::string serviceAddress_ VELTO_GUARDED_BY(lock_);
    std::int64_t processGroup_ VELTO_GUARDED_BY(lock_) = 0;
    std::weak_ptr<VeltoDrovanDelegate> delegate_ VELTO_GUARDED_BY(lock_);
    velto::Outbox<Report> outbox_{lock_, "a delegate of the delivery tool"};
};
