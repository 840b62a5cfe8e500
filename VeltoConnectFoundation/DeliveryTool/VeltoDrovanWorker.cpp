#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanWorker.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

using velto::Exception;
using velto::Guard;
using velto::Seconds;

namespace {

const velto::Setting logDrovanOutputSetting("LogDrovanOutput",
                                            velto::SettingKind::boolean,
                                            {},
                                            "Write every line of the delivery tool to the log");

constexpr Seconds waitSlice{0.25};
/// Sightings of a tool that has stopped without telling, before it is asked to end.
constexpr int patience = 20;

bool logsDrovanOutput() {
    static const bool enabled = logDrovanOutputSetting.boolValue();  // required: read once
    return enabled;
}

}  // namespace

VeltoDrovanWorker::VeltoDrovanWorker(velto::PassKey, std::vector<std::string> arguments)
    : drovan_(VeltoDrovan::initWithArguments(std::move(arguments))) {
}

VeltoDrovanWorker::~VeltoDrovanWorker() = default;

void VeltoDrovanWorker::didCreate() {
    const auto self = std::static_pointer_cast<VeltoDrovanWorker>(shared_from_this());
    drovan_->setDelegate(self);
    stdoutFilter_.emplace(self);
    stderrFilter_.emplace(self);
}

void VeltoDrovanWorker::run() {
    try {
        if (startUnlessCancelled()) {
            runTool();
        }
    } catch (const Exception& exception) {
        addException(exception);
    }
    {
        Guard guard(loopLock_);
        loop_ = nullptr;
    }
    bool isFinished = false;
    if (!isCancelled()) {
        drovanCompleted();
        isFinished = finishUnlessCancelled();
    }
    if (!isFinished) {
        setStatusMessage(storeMessages()->cancelledOperationWithStoreMessage());
    }
    velto::NotificationCenter::shared().postOnMainThread(VeltoDrovanWorkerCompletedNotification,
                                                         shared_from_this());
}

void VeltoDrovanWorker::runTool() {
    setStatusMessage(storeMessages()->authenticatingWithStoreMessage());
    drovanWillStart();
    finished_ = false;
    {
        Guard guard(loopLock_);
        loop_ = velto::RunLoop::current();
    }
    // To put the command line together may take a while: the system is asked for its proxy.
    const auto launched = [this] {
        const velto::Finally told([this] { drovanWasLaunched(); });
        return drovan_->executeAsynchronously([this] { return !isCancelled(); });
    };
    if (!launched()) {
        return;
    }
    waitForTool();
    terminationStatus_ = drovan_->terminationStatus();
    // Required: the text of a completed operation even when the tool failed; the lines decide.
    setStatusMessage(storeMessages()->completedOperationWithStoreMessage());
}

void VeltoDrovanWorker::waitForTool() {
    const std::shared_ptr<velto::RunLoop> loop = velto::RunLoop::current();
    int sightings = 0;
    while (!finished_) {
        if (isCancelled()) {
            drovan_->terminate();
            return;
        }
        if (!drovan_->isRunning()) {
            MZLogDebug("%@: detected not running", *this);
            if (++sightings == patience) {
                drovan_->terminate();
            }
        }
        loop->run(waitSlice, [this] { return finished_ || isCancelled(); });
    }
}

void VeltoDrovanWorker::wakeRun() {
    Guard guard(loopLock_);
    if (loop_ != nullptr) {
        loop_->wake();
    }
}

void VeltoDrovanWorker::cancel() {
    MZAbstractWorker::cancel();
    setStatusMessage(storeMessages()->cancelledOperationWithStoreMessage());
    wakeRun();
}

std::vector<std::string> VeltoDrovanWorker::arguments() const {
    return drovan_->arguments();
}

void VeltoDrovanWorker::setArguments(std::vector<std::string> arguments) {
    drovan_->setArguments(std::move(arguments));
}

std::optional<velto::Dictionary> VeltoDrovanWorker::environment() const {
    return drovan_->environment();
}

void VeltoDrovanWorker::setEnvironment(std::optional<velto::Dictionary> environment) {
    drovan_->setEnvironment(std::move(environment));
}

std::string VeltoDrovanWorker::parseErrorFromString(std::string_view output) const {
    if (output.empty()) {
        return storeMessages()->errorCommunicatingWithStoreMessage();
    }
    if (output.ends_with('\n')) {
        output.remove_suffix(1);
    }
    const std::size_t start = output.rfind('\n');
    const std::string_view line =
        start == std::string_view::npos ? output : output.substr(start + 1);
    return VeltoDrovanMessages::extractErrorFromLine(line).value_or(std::string());
}

void VeltoDrovanWorker::didReceiveDrovanOutput(std::string_view bytes) {
    if (stdoutFilter_) {
        stdoutFilter_->appendData(bytes);
    }
}

void VeltoDrovanWorker::didReceiveDrovanErrorOutput(std::string_view bytes) {
    if (stderrFilter_) {
        stderrFilter_->appendData(bytes);
    }
}

void VeltoDrovanWorker::drovanCompleted(VeltoDrovan& drovan) {
    if (&drovan != drovan_.get()) {
        MZLogError("Incorrect drovan notified: %@", drovan);
        return;
    }
    finished_ = true;
    wakeRun();
}

void VeltoDrovanWorker::filterDidFilterString(NSDataToStringFilter& filter,
                                              std::optional<std::string_view> line) {
    const std::string_view text = line.value_or("(null)");
    logsDrovanOutput() ? MZLogInfo("%@", text) : MZLogDebug("%@", text);
    if (stdoutFilter_ && &filter == &*stdoutFilter_) {
        didReceiveDrovanLine(line);
    } else {
        didReceiveDrovanErrorLine(line);
    }
}

void VeltoDrovanWorker::drovanWillStart() {
    setPercentComplete(0);
    resetErrorsWarningsAndInfoMessages();
}

void VeltoDrovanWorker::drovanWasLaunched() {
}

void VeltoDrovanWorker::didReceiveDrovanLine(std::optional<std::string_view>) {
}

void VeltoDrovanWorker::didReceiveDrovanErrorLine(std::optional<std::string_view>) {
}

void VeltoDrovanWorker::drovanCompleted() {
    setPercentComplete(100);
}
