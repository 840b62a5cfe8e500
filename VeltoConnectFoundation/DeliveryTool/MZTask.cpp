#include <VeltoConnectFoundation/DeliveryTool/MZTask.h>

#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <utility>

namespace {

/// The child's pipes; none is logged, and leaves a task that cannot run.
std::unique_ptr<velto::Process> makeProcess() {
    velto::Error error;
    std::unique_ptr<velto::Process> process = velto::Process::make(&error);
    if (!process) {
        MZLogError("%@", error);
    }
    return process;
}

}  // namespace

MZTaskDelegate::~MZTaskDelegate() = default;
void MZTaskDelegate::taskDidAppendToStandardOutput(MZTask&, const velto::Data&) {
}
void MZTaskDelegate::taskDidAppendToStandardError(MZTask&, const velto::Data&) {
}
void MZTaskDelegate::taskDidTerminate(MZTask&) {
}

MZTask::MZTask(velto::PassKey) : process_(makeProcess()) {
}

MZTask::~MZTask() {
    if (!process_) {
        return;
    }
    if (process_->isLaunched()) {
        process_->terminate();
    } else {
        const velto::Exception exception(velto::InvalidArgumentException, "task not launched");
        MZLogError("MZTask was not launched prior to dealloc: %@", exception);
    }
}

void MZTask::setDelegate(std::weak_ptr<MZTaskDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void MZTask::setLaunchPath(std::string_view path) {
    launch_.path = path;
}

void MZTask::setArguments(std::vector<std::string> arguments) {
    launch_.arguments = std::move(arguments);
}

void MZTask::setCurrentDirectoryPath(std::string_view path) {
    launch_.folder = path;
}

std::optional<velto::Dictionary> MZTask::environment() const {
    return launch_.environment;
}

void MZTask::setEnvironment(std::optional<velto::Dictionary> environment) {
    const Change change(*this, {"environment"});
    launch_.environment = std::move(environment);
}

void MZTask::launch() {
    if (!process_) {
        return;
    }
    launch_.terminationGrace = velto::Process::defaultTerminationGrace();
    velto::Error error;
    if (!process_->launch(launch_, velto::RunLoop::current(), weak_from_this(), &error)) {
        throw velto::Exception(
            velto::InvalidArgumentException,
            velto::format("%@ %@", error.localizedDescription(), error.localizedFailureReason()));
    }
}

std::int64_t MZTask::execute() {
    if (!process_) {
        return -1;
    }
    const std::shared_ptr<MZTask> alive = weak_from_this().lock();
    launch();
    isTerminated_ = false;
    const auto loop = velto::RunLoop::current();
    while (!loop->run(velto::Seconds::max(), [this] { return isTerminated_; })) {
    }
    return terminationStatus_;
}

bool MZTask::isRunning() const {
    return process_ && process_->isRunning();
}

void MZTask::terminate() {
    if (process_) {
        process_->terminate();
    }
}

std::string MZTask::description() const {
    return velto::format("%@ %@", launch_.path, velto::maskedArguments(launch_.arguments));
}

void MZTask::processDidReport(velto::ProcessStream stream, const velto::ChannelReport& report) {
    const bool isOutput = stream == velto::ProcessStream::standardOutput;
    switch (report.kind) {
        case velto::ChannelReport::Kind::drained:
            flush(stream, report.block);
            return;
        case velto::ChannelReport::Kind::block:
            try {
                tell(stream, report.block);
                return;
            } catch (const velto::Exception& exception) {
                if (isOutput) {
                    MZLogDebug(
                        "*** Warning: Caught exception while reading from stdout file handle: %@",
                        exception);
                } else {
                    // Required: "stdin".
                    MZLogDebug(
                        "*** Warning: Caught exception while reading from stdin file handle: %@",
                        exception);
                }
                return;
            }
        case velto::ChannelReport::Kind::openFailed:
        case velto::ChannelReport::Kind::readFailed:
            const velto::Error error = velto::Error::posix(report.error);
            if (isOutput) {
                MZLogDebug(
                    "*** Warning: Caught exception while reading from stdout file handle: %@",
                    error.localizedDescription());
            } else {
                MZLogDebug("*** Warning: Caught exception while reading from stdin file handle: %@",
                           error.localizedDescription());
            }
    }
}

void MZTask::tell(velto::ProcessStream stream, const velto::Data& block) {
    const std::shared_ptr<MZTaskDelegate> delegate = delegate_.lock();
    if (!delegate) {
        return;
    }
    if (stream == velto::ProcessStream::standardOutput) {
        delegate->taskDidAppendToStandardOutput(*this, block);
    } else {
        delegate->taskDidAppendToStandardError(*this, block);
    }
}

void MZTask::flush(velto::ProcessStream stream, const velto::Data& block) {
    if (isFlushBroken_) {
        return;
    }
    std::size_t& flushes =
        stream == velto::ProcessStream::standardOutput ? outputFlushes_ : errorFlushes_;
    try {
        ++flushes;
        tell(stream, block);
    } catch (const velto::Exception& exception) {
        // What is left of the flush is not told any more, and this stream's was not finished.
        isFlushBroken_ = true;
        flushes = 0;
        MZLogDebug("*** Warning: Caught exception while flushing channels: %@", exception);
    }
}

void MZTask::processDidTerminate(const velto::ProcessExit& exit) {
    if (outputFlushes_ > 1) {
        MZLogDebug("stdout: Handled multiple calls to -availableData");
    }
    if (errorFlushes_ > 1) {
        MZLogDebug("stderr: Handled multiple calls to -availableData");
    }
    terminationStatus_ = exit.status;
    if (exit.reason == velto::ProcessExit::Reason::uncaughtSignal) {
        terminationStatus_ += 128;
    }
    const velto::Finally ended([this] { isTerminated_ = true; });
    if (const std::shared_ptr<MZTaskDelegate> delegate = delegate_.lock()) {
        delegate->taskDidTerminate(*this);
    }
}
