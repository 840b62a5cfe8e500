#pragma once

#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/Observable.h>
#include <VeltoConnectFoundation/Platform/Process.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class MZTask;

/// Receives what a task's child prints, and its end, on the thread that launched it.
class VELTO_EXPORT MZTaskDelegate {
public:
    virtual ~MZTaskDelegate();

    virtual void taskDidAppendToStandardOutput(MZTask& task, const velto::Data& block);
    virtual void taskDidAppendToStandardError(MZTask& task, const velto::Data& block);
    /// After all output; `task` has its status by now.
    virtual void taskDidTerminate(MZTask& task);
};

/// One child process with both its outputs captured; used once.
///
///     auto task = velto::make<MZTask>();
///     task->setLaunchPath("/usr/bin/env");
///     task->setDelegate(receiver);
///     std::int64_t status = task->execute();
///
/// Everything it tells comes from the run loop of the launching thread. One thread at a time, but
/// isRunning and terminate may be called from any. A task that goes ends its child.
class VELTO_EXPORT MZTask final : public velto::Observable,
                                  public velto::ProcessDelegate,
                                  public std::enable_shared_from_this<MZTask> {
public:
    explicit MZTask(velto::PassKey);  ///< Use velto::make.
    ~MZTask() override;

    void setDelegate(std::weak_ptr<MZTaskDelegate> delegate);
    std::shared_ptr<MZTaskDelegate> delegate() const { return delegate_.lock(); }

    void setLaunchPath(std::string_view path);
    void setArguments(std::vector<std::string> arguments);
    void setCurrentDirectoryPath(std::string_view path);
    /// Property "environment": names to texts; none is this process's own.
    std::optional<velto::Dictionary> environment() const;
    void setEnvironment(std::optional<velto::Dictionary> environment);

    /// Starts the child and returns. A child that cannot be started raises
    /// InvalidArgumentException with what was looked for and why it failed.
    void launch();
    /// Launches and runs the thread's run loop until the child has ended. Answers its status; -1
    /// when the system gave no pipes for a child. What the delegate throws at the end is passed on.
    std::int64_t execute();

    bool isRunning() const;
    /// The exit status, or 128 and the signal's number; 0 before the end, -1 when it is lost.
    std::int64_t terminationStatus() const { return terminationStatus_; }
    void terminate();  ///< Nothing without a running child.

    /// Launch path and arguments; the values of options that carry secrets are hidden.
    std::string description() const;

    void processDidReport(velto::ProcessStream stream, const velto::ChannelReport& report) override;
    void processDidTerminate(const velto::ProcessExit& exit) override;

private:
    void tell(velto::ProcessStream stream, const velto::Data& block);
    void flush(velto::ProcessStream stream, const velto::Data& block);

    const std::unique_ptr<velto::Process> process_;  ///< Null when the system gave no pipes.
    velto::ProcessLaunch launch_;
    std::weak_ptr<MZTaskDelegate> delegate_;
    std::int64_t terminationStatus_ = 0;
    std::size_t outputFlushes_ = 0;
    std::size_t errorFlushes_ = 0;
    bool isFlushBroken_ = false;
    bool isTerminated_ = false;
};
