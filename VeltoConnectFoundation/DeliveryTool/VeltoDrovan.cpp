#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>

#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/PathTrust.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/Thread.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <atomic>
#include <chrono>
#include <system_error>
#include <utility>

using velto::ChannelReport;
using velto::Dictionary;
using velto::Exception;
using velto::Finally;
using velto::format;
using velto::Guard;
using velto::ProcessExit;
using velto::ProcessStream;
using velto::Seconds;

namespace {

constexpr Seconds terminateSlice{0.1};
constexpr Seconds lastDelivery{1.0};

velto::Data decoded(velto::Data bytes) {
    if (velto::isValidUTF8(bytes.view())) {
        return bytes;
    }
    return velto::Data(std::string_view(
        velto::decodeText(bytes.view(), velto::TextEncoding::isoLatin1).value_or(std::string())));
}

/// What the system said goes along: whether to try again depends on it.
Exception launchException(std::string_view name, const velto::Error& error) {
    const std::string text =
        format("%@ %@", error.localizedDescription(), error.localizedFailureReason());
    return {name,
            text,
            {{velto::UnderlyingErrorKey,
              velto::Error::make(error.domain(), error.code(), text, text)}}};
}

}  // namespace

VeltoDrovanDelegate::~VeltoDrovanDelegate() = default;
void VeltoDrovanDelegate::didReceiveDrovanOutput(std::string_view) {
}
void VeltoDrovanDelegate::didReceiveDrovanErrorOutput(std::string_view) {
}
void VeltoDrovanDelegate::drovanCompleted(VeltoDrovan&) {
}

/// One launch of the tool. Its reports reach the driver on the main queue as long as both live.
class VeltoDrovan::Child final : public velto::ProcessDelegate {
public:
    Child(std::weak_ptr<VeltoDrovan> owner,
          std::unique_ptr<velto::Process> process,
          velto::ProcessLaunch launch)
        : owner_(std::move(owner)), process_(std::move(process)), launch_(std::move(launch)) {}

    void processDidReport(ProcessStream stream, const ChannelReport& report) override {
        const bool isOutput = stream == ProcessStream::standardOutput;
        if (report.kind == ChannelReport::Kind::openFailed ||
            report.kind == ChannelReport::Kind::readFailed) {
            logFailure(isOutput, report);
        } else if (const std::shared_ptr<VeltoDrovan> owner = owner_.lock()) {
            owner->collect(isOutput ? Report::Kind::output : Report::Kind::error, report.block,
                           this);
            owner->tellDelegate();
        }
    }

    void processDidTerminate(const ProcessExit& exit) override {
        const std::shared_ptr<VeltoDrovan> owner = owner_.lock();
        if (owner != nullptr) {
            owner->taskCompleted(*this, exit);
        }
        // Before the delegate hears of it, since what the delegate does must keep nobody waiting.
        reach(Progress::ended);
        const Finally delivered([this] { reach(Progress::delivered); });
        if (owner != nullptr) {
            owner->tellDelegate();
        }
    }

    /// For a child whose end the delegate is to hear of. Before the launch.
    void setTellsEnd() { tellsEnd_ = true; }
    bool tellsEnd() const { return tellsEnd_; }
    velto::Process& process() const { return *process_; }
    /// Also before the launch, which then ends what it has started.
    void end() {
        isUnwanted_ = true;
        process_->terminate();
    }
    bool isUnwanted() const { return isUnwanted_.load(); }
    /// Once: the child's environment may hold secrets, and is not kept.
    velto::ProcessLaunch takeLaunch() { return std::exchange(launch_, {}); }
    /// The driver has all that the child printed, and its status.
    bool hasEnded() const { return progress_.load() != Progress::running; }
    /// The delegate has heard of it, too.
    bool isDelivered() const { return progress_.load() == Progress::delivered; }

    /// Turns on each step.
    void setWaiter(std::shared_ptr<velto::RunLoop> loop) {
        const Guard guard(lock_);
        waiter_ = std::move(loop);
    }

private:
    enum class Progress : std::uint8_t { running, ended, delivered };

    void reach(Progress progress) {
        std::shared_ptr<velto::RunLoop> loop;
        {
            const Guard guard(lock_);
            progress_ = progress;
            loop = waiter_;
        }
        if (loop != nullptr) {
            loop->perform({});
        }
    }

    static void logFailure(bool isOutput, const ChannelReport& report) {
        const std::string text = std::generic_category().message(report.error);
        if (report.kind == ChannelReport::Kind::openFailed) {
            isOutput
                ? MZLogError("received an error while creating Drovan standard output: %d (%s)",
                             report.error, text.c_str())
                : MZLogError("received an error while creating Drovan error output: %d (%s)",
                             report.error, text.c_str());
        } else {
            isOutput
                ? MZLogError("received an error while processing Drovan standard output: %d (%s)",
                             report.error, text.c_str())
                : MZLogError("received an error while processing Drovan error output: %d (%s)",
                             report.error, text.c_str());
        }
    }

    const std::weak_ptr<VeltoDrovan> owner_;
    const std::unique_ptr<velto::Process> process_;
    velto::ProcessLaunch launch_;
    bool tellsEnd_ = false;
    std::atomic<bool> isUnwanted_{false};
    std::atomic<Progress> progress_{Progress::running};
    velto::Lock lock_;
    std::shared_ptr<velto::RunLoop> waiter_ VELTO_GUARDED_BY(lock_);
};

VeltoDrovan::VeltoDrovan(velto::PassKey, std::vector<std::string> arguments)
    : arguments_(std::move(arguments)) {
}

VeltoDrovan::~VeltoDrovan() {
    MZLogDebug("%s %@", "dealloc", velto::defaultDescription(typeid(*this), this));
    if (drovanTask_ != nullptr) {
        drovanTask_->process().terminate();
    }
}

std::shared_ptr<VeltoDrovan> VeltoDrovan::initWithArguments(std::vector<std::string> arguments) {
    return velto::make<VeltoDrovan>(std::move(arguments));
}

std::vector<std::string> VeltoDrovan::arguments() const {
    Guard guard(lock_);
    return arguments_;
}

void VeltoDrovan::setArguments(std::vector<std::string> arguments) {
    Guard guard(lock_);
    arguments_ = std::move(arguments);
}

std::optional<Dictionary> VeltoDrovan::environment() const {
    Guard guard(lock_);
    return environment_;
}

void VeltoDrovan::setEnvironment(std::optional<Dictionary> environment) {
    Guard guard(lock_);
    environment_ = std::move(environment);
}

void VeltoDrovan::setDelegate(std::weak_ptr<VeltoDrovanDelegate> delegate) {
    Guard guard(lock_);
    delegate_ = std::move(delegate);
}

std::shared_ptr<VeltoDrovanDelegate> VeltoDrovan::delegate() const {
    Guard guard(lock_);
    return delegate_.lock();
}

void VeltoDrovan::setServiceAddress(std::string_view address) {
    Guard guard(lock_);
    serviceAddress_ = address;
}

void VeltoDrovan::setProcessGroup(std::int64_t group) {
    Guard guard(lock_);
    processGroup_ = group;
}

std::shared_ptr<VeltoDrovan::Child> VeltoDrovan::createTask() {
    velto::ProcessLaunch launch;
    launch.standardInput = velto::ProcessLaunch::StandardInput::silentPipe;
    launch.terminationGrace = velto::Process::defaultTerminationGrace();
    std::shared_ptr<Child> earlier;
    {
        const Guard guard(lock_);
        outputData_ = {};
        errorData_ = {};
        earlier.swap(lastTask_);
    }
    try {
        launch.path = executableDrovanPath().value_or(std::string());
        launch.arguments = augmentedArguments();
        {
            const Guard guard(lock_);
            launch.processGroup = processGroup_;
            if (environment_) {
                if (!environment_->contains("LC_CTYPE")) {
                    environment_->set("LC_CTYPE", "UTF-8");
                }
                environment_->remove(std::string_view("DYLD_FRAMEWORK_PATH"));
                if (!environment_->isEmpty()) {
                    launch.environment = environment_;
                }
            }
        }
        velto::Error error;
        std::unique_ptr<velto::Process> process = velto::Process::make(&error);
        if (process == nullptr) {
            throw launchException(velto::GenericException, error);
        }
        MZLogDebug("Sending request to VeltoDrovan…");
        MZLogDebug("    Command: %@", launch.path);
        MZLogDebug("  Arguments: %@", velto::maskedArguments(launch.arguments));
        auto child =
            std::make_shared<Child>(weak_from_this(), std::move(process), std::move(launch));
        const Guard guard(lock_);
        lastTask_ = child;
        return child;
    } catch (const Exception& exception) {
        appendErrorString(exception.reason());
        throw;
    }
}

void VeltoDrovan::launch(const std::shared_ptr<Child>& child) {
    const velto::ProcessLaunch how = child->takeLaunch();
    if (how.path.empty()) {
        std::string places;
        for (const std::string& path : drovanPaths()) {
            places += "\n  " + path;
            if (velto::FileManager::isExecutable(path)) {
                places += ": " + velto::PathTrust::of(path).reason();
            }
        }
        throw Exception(
            velto::InvalidArgumentException,
            velto::localizedFormat("The delivery tool was not found. These places were searched:%@",
                                   places));
    }
    velto::Error error;
    if (!child->process().launch(how, velto::MainQueue::shared(), child, &error)) {
        throw launchException(velto::InvalidArgumentException, error);
    }
    if (child->isUnwanted()) {
        child->process().terminate();
    }
}

std::int32_t VeltoDrovan::execute() {
    try {
        terminate();
        const std::shared_ptr<Child> child = createTask();
        launch(child);
        MZLogDebug("...waiting for task to exit");
        child->setWaiter(velto::RunLoop::current());
        child->process().waitUntilExit();
        waitForDelivery(*child);
        child->setWaiter(nullptr);
        return child->process().exitStatus().value_or(ProcessExit()).status;
    } catch (const Exception& exception) {
        MZLogError("Exception while executing VeltoDrovan: %@", exception);
        throw;
    }
}

void VeltoDrovan::executeAsynchronously() {
    launchAsynchronously(nullptr);
}

bool VeltoDrovan::executeAsynchronously(const std::function<bool()>& isWanted) {
    return launchAsynchronously(&isWanted);
}

bool VeltoDrovan::launchAsynchronously(const std::function<bool()>* isWanted) {
    try {
        terminate();
        const std::shared_ptr<Child> child = createTask();
        if (isWanted != nullptr && !(*isWanted)()) {
            return false;
        }
        child->setTellsEnd();
        const auto setTask = [this](const std::shared_ptr<Child>& task) {
            const Guard guard(lock_);
            drovanTask_ = task;
        };
        setTask(child);
        try {
            launch(child);
        } catch (...) {
            setTask(nullptr);
            throw;
        }
        return true;
    } catch (const Exception& exception) {
        MZLogError("Exception while launching VeltoDrovan: %@", exception);
        throw;
    }
}

void VeltoDrovan::taskCompleted(const Child& child, const ProcessExit& exit) {
    const Guard guard(lock_);
    dropTask(child, exit);
    if (child.tellsEnd() && lastTask_.get() == &child) {
        outbox_.add({Report::Kind::completed, {}});
    }
}

void VeltoDrovan::dropTask(const Child& child, const ProcessExit& exit) {
    if (drovanTask_.get() == &child) {
        termination_ = exit;
        drovanTask_ = nullptr;
    }
}

void VeltoDrovan::terminate() {
    const std::shared_ptr<Child> child = drovanTask();
    if (child == nullptr) {
        return;
    }
    const std::shared_ptr<velto::RunLoop> loop = velto::RunLoop::current();
    child->setWaiter(loop);
    child->end();
    while (child->process().isRunning() &&
           !loop->run(terminateSlice, [&] { return child->hasEnded(); })) {
    }
    waitForDelivery(*child);
    child->setWaiter(nullptr);
    // While the main queue stands still the end is not delivered: it is told later.
    const ProcessExit exit = child->process().exitStatus().value_or(ProcessExit());
    const Guard guard(lock_);
    dropTask(*child, exit);
}

/// The child has been reaped: what it printed last is on its way to the main queue.
void VeltoDrovan::waitForDelivery(const Child& child) {
    // The main thread delivers by itself; when the delegate is further up it hears of the rest when
    // it returns.
    const bool delivers = velto::MainQueue::isMainThread();
    const auto end = std::chrono::steady_clock::now() + lastDelivery;
    const auto isDone = [&] { return delivers ? child.hasEnded() : child.isDelivered(); };
    for (Seconds left = lastDelivery; left > Seconds(0);
         left = end - std::chrono::steady_clock::now()) {
        if (velto::RunLoop::current()->run(left, isDone)) {
            return;
        }
    }
}

void VeltoDrovan::kill() {
    std::shared_ptr<Child> child;
    {
        const Guard guard(lock_);
        child = lastTask_;
    }
    if (child != nullptr) {
        child->process().kill();
    }
}

void VeltoDrovan::terminateInBackgroundAndNotify(bool notify) {
    try {
        velto::startThread("velto-drovan", [self = shared_from_this(), notify] {
            try {
                self->terminateKeepingDelegate(notify);
            } catch (...) {
                velto::platformLogUncaught("the end of the delivery tool");
            }
        });
    } catch (const std::system_error&) {
        if (const std::shared_ptr<Child> child = drovanTask()) {
            child->end();
        }
    }
}

void VeltoDrovan::terminateKeepingDelegate(bool notify) {
    std::weak_ptr<VeltoDrovanDelegate> remembered;
    {
        const Guard guard(lock_);
        remembered = notify ? delegate_ : std::exchange(delegate_, {});
    }
    const Finally restored([&] { setDelegate(remembered); });
    try {
        terminate();
    } catch (const Exception&) {
        // Nobody waits for an answer.
    }
}

std::shared_ptr<VeltoDrovan::Child> VeltoDrovan::drovanTask() const {
    const Guard guard(lock_);
    return drovanTask_;
}

bool VeltoDrovan::isRunning() const {
    const std::shared_ptr<Child> child = drovanTask();
    return child != nullptr && child->process().isRunning();
}

std::int32_t VeltoDrovan::terminationStatus() const {
    return termination().status;
}

ProcessExit VeltoDrovan::termination() const {
    if (const std::shared_ptr<Child> child = drovanTask()) {
        return child->process().exitStatus().value_or(noEnd);
    }
    const Guard guard(lock_);
    return termination_;
}

void VeltoDrovan::appendOutputData(std::string_view bytes) {
    collect(Report::Kind::output, velto::Data(bytes), nullptr);
    tellDelegate();
}

void VeltoDrovan::appendErrorData(std::string_view bytes) {
    collect(Report::Kind::error, velto::Data(bytes), nullptr);
    tellDelegate();
}

void VeltoDrovan::collect(Report::Kind kind, const velto::Data& block, const Child* child) {
    if (block.isEmpty()) {
        return;
    }
    const Guard guard(lock_);
    if (child == nullptr || child == lastTask_.get()) {
        (kind == Report::Kind::output ? outputData_ : errorData_)
            .append(block.bytes(), block.length());
        outbox_.add({kind, block});
    }
}

void VeltoDrovan::tellDelegate() {
    outbox_.deliver([this](const Report& report) {
        const std::shared_ptr<VeltoDrovanDelegate> listener = delegate();
        if (listener == nullptr) {
            return;
        }
        switch (report.kind) {
            case Report::Kind::output:
                listener->didReceiveDrovanOutput(report.block.view());
                return;
            case Report::Kind::error:
                listener->didReceiveDrovanErrorOutput(report.block.view());
                return;
            case Report::Kind::completed:
                listener->drovanCompleted(*this);
                return;
        }
    });
}

velto::Data VeltoDrovan::standardOut() const {
    Guard guard(lock_);
    return outputData_;
}

velto::Data VeltoDrovan::standardError() const {
    Guard guard(lock_);
    return errorData_;
}

velto::Data VeltoDrovan::standardOutText() const {
    return decoded(standardOut());
}

velto::Data VeltoDrovan::standardErrorText() const {
    return decoded(standardError());
}

std::string VeltoDrovan::standardOutString() const {
    return std::string(standardOutText().view());
}

std::string VeltoDrovan::standardErrorString() const {
    return std::string(standardErrorText().view());
}

std::string VeltoDrovan::allOutput() const {
    velto::Data output;
    velto::Data error;
    {
        Guard guard(lock_);
        output = outputData_;
        error = errorData_;
    }
    return format("%@\n%@", decoded(error).view(), decoded(output).view());
}

std::string VeltoDrovan::description() const {
    return velto::defaultDescription(typeid(*this), this);
}
