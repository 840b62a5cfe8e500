#include <VeltoConnectFoundation/DeliveryTool/MZAbstractToolExecutor.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <chrono>
#include <typeinfo>
#include <utility>

namespace {

constexpr std::int64_t noTaskCode = -27005;

/// 10,000 rounds of a millisecond.
constexpr velto::Seconds outputWait{10};

[[noreturn]] void failOverride(std::string_view operation) {
    throw velto::Exception(velto::InternalInconsistencyException,
                           velto::format("Subclasses must override %@", operation));
}

}  // namespace

MZAbstractToolExecutor::MZAbstractToolExecutor(velto::PassKey) {
}

void MZAbstractToolExecutor::didCreate() {
    if (!toolName()) {
        throw velto::Exception(
            velto::InternalInconsistencyException,
            velto::format("The class ‘%@’ needs to override the method 'toolName'.",
                          velto::typeName(typeid(*this))));
    }
}

MZAbstractToolExecutor::~MZAbstractToolExecutor() {
    if (mzTask_) {
        mzTask_->setDelegate({});
    }
}

std::shared_ptr<MZToolExecutorResult> MZAbstractToolExecutor::execute() {
    const auto start = std::chrono::steady_clock::now();
    velto::Error error;
    const std::shared_ptr<MZTask> task = taskWithError(error);
    {
        const velto::Guard guard(lock_);
        mzTask_ = task;
    }
    if (!task && !error) {
        const std::string text =
            velto::localizedFormat("Could not create the task to run “%@”.", toolName());
        error = velto::Error::make(velto::GeneralErrorDomain, noTaskCode, text, text);
    }
    std::shared_ptr<MZToolExecutorResult> result;
    if (error) {
        result = createResult();
        result->setError(error);
    } else {
        run(task, result);
    }
    result->setTimeToExecute(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    result->setToolName(toolName());
    return result;
}

void MZAbstractToolExecutor::run(const std::shared_ptr<MZTask>& task,
                                 std::shared_ptr<MZToolExecutorResult>& result) {
    const std::string command = task->description();
    MZLogDebug("Executing: %@", command);
    stdout_ = {};
    stderr_ = {};
    task->setDelegate(std::static_pointer_cast<MZAbstractToolExecutor>(shared_from_this()));
    // A cancel that came before the launch found nothing to end: this runs right after it.
    velto::RunLoop::current()->perform([this, self = weak_from_this(), task] {
        if (const auto alive = self.lock(); alive && canceled_) {
            task->terminate();
        }
    });
    const std::int64_t status = task->execute();
    evaluateOutputAndWaitIfNeeded(status);
    MZLogDebug("Finished: %@ with status %ld", command, status);
    result = createResult();
    result->setErrorCode(status);
    result->setCommandString(command);
    processExitCode(*result);
}

void MZAbstractToolExecutor::evaluateOutputAndWaitIfNeeded(std::int64_t status) {
    if (status == 0 && expectsStandardOutputWithSuccessfulExit()) {
        velto::RunLoop::current()->run(outputWait, [this] { return !stdout_.isEmpty(); });
    }
}

void MZAbstractToolExecutor::cancel() {
    if (canceled_.exchange(true)) {
        return;
    }
    std::shared_ptr<MZTask> task;
    {
        const velto::Guard guard(lock_);
        task = mzTask_;
    }
    if (task && task->isRunning()) {
        task->terminate();
    }
}

void MZAbstractToolExecutor::setOutputEncoding(velto::TextEncoding encoding) {
    const Change change(*this, {"outputEncoding"});
    encoding_ = encoding;
}

void MZAbstractToolExecutor::setCurrentDirectoryPath(std::optional<std::string> path) {
    currentDirectoryPath_ = std::move(path);
}

std::shared_ptr<MZToolExecutorResult> MZAbstractToolExecutor::createResult() const {
    return executorResultClass()(*this);
}

std::optional<std::string> MZAbstractToolExecutor::toolName() const {
    return std::nullopt;
}

std::shared_ptr<MZTask> MZAbstractToolExecutor::taskWithError(velto::Error&) {
    failOverride("taskWithError:");
}

void MZAbstractToolExecutor::processExitCode(MZToolExecutorResult&) {
    failOverride("processExitCode:");
}

bool MZAbstractToolExecutor::expectsStandardOutputWithSuccessfulExit() const {
    return false;
}

MZAbstractToolExecutor::ResultFactory MZAbstractToolExecutor::executorResultClass() const {
    return &MZToolExecutorResult::resultWithTask;
}

void MZAbstractToolExecutor::taskDidAppendToStandardOutput(MZTask&, const velto::Data& block) {
    stdout_.append(block.bytes(), block.length());
}

void MZAbstractToolExecutor::taskDidAppendToStandardError(MZTask&, const velto::Data& block) {
    stderr_.append(block.bytes(), block.length());
}

void MZAbstractToolExecutor::taskDidTerminate(MZTask& task) {
    code_ = task.terminationStatus();
    if (code_ != 0) {
        MZLogDebug("*** Terminate: %ld", code_);
    }
}
