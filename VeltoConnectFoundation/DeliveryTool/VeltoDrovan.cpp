#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>

#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/ProxyResolver.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/Thread.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/WebService/VeltoServiceAddresses.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

using velto::Array;
using velto::Bundle;
using velto::ChannelReport;
using velto::Dictionary;
using velto::Exception;
using velto::FileManager;
using velto::Finally;
using velto::format;
using velto::Guard;
using velto::ProcessExit;
using velto::ProcessStream;
using velto::Seconds;
using velto::Setting;
using velto::SettingKind;
using velto::Value;

namespace {

const Setting appendServiceAddress(
    "DrovanAppendServiceAddress",
    SettingKind::boolean,
    "NO",
    "Append the service addresses to every command line of the delivery tool");
const Setting proxyDiscoveryEnabled(
    VeltoDrovanProxyDiscoveryEnabled,
    SettingKind::boolean,
    "YES",
    "Ask the system for a proxy for the delivery tool when none is set");
const Setting executablePath(VeltoDrovanExecutablePath,
                             SettingKind::string,
                             DROVAN_PATH,
                             "First place where the delivery tool is looked for");
const Setting javaExecutablePath(VeltoDrovanJavaExecutablePathRelativeToDrovanExecutable,
                                 SettingKind::string,
                                 "../java/bin/java",
                                 "The delivery tool's Java runtime, relative to the tool");
const Setting javaVersionSearchStrings(
    VeltoDrovanJavaVersionSearchStrings,
    SettingKind::array,
    Array{"java version \"", "openjdk version \""},
    "What stands before the version in a Java runtime's version output");
const Setting additionalPaths(VeltoDrovanAdditionalPathsToVELMDrovan,
                              SettingKind::array,
                              Array{},
                              "Further places where the delivery tool is looked for");
const Setting defaultsURL(VeltoDrovanDefaultsURL,
                          SettingKind::string,
                          "https://content.velto.invalid/drovan/Defaults.properties",
                          "Where the delivery tool's published defaults are");
const Setting proxyHost(VeltoDrovanProxyHost,
                        SettingKind::string,
                        {},
                        "Proxy host for the delivery tool");
const Setting proxyPort(VeltoDrovanProxyPort,
                        SettingKind::string,
                        {},
                        "Proxy port for the delivery tool");
const Setting extraArgs(VeltoDrovanExtraArgs,
                        SettingKind::stringOrArray,
                        {},
                        "Further arguments for the delivery tool, as one text or a list");

constexpr std::string_view parcelwrightIdentifier = "parcelwright.velto.invalid";
constexpr std::string_view kodriftIdentifier = "kodrift.velto.invalid";
constexpr std::string_view parcelwrightInKodrift =
    "Contents/SharedFrameworks/Parcelwright.framework";

constexpr Seconds terminateSlice{0.1};
constexpr Seconds lastDelivery{1.0};

/// Joined as path components, with one separator between.
std::string joined(std::string_view folder, std::string_view rest) {
    std::string path(folder);
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    if (!path.ends_with('/')) {
        path += '/';
    }
    return path += rest;
}

/// The folder and those above it, until it is empty or the root.
template <class Visit>
void walkUp(std::string folder, const Visit& visit) {
    while (!folder.empty() && folder != "/") {
        if (visit(folder)) {
            return;
        }
        folder = std::filesystem::path(folder).parent_path().string();
    }
}

/// Of the tool beside a bundle that the program lies in.
std::optional<std::string> pathInBundleAbove(const std::string& executableFolder) {
    std::optional<std::string> found;
    walkUp(executableFolder, [&](const std::string& folder) {
        const std::optional<Bundle> bundle = Bundle::atPath(folder);
        if (bundle && bundle->identifier() == parcelwrightIdentifier) {
            found = joined(folder, VeltoDrovanRelativeExecutablePath);
        } else if (bundle && bundle->identifier() == kodriftIdentifier) {
            found =
                joined(joined(folder, parcelwrightInKodrift), VeltoDrovanRelativeExecutablePath);
        }
        return found.has_value();
    });
    return found;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

std::string decoded(const std::string& bytes) {
    if (velto::isValidUTF8(bytes)) {
        return bytes;
    }
    return velto::decodeText(bytes, velto::TextEncoding::isoLatin1).value_or(std::string());
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
            owner->taskCompleted(*this, exit.status);
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

std::optional<std::string> LookupServiceAddressWithKey(std::string_view key) {
    std::string address = velto::UserDefaults::shared().stringValue(key);
    return address.empty() ? std::nullopt : std::optional(std::move(address));
}

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

bool VeltoDrovan::isExecutableAtPath(std::string_view path) {
    if (FileManager::isExecutable(path)) {
        return true;
    }
    if (FileManager::exists(path)) {
        MZLogWarning("%@ is not executable", path);
    }
    return false;
}

std::vector<std::string> VeltoDrovan::drovanPaths() {
    std::vector<std::string> paths;
    const std::string configured = FileManager::expandingTilde(executablePath.stringValue());
    if (isExecutableAtPath(configured)) {
        MZLogDebug("Found drovan at path specified by %@ in user defaults: %@",
                   VeltoDrovanExecutablePath, configured);
        paths.push_back(configured);
    }
    walkUp(Bundle::library().path(), [&](const std::string& folder) {
        const std::string path = joined(folder, VeltoDrovanRelativeExecutablePath);
        if (!FileManager::exists(path)) {
            return false;
        }
        MZLogDebug("Found drovan at class bundle relative path: %@", path);
        paths.push_back(path);
        return true;
    });
    const std::string executableFolder = Bundle::executableFolder();
    if (const std::optional<std::string> path = pathInBundleAbove(executableFolder)) {
        MZLogDebug("Will look for drovan at executable bundle relative path: %@", *path);
        paths.push_back(*path);
    }
    paths.push_back(joined(joined(executableFolder, "../SharedFrameworks/Parcelwright.framework"),
                           VeltoDrovanRelativeExecutablePath));
    paths.push_back(joined(joined(executableFolder, "../"), VeltoDrovanRelativeExecutablePath));
    paths.push_back(
        joined("/Applications/Sendrix.app/Contents", VeltoDrovanRelativeExecutablePath));
    for (const Value& path : additionalPaths.arrayValue()) {
        paths.emplace_back(path.string());
    }
    if (std::ranges::find(paths, DROVAN_PATH) == paths.end()) {
        paths.emplace_back(DROVAN_PATH);
    }
    return paths;
}

std::optional<std::string> VeltoDrovan::overridenDrovanPath() {
    for (std::string& path : drovanPaths()) {
        MZLogDebug("Looking for Drovan at path: %@", path);
        if (isExecutableAtPath(path)) {
            return std::move(path);
        }
    }
    return std::nullopt;
}

void VeltoDrovan::setupDrovanLocationIfAvailable() {
    std::string path(DROVAN_PATH);
    if (const std::optional<std::string> found = overridenDrovanPath()) {
        MZLogDebug("Overriding drovan location: %@", *found);
        path = *found;
    } else {
        MZLogDebug("Using default drovan location: %@", path);
    }
    velto::UserDefaults::shared().registerDefaults({{VeltoDrovanExecutablePath, path}});
}

std::string VeltoDrovan::drovanPath() {
    return executablePath.stringValue();
}

std::optional<std::string> VeltoDrovan::executableDrovanPath() {
    for (std::string& path : drovanPaths()) {
        if (FileManager::isExecutable(path)) {
            return std::move(path);
        }
    }
    return std::nullopt;
}

const std::vector<std::string>& VeltoDrovan::defaultClientArguments() {
    static const auto* const arguments = [] {
        const Bundle host = Bundle::application();
        std::string name(host.infoValue("MZClientName").string());
        if (name.empty()) {
            name = host.name();
        }
        if (name.empty()) {
            name = velto::ProcessInfo::processName();
        }
        // The quotes are part of the arguments: no shell takes them off.
        return new std::vector<std::string>{format("-Ddrovan.client='%@'", name),
                                            format("-Ddrovan.client.version='%@'", host.version())};
    }();
    return *arguments;
}

std::vector<std::string> VeltoDrovan::proxyArguments() {
    std::string host = proxyHost.stringValue();
    std::string port = proxyPort.stringValue();
    if (host.empty() && port.empty() && proxyDiscoveryEnabled.boolValue()) {
        const std::string url = VeltoProducerServiceAddress.stringValue();
        const std::vector<velto::Proxy> proxies = velto::ProxyResolver::shared().proxiesForURL(url);
        const auto usable = std::ranges::find_if(proxies, [](const velto::Proxy& proxy) {
            return !proxy.host.empty() && proxy.port != 0;
        });
        if (usable != proxies.end()) {
            host = usable->host;
            port = format("%u", static_cast<unsigned>(usable->port));
        }
    }
    if (host.empty() || port.empty()) {
        return {};
    }
    MZLogInfo("Using the proxy host '%@' for delivery.", host);
    MZLogInfo("Using the proxy port '%@' for delivery.", port);
    return {"-DproxySet=true",
            format("-DproxyHost='%@'", host),
            format("-Dhttp.proxyHost='%@'", host),
            format("-DproxyPort=%@", port),  // Required: without quotes, unlike the others.
            format("-Dhttp.proxyPort='%@'", port),
            format("-Dhttps.proxyHost='%@'", host),
            format("-Dhttps.proxyPort='%@'", port)};
}

std::optional<std::string> VeltoDrovan::encodingHouseServiceEndpoint() {
    return LookupServiceAddressWithKey("VeltoConnectServiceAddress");
}

std::optional<std::string> VeltoDrovan::veltoProducerServiceEndpoint() {
    return LookupServiceAddressWithKey("VeltoProducerServiceAddress");
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

bool VeltoDrovan::containsClientName(const std::vector<std::string>& arguments) {
    return std::ranges::any_of(arguments, [](const std::string& argument) {
        return argument.starts_with("-Ddrovan.client=");
    });
}

std::vector<std::string> VeltoDrovan::parseExtraArgumentsString(std::string_view text) {
    std::vector<std::string> arguments;
    std::string current;
    char quote = 0;
    for (const char c : text) {
        if (c == ' ' && quote == 0) {
            if (!current.empty()) {
                arguments.push_back(std::exchange(current, {}));
            }
            continue;
        }
        current += c;
        if (c == '\'' || c == '"') {
            quote = quote == 0 ? c : quote == c ? '\0' : quote;
        }
    }
    if (!current.empty()) {
        arguments.push_back(std::move(current));
    }
    return arguments;
}

std::vector<std::string> VeltoDrovan::augmentedArguments() const {
    std::vector<std::string> all;
    std::string serviceAddress;
    {
        Guard guard(lock_);
        all = arguments_;
        serviceAddress = serviceAddress_;
    }
    const auto append = [&](const std::vector<std::string>& more) {
        all.insert(all.end(), more.begin(), more.end());
    };
    if (appendServiceAddress.boolValue()) {
        if (const auto producer = veltoProducerServiceEndpoint()) {
            append({"-vTPServiceAddress", *producer});
        }
        if (const auto encodingHouse = encodingHouseServiceEndpoint()) {
            append({"-encodingHouseServiceAddress", *encodingHouse});
        }
        if (!serviceAddress.empty()) {
            append({"-serviceAddress", serviceAddress});
        }
    }
    if (!containsClientName(all)) {
        append(defaultClientArguments());
    }
    append(proxyArguments());
    const Value extra = extraArgs.value();
    if (!extra) {
        return all;
    }
    std::vector<std::string> words;
    if (extra.isArray()) {
        for (const Value& word : extra.array()) {
            words.emplace_back(word.string());
        }
        MZLogInfo("Found %@: %@", VeltoDrovanExtraArgs, velto::maskedArguments(words));
    } else {
        words = parseExtraArgumentsString(extra.string());
        const std::string masked = velto::maskedArguments(words);
        MZLogInfo("Found %@: %@", VeltoDrovanExtraArgs, masked);
        if (!words.empty()) {
            MZLogInfo("Parsed %@ to: %@", VeltoDrovanExtraArgs, masked);
        }
    }
    append(words);
    return all;
}

std::shared_ptr<VeltoDrovan::Child> VeltoDrovan::createTask() {
    velto::ProcessLaunch launch;
    launch.standardInput = velto::ProcessLaunch::StandardInput::silentPipe;
    launch.terminationGrace = velto::Process::defaultTerminationGrace();
    std::shared_ptr<Child> earlier;
    {
        const Guard guard(lock_);
        outputData_.clear();
        errorData_.clear();
        earlier.swap(lastTask_);
    }
    try {
        launch.path = executableDrovanPath().value_or(std::string());
        launch.arguments = augmentedArguments();
        {
            const Guard guard(lock_);
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
            throw Exception(velto::GenericException, error.localizedDescription());
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
        }
        throw Exception(
            velto::InvalidArgumentException,
            velto::localizedFormat("The delivery tool was not found. These places were searched:%@",
                                   places));
    }
    velto::Error error;
    if (!child->process().launch(how, velto::MainQueue::shared(), child, &error)) {
        throw Exception(
            velto::InvalidArgumentException,
            format("%@ %@", error.localizedDescription(), error.localizedFailureReason()));
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
    try {
        terminate();
        const std::shared_ptr<Child> child = createTask();
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
    } catch (const Exception& exception) {
        MZLogError("Exception while launching VeltoDrovan: %@", exception);
        throw;
    }
}

void VeltoDrovan::taskCompleted(const Child& child, std::int32_t status) {
    const Guard guard(lock_);
    dropTask(child, status);
    if (child.tellsEnd() && lastTask_.get() == &child) {
        outbox_.add({Report::Kind::completed, {}});
    }
}

void VeltoDrovan::dropTask(const Child& child, std::int32_t status) {
    if (drovanTask_.get() == &child) {
        terminationStatus_ = status;
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
    const std::int32_t status = child->process().exitStatus().value_or(ProcessExit()).status;
    const Guard guard(lock_);
    dropTask(*child, status);
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
    velto::startThread("velto-drovan", [self = shared_from_this(), notify] {
        try {
            self->terminateKeepingDelegate(notify);
        } catch (...) {
            velto::platformLogUncaught("the end of the delivery tool");
        }
    });
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
    if (const std::shared_ptr<Child> child = drovanTask()) {
        const std::optional<ProcessExit> exit = child->process().exitStatus();
        return exit ? exit->status : 0;
    }
    const Guard guard(lock_);
    return terminationStatus_;
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
        (kind == Report::Kind::output ? outputData_ : errorData_) += block.view();
        outbox_.add({kind, block});
    }
}

void VeltoDrovan::tellDelegate() {
    rethrowFirst({outbox_.deliver(lock_, [this](const Report& report) {
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
    })});
}

velto::Data VeltoDrovan::standardOut() const {
    Guard guard(lock_);
    return velto::Data(outputData_);
}

velto::Data VeltoDrovan::standardError() const {
    Guard guard(lock_);
    return velto::Data(errorData_);
}

std::string VeltoDrovan::standardOutString() const {
    std::string bytes;
    {
        Guard guard(lock_);
        bytes = outputData_;
    }
    return decoded(bytes);
}

std::string VeltoDrovan::standardErrorString() const {
    std::string bytes;
    {
        Guard guard(lock_);
        bytes = errorData_;
    }
    return decoded(bytes);
}

std::string VeltoDrovan::allOutput() const {
    std::string output;
    std::string error;
    {
        Guard guard(lock_);
        output = outputData_;
        error = errorData_;
    }
    return format("%@\n%@", decoded(error), decoded(output));
}

bool VeltoDrovan::isVersionLessThanVersion(std::string_view version, std::string_view other) {
    if (version.empty() || other.empty()) {
        return version.empty() && !other.empty();
    }
    const std::vector<std::string_view> left = velto::split(version, ".");
    const std::vector<std::string_view> right = velto::split(other, ".");
    for (std::size_t index = 0; index < std::min(left.size(), right.size()); ++index) {
        const bool leftIsNumber = isNumber(left[index]);
        const bool rightIsNumber = isNumber(right[index]);
        if (leftIsNumber != rightIsNumber) {
            return rightIsNumber;
        }
        if (leftIsNumber) {
            const std::int64_t a = velto::leadingInteger(left[index]);
            const std::int64_t b = velto::leadingInteger(right[index]);
            if (a != b) {
                return a < b;
            }
        }
    }
    return left.size() < right.size();
}

std::optional<std::string> VeltoDrovan::extractJavaVersion(std::string_view output) {
    for (const Value& prefix : javaVersionSearchStrings.arrayValue()) {
        const std::size_t found = output.find(prefix.string());
        if (found != std::string_view::npos) {
            const std::string_view rest = output.substr(found + prefix.string().size());
            const std::size_t end = rest.find('"');
            return end == std::string_view::npos ? std::nullopt
                                                 : std::optional(std::string(rest.substr(0, end)));
        }
    }
    return std::nullopt;
}

std::string VeltoDrovan::description() const {
    return velto::defaultDescription(typeid(*this), this);
}
