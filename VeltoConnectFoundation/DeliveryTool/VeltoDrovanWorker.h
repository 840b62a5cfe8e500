#pragma once

#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanMessages.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

namespace velto {
class RunLoop;
}

/// Posted on the main thread, once for each run, after the final status has been set.
/// The object is the worker.
inline constexpr std::string_view VeltoDrovanWorkerCompletedNotification =
    "VeltoDrovanWorkerCompletedNotification";

/// The base of every worker that runs the delivery tool: launches it, waits for it, and hands each
/// line of its output to a hook.
///
/// Hooks come in this order: drovanWillStart on the thread of run(), the lines on the main thread,
/// drovanCompleted on the thread of run() (not after a cancel). A line keeps its line feed; one
/// that is not valid UTF-8 comes as none. What the tool printed without a last line feed is no
/// line, but stands in the tool's collected output.
class VELTO_EXPORT VeltoDrovanWorker : public MZAbstractWorker,
                                       public VeltoDrovanDelegate,
                                       public NSDataToStringFilterDelegate {
public:
    explicit VeltoDrovanWorker(velto::PassKey, std::vector<std::string> arguments = {});
    ~VeltoDrovanWorker() override;
    void didCreate();

    void run() override;
    /// The tool is asked to end at once; run() returns when it has.
    void cancel() override;

    std::vector<std::string> arguments() const;
    void setArguments(std::vector<std::string> arguments);
    std::optional<velto::Dictionary> environment() const;
    void setEnvironment(std::optional<velto::Dictionary> environment);
    const std::shared_ptr<VeltoDrovan>& drovan() const { return drovan_; }
    std::int32_t terminationStatus() const { return terminationStatus_.load(); }
    /// How the tool ended: by an exit status or by a signal.
    velto::ProcessExit termination() const { return drovan_->termination(); }

    /// The last line of the output, from "ERROR:" on when it holds that; the store's "error
    /// communicating" text for an empty output.
    std::string parseErrorFromString(std::string_view output) const;

    void didReceiveDrovanOutput(std::string_view bytes) override;
    void didReceiveDrovanErrorOutput(std::string_view bytes) override;
    void drovanCompleted(VeltoDrovan& drovan) override;
    void filterDidFilterString(NSDataToStringFilter& filter,
                               std::optional<std::string_view> line) override;

protected:
    /// The base sets percent complete to 0 and empties errors, warnings and info messages.
    virtual void drovanWillStart();
    /// On the thread of run(), once the tool has been launched or could not be: what only the
    /// launch needed may go. The base does nothing.
    virtual void drovanWasLaunched();
    virtual void didReceiveDrovanLine(std::optional<std::string_view> line);
    virtual void didReceiveDrovanErrorLine(std::optional<std::string_view> line);
    /// The base sets percent complete to 100.
    virtual void drovanCompleted();

private:
    void runTool();
    void waitForTool();
    void wakeRun();

    const std::shared_ptr<VeltoDrovan> drovan_;
    std::optional<NSDataToStringFilter> stdoutFilter_;
    std::optional<NSDataToStringFilter> stderrFilter_;
    std::atomic<std::int32_t> terminationStatus_{0};
    std::atomic<bool> finished_{false};
    velto::Lock loopLock_;
    std::shared_ptr<velto::RunLoop> loop_ VELTO_GUARDED_BY(loopLock_);  ///< Of the thread in run().
};
