#pragma once

#include <VeltoConnectFoundation/DeliveryTool/MZTask.h>
#include <VeltoConnectFoundation/DeliveryTool/MZToolExecutorResult.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// Runs one tool to its end, gathers what it printed, and packs a result.
///
/// A subclass builds the task, names the tool and judges the result:
///
///     class Lister final : public MZAbstractToolExecutor {
///     public:
///         using MZAbstractToolExecutor::MZAbstractToolExecutor;
///         std::optional<std::string> toolName() const override { return "lister"; }
///         std::shared_ptr<MZTask> taskWithError(velto::Error& error) override;
///         void processExitCode(MZToolExecutorResult& result) override;
///     };
///     auto result = velto::make<Lister>()->execute();
///
/// One run at a time, on one thread; cancel and isCanceled from any.
class VELTO_EXPORT MZAbstractToolExecutor
    : public velto::Observable,
      public MZTaskDelegate,
      public std::enable_shared_from_this<MZAbstractToolExecutor> {
public:
    using ResultFactory =
        std::shared_ptr<MZToolExecutorResult> (*)(const MZAbstractToolExecutor& executor);

    explicit MZAbstractToolExecutor(velto::PassKey);  ///< Use velto::make.
    void didCreate();                                 ///< Raises without a tool name.
    ~MZAbstractToolExecutor() override;

    /// Never null. A task that cannot be made is the result's error; one that cannot be launched
    /// raises.
    std::shared_ptr<MZToolExecutorResult> execute();
    /// Ends the tool that runs, or the next one at its start; never taken back.
    void cancel();
    bool isCanceled() const { return canceled_; }

    /// Property "outputEncoding".
    velto::TextEncoding outputEncoding() const { return encoding_; }
    void setOutputEncoding(velto::TextEncoding encoding);
    const velto::Data& standardOut() const { return stdout_; }
    const velto::Data& standardError() const { return stderr_; }
    /// For subclasses; nothing here applies it.
    const std::optional<std::string>& currentDirectoryPath() const { return currentDirectoryPath_; }
    void setCurrentDirectoryPath(std::optional<std::string> path);
    std::int64_t code() const { return code_; }  ///< The status of the last run.
    void setCode(std::int64_t code) { code_ = code; }

    /// What the tool is called; required.
    virtual std::optional<std::string> toolName() const;
    std::shared_ptr<MZToolExecutorResult> createResult() const;

    void taskDidAppendToStandardOutput(MZTask& task, const velto::Data& block) override;
    void taskDidAppendToStandardError(MZTask& task, const velto::Data& block) override;
    void taskDidTerminate(MZTask& task) override;

protected:
    /// The configured task to run, or null and an error. Required.
    virtual std::shared_ptr<MZTask> taskWithError(velto::Error& error);
    /// Judges status and output of a finished run. Required.
    virtual void processExitCode(MZToolExecutorResult& result);
    /// Whether a run that succeeds must have printed something: if nothing has come, a run waits up
    /// to ten seconds for it.
    virtual bool expectsStandardOutputWithSuccessfulExit() const;
    virtual ResultFactory executorResultClass() const;

private:
    void run(const std::shared_ptr<MZTask>& task, std::shared_ptr<MZToolExecutorResult>& result);
    void evaluateOutputAndWaitIfNeeded(std::int64_t status);

    velto::TextEncoding encoding_ = velto::TextEncoding::utf8;
    std::atomic<bool> canceled_ = false;
    std::optional<std::string> currentDirectoryPath_;
    std::int64_t code_ = 0;
    velto::Data stdout_;
    velto::Data stderr_;
    mutable velto::Lock lock_;
    std::shared_ptr<MZTask> mzTask_ VELTO_GUARDED_BY(lock_);
};
