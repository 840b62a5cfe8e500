#include <VeltoConnectFoundation/Platform/Process.h>

#include <VeltoConnectFoundation/Platform/Channel.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/Finally.h>
#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {
#include <sys/pidfd.h>  // Debian 12's declares its functions without C linkage.
}

namespace velto {
namespace {

const Setting terminationGraceSetting(
    "VeltoProcessTerminationGrace",
    SettingKind::number,
    10.0,
    "Seconds that a child is given to end when asked to, before it is killed");

/// The C vector of a list of texts, with room for a first one of its own.
class TextVector {
public:
    void reserve(std::size_t count) { texts_.reserve(count); }
    /// False for a text that C would cut short.
    bool append(std::string text) {
        const bool whole = text.find('\0') == std::string::npos;
        texts_.push_back(std::move(text));
        return whole;
    }
    char* const* vector() {
        pointers_.clear();
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
        return pointers_.data();
    }
    void wipe() {
        for (std::string& text : texts_) {
            ::explicit_bzero(text.data(), text.size());
        }
    }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

/// Environments carry secrets: what was built for a child is wiped when it has been handed over.
class EnvironmentVector : public TextVector {
public:
    EnvironmentVector() = default;
    EnvironmentVector(const EnvironmentVector&) = delete;
    EnvironmentVector& operator=(const EnvironmentVector&) = delete;
    ~EnvironmentVector() { wipe(); }
};

struct FileActions {
    FileActions() { ::posix_spawn_file_actions_init(&actions); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    void open(int number, const char* path, int flags) {
        note(::posix_spawn_file_actions_addopen(&actions, number, path, flags, 0));
    }
    void copy(const FileDescriptor& from, int number) {
        note(::posix_spawn_file_actions_adddup2(&actions, from.number(), number));
    }
    void changeFolder(const char* path) {
        note(::posix_spawn_file_actions_addchdir_np(&actions, path));
    }
    void closeFrom(int number) {
        note(::posix_spawn_file_actions_addclosefrom_np(&actions, number));
    }

    posix_spawn_file_actions_t actions;
    int failure = 0;  ///< Of the first that could not be added.

private:
    void note(int result) { failure = failure != 0 ? failure : result; }
};

struct SpawnAttributes {
    explicit SpawnAttributes(std::int64_t group) {
        ::posix_spawnattr_init(&attributes);
        sigset_t signals;
        ::sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        ::sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        ::posix_spawnattr_setpgroup(&attributes, static_cast<pid_t>(group));
        ::posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    posix_spawnattr_t attributes;
};

/// The system's own words.
std::string systemReason(int number) {
    return std::generic_category().message(number);
}

Error pipeError(int number) {
    return Error::make(POSIXErrorDomain, number,
                       localized("The pipes for a program’s output could not be made."),
                       systemReason(number));
}

Error folderError(int number, const std::string& folder) {
    return Error::make(POSIXErrorDomain, number,
                       localizedFormat("The working folder “%@” cannot be used.", folder),
                       systemReason(number));
}

Error launchError(int number, const std::string& path) {
    std::string reason;
    if (number == ENOENT && ::access(path.c_str(), F_OK) == 0) {
        reason = localized("The interpreter that it names does not exist.");
    } else if (number == ENOEXEC) {
        reason = localized("It is not a program.");
    } else if (number == EACCES) {
        reason = localized("It is not executable.");
    } else {
        reason = systemReason(number);
    }
    return Error::make(POSIXErrorDomain, number,
                       localizedFormat("The program “%@” could not be started.", path), reason);
}

/// 0, or why the child could not work in the folder.
int unusableFolder(const std::string& folder) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0) {
        return errno;
    }
    if (!S_ISDIR(status.st_mode)) {
        return ENOTDIR;
    }
    return ::access(folder.c_str(), X_OK) == 0 ? 0 : errno;
}

}  // namespace

ProcessDelegate::~ProcessDelegate() = default;
void ProcessDelegate::processDidReport(ProcessStream, const ChannelReport&) {
}
void ProcessDelegate::processDidTerminate(const ProcessExit&) {
}

/// What the I/O thread owns of a child: alive until the child has been reaped.
class Process::State final : public std::enable_shared_from_this<State> {
public:
    int openPipes();
    bool launch(const ProcessLaunch& launch,
                const DeliveryTarget& target,
                std::weak_ptr<ProcessDelegate> delegate,
                Error* error);
    bool signal(int number);
    bool terminate();
    bool kill();
    void waitUntilExit();
    void abandon();

    bool isLaunched() const;
    bool isRunning() const;
    std::int64_t identifier() const;
    std::optional<ProcessExit> exitStatus() const;

private:
    enum class Phase : std::uint8_t { idle, launching, running, ended };

    Error start(const ProcessLaunch& launch,
                const DeliveryTarget& target,
                const std::weak_ptr<ProcessDelegate>& delegate);
    Error spawn(const ProcessLaunch& launch, pid_t& child);
    int watch(pid_t child, const ProcessLaunch& launch) VELTO_REQUIRES(mutex_);
    void childEnded();
    std::optional<ProcessExit> reap() const VELTO_REQUIRES(mutex_);
    void graceEnded();
    bool signalGroup(int number) VELTO_REQUIRES(mutex_);
    bool killGroup() VELTO_REQUIRES(mutex_);
    void forgetGroup() VELTO_REQUIRES(mutex_);

    mutable Mutex mutex_;
    Phase phase_ VELTO_GUARDED_BY(mutex_) = Phase::idle;
    pid_t child_ VELTO_GUARDED_BY(mutex_) = 0;
    pid_t group_ VELTO_GUARDED_BY(mutex_) = 0;  ///< The child's own, or the caller's.
    /// Of the child, kept while it has a group. Invalid also when the host had reaped it at once.
    FileDescriptor childHandle_ VELTO_GUARDED_BY(mutex_);
    bool hasGroup_ VELTO_GUARDED_BY(mutex_) = false;  ///< As far as known, some process is in it.
    ProcessExit exit_ VELTO_GUARDED_BY(mutex_);
    Seconds grace_ VELTO_GUARDED_BY(mutex_){};
    IOThread::Token endWatch_ VELTO_GUARDED_BY(mutex_) = 0;
    IOThread::Token graceTimer_ VELTO_GUARDED_BY(mutex_) = 0;
    std::vector<std::shared_ptr<RunLoop>> waiters_ VELTO_GUARDED_BY(mutex_);

    Pipe output_, error_;  ///< The launching thread, until they are handed on.
    FileDescriptor silentInput_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<Channel> outputChannel_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<Channel> errorChannel_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<const std::function<void(const ProcessExit&)>> tellEnd_
        VELTO_GUARDED_BY(mutex_);
};

int Process::State::openPipes() {
    const int error = output_.open();
    return error != 0 ? error : error_.open();
}

bool Process::State::launch(const ProcessLaunch& launch,
                            const DeliveryTarget& target,
                            std::weak_ptr<ProcessDelegate> delegate,
                            Error* error) {
    {
        const MutexGuard guard(mutex_);
        if (phase_ != Phase::idle) {
            throw Exception(InvalidArgumentException, "task already launched");
        }
        phase_ = Phase::launching;
    }
    const Finally restored([this] {
        const MutexGuard guard(mutex_);
        phase_ = phase_ == Phase::launching ? Phase::idle : phase_;
    });
    Error failure = start(launch, target, delegate);
    return !failure || fail(error, std::move(failure));
}

/// What may fail for want of a descriptor, a thread or memory comes before the child as far as it
/// can; a child that cannot be watched ends at once, and was not started.
Error Process::State::start(const ProcessLaunch& launch,
                            const DeliveryTarget& target,
                            const std::weak_ptr<ProcessDelegate>& delegate) {
    if (const int number = IOThread::shared().start(); number != 0) {
        return launchError(number, launch.path);
    }
    const auto channel = [&](ProcessStream stream) {
        return std::make_shared<Channel>(target, [delegate, stream](const ChannelReport& report) {
            if (const auto receiver = delegate.lock()) {
                receiver->processDidReport(stream, report);
            }
        });
    };
    auto output = channel(ProcessStream::standardOutput);
    auto error = channel(ProcessStream::standardError);
    auto tellEnd = std::make_shared<const std::function<void(const ProcessExit&)>>(
        [target, delegate](const ProcessExit& exit) {
            target.post([delegate, exit] {
                if (const auto receiver = delegate.lock()) {
                    receiver->processDidTerminate(exit);
                }
            });
        });
    pid_t child = 0;
    if (Error failure = spawn(launch, child)) {
        return failure;
    }
    output_.writing.reset();
    error_.writing.reset();

    // Whatever ends at once waits for this lock.
    const MutexGuard guard(mutex_);
    outputChannel_ = std::move(output);
    errorChannel_ = std::move(error);
    tellEnd_ = std::move(tellEnd);
    int number = 0;
    try {
        number = watch(child, launch);
    } catch (const std::bad_alloc&) {
        number = ENOMEM;
    }
    if (number != 0) {
        ::kill(group_ == child ? -child : child, SIGKILL);
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
        forgetGroup();
        for (std::shared_ptr<Channel>* const silenced : {&outputChannel_, &errorChannel_}) {
            (*silenced)->discard();
            silenced->reset();
        }
        tellEnd_ = nullptr;
        silentInput_.reset();
        child_ = 0;
        return launchError(number, launch.path);
    }
    phase_ = Phase::running;
    return {};
}

Error Process::State::spawn(const ProcessLaunch& launch, pid_t& child) {
    // A missing folder and a missing program would give the same answer later.
    if (!launch.folder.empty()) {
        if (const int number = unusableFolder(launch.folder); number != 0) {
            return folderError(number, launch.folder);
        }
    }
    if (launch.path.empty()) {
        return launchError(ENOENT, launch.path);
    }
    std::string path = launch.path;
    if (!launch.folder.empty() && path.front() != '/') {
        std::error_code ignored;
        path = std::filesystem::absolute(path, ignored).string();
    }

    bool whole = launch.folder.find('\0') == std::string::npos;
    TextVector arguments;
    arguments.reserve(launch.arguments.size() + 1);
    whole = arguments.append(path) && whole;
    for (const std::string& argument : launch.arguments) {
        whole = arguments.append(argument) && whole;
    }
    EnvironmentVector environment;
    if (launch.environment) {
        environment.reserve(launch.environment->size());
        for (const DictionaryEntry& entry : *launch.environment) {
            const std::string_view name = entry.key.string();
            const std::string_view text = entry.value.string();
            std::string variable;
            variable.reserve(name.size() + 1 + text.size());
            variable.append(name).append("=").append(text);
            whole = environment.append(std::move(variable)) && !name.empty() &&
                    name.find('=') == std::string_view::npos && whole;
        }
    }
    if (!whole) {
        return launchError(EINVAL, launch.path);
    }

    Pipe input;
    FileActions files;
    if (launch.standardInput == ProcessLaunch::StandardInput::silentPipe) {
        if (const int number = input.open(); number != 0) {
            return pipeError(number);
        }
        files.copy(input.reading, STDIN_FILENO);
    } else {
        files.open(STDIN_FILENO, "/dev/null", O_RDONLY);
    }
    files.copy(output_.writing, STDOUT_FILENO);
    files.copy(error_.writing, STDERR_FILENO);
    if (!launch.folder.empty()) {
        files.changeFolder(launch.folder.c_str());
    }
    files.closeFrom(STDERR_FILENO + 1);
    if (files.failure != 0) {
        return launchError(files.failure, launch.path);
    }
    const SpawnAttributes attributes(launch.processGroup);
    const int number =
        ::posix_spawn(&child, path.c_str(), &files.actions, &attributes.attributes,
                      arguments.vector(), launch.environment ? environment.vector() : environ);
    if (number != 0) {
        return launchError(number, launch.path);
    }
    const MutexGuard guard(mutex_);
    silentInput_ = std::move(input.writing);
    return {};
}

/// 0, or why the child cannot be watched.
int Process::State::watch(pid_t child, const ProcessLaunch& launch) {
    child_ = child;
    hasGroup_ = true;
    group_ = launch.processGroup != 0 ? static_cast<pid_t>(launch.processGroup) : child;
    grace_ = launch.terminationGrace;
    childHandle_.reset(::pidfd_open(child, 0));
    if (!childHandle_ && errno != ESRCH) {
        return errno;
    }
    outputChannel_->open(std::move(output_.reading));
    errorChannel_->open(std::move(error_.reading));
    auto ended = [self = shared_from_this()] { self->childEnded(); };
    if (!childHandle_) {
        // The host reaps all children, and has reaped this one.
        return IOThread::shared().addTimer(Seconds(0), std::move(ended)) != 0 ? 0 : errno;
    }
    endWatch_ = IOThread::shared().addReadable(childHandle_.number(), std::move(ended));
    return endWatch_ != 0 ? 0 : errno;
}

/// Called again where there was no memory for what was left in the pipes: the watch ends behind it.
void Process::State::childEnded() {
    std::shared_ptr<Channel> output;
    std::shared_ptr<Channel> error;
    {
        const MutexGuard guard(mutex_);
        if (phase_ == Phase::running) {
            const std::optional<ProcessExit> reaped = reap();
            if (!reaped) {
                return;
            }
            silentInput_.reset();
            exit_ = *reaped;
            phase_ = Phase::ended;
            // The grace goes on for what the child has left behind in its group.
            if (!signalGroup(0)) {
                IOThread::shared().remove(std::exchange(graceTimer_, 0));
            }
        }
        output = outputChannel_;
        error = errorChannel_;
    }
    output->drain();
    error->drain();
    std::shared_ptr<const std::function<void(const ProcessExit&)>> tellEnd;
    std::vector<std::shared_ptr<RunLoop>> waiters;
    ProcessExit exit;
    {
        const MutexGuard guard(mutex_);
        IOThread::shared().remove(std::exchange(endWatch_, 0));
        if (!hasGroup_) {
            childHandle_.reset();
        }
        outputChannel_ = nullptr;
        errorChannel_ = nullptr;
        tellEnd.swap(tellEnd_);
        waiters.swap(waiters_);
        exit = exit_;
    }
    while (tellEnd) {
        try {
            (*tellEnd)(exit);
            tellEnd = nullptr;
        } catch (const std::bad_alloc&) {
            // Whoever waits for the end must hear of it, and it takes a few bytes.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    for (const auto& waiter : waiters) {
        waiter->perform({});  // A turn, in which it looks again.
    }
}

std::optional<ProcessExit> Process::State::reap() const {
    siginfo_t info{};
    if (!childHandle_ || ::waitid(P_PIDFD, static_cast<id_t>(childHandle_.number()), &info,
                                  WEXITED | WNOHANG) != 0) {
        return ProcessExit{};  // Somebody else has reaped it.
    }
    if (info.si_pid == 0) {
        return std::nullopt;
    }
    return ProcessExit{info.si_code == CLD_EXITED ? ProcessExit::Reason::exit
                                                  : ProcessExit::Reason::uncaughtSignal,
                       info.si_status};
}

bool Process::State::signal(int number) {
    const MutexGuard guard(mutex_);
    return phase_ == Phase::running && signalGroup(number);
}

bool Process::State::terminate() {
    const MutexGuard guard(mutex_);
    if (phase_ != Phase::running) {
        return false;
    }
    signalGroup(SIGTERM);
    if (graceTimer_ == 0) {
        try {
            graceTimer_ = IOThread::shared().addTimer(
                grace_, [self = shared_from_this()] { self->graceEnded(); });
        } catch (const std::bad_alloc&) {
            killGroup();  // Nothing would end what ignores the signal.
        }
    }
    return true;
}

void Process::State::graceEnded() {
    const MutexGuard guard(mutex_);
    graceTimer_ = 0;
    killGroup();
}

bool Process::State::kill() {
    const MutexGuard guard(mutex_);
    return killGroup();
}

bool Process::State::killGroup() {
    const bool isKilled = signalGroup(SIGKILL);
    if (phase_ == Phase::ended && group_ == child_) {
        forgetGroup();
    }
    return isKilled;
}

/// Whether anybody of the group got the signal (0 is none). A group that is empty is forgotten: the
/// system may give its number to strangers.
bool Process::State::signalGroup(int number) {
    if (!hasGroup_) {
        return false;
    }
    // A leader's handle stands for its group and no other, also when it has been reaped.
    constexpr unsigned toGroup = 1U << 2U;  // PIDFD_SIGNAL_PROCESS_GROUP, since Linux 6.9.
    int result = -1;
    errno = EINVAL;
    if (childHandle_ && group_ == child_) {
        result = ::pidfd_send_signal(childHandle_.number(), number, nullptr, toGroup);
    }
    if (result != 0 && errno == EINVAL) {
        // As long as the group has members no process gets the leader's number: one that has it,
        // with the leader reaped, is somebody else, and so is its group. The caller keeps its own.
        const bool isOurs = phase_ != Phase::ended || group_ != child_ ||
                            (::kill(child_, 0) != 0 && errno == ESRCH);
        result = isOurs ? ::kill(-group_, number) : -1;
        errno = isOurs ? errno : ESRCH;
    }
    if (result != 0 && errno == ESRCH) {
        forgetGroup();
    }
    return result == 0;
}

void Process::State::forgetGroup() {
    hasGroup_ = false;
    if (endWatch_ == 0) {
        childHandle_.reset();
    }
}

void Process::State::waitUntilExit() {
    const std::shared_ptr<RunLoop> loop = RunLoop::current();
    {
        const MutexGuard guard(mutex_);
        if (phase_ != Phase::running) {
            return;
        }
        waiters_.push_back(loop);
    }
    const auto ended = [this] { return !isRunning(); };
    while (!loop->run(Seconds::max(), ended)) {
    }
}

void Process::State::abandon() {
    const MutexGuard guard(mutex_);
    tellEnd_ = nullptr;
    for (const auto& channel : {outputChannel_, errorChannel_}) {
        if (channel) {
            channel->discard();
        }
    }
    if (phase_ == Phase::ended && graceTimer_ == 0) {
        forgetGroup();
    }
}

bool Process::State::isLaunched() const {
    const MutexGuard guard(mutex_);
    return phase_ == Phase::running || phase_ == Phase::ended;
}

bool Process::State::isRunning() const {
    const MutexGuard guard(mutex_);
    return phase_ == Phase::running;
}

std::int64_t Process::State::identifier() const {
    const MutexGuard guard(mutex_);
    return child_;
}

std::optional<ProcessExit> Process::State::exitStatus() const {
    const MutexGuard guard(mutex_);
    return phase_ == Phase::ended ? std::optional(exit_) : std::nullopt;
}

std::unique_ptr<Process> Process::make(Error* error) {
    auto state = std::make_shared<State>();
    if (const int number = state->openPipes(); number != 0) {
        fail(error, pipeError(number));
        return nullptr;
    }
    return std::unique_ptr<Process>(new Process(std::move(state)));
}

Process::Process(std::shared_ptr<State> state) noexcept : state_(std::move(state)) {
}

Process::~Process() {
    state_->abandon();
}

bool Process::launch(const ProcessLaunch& launch,
                     const DeliveryTarget& target,
                     std::weak_ptr<ProcessDelegate> delegate,
                     Error* error) {
    return state_->launch(launch, target, std::move(delegate), error);
}

bool Process::isLaunched() const {
    return state_->isLaunched();
}

bool Process::isRunning() const {
    return state_->isRunning();
}

std::int64_t Process::identifier() const {
    return state_->identifier();
}

std::optional<ProcessExit> Process::exitStatus() const {
    return state_->exitStatus();
}

bool Process::terminate() {
    return state_->terminate();
}

bool Process::kill() {
    return state_->kill();
}

bool Process::interrupt() {
    return state_->signal(SIGINT);
}

void Process::waitUntilExit() const {
    state_->waitUntilExit();
}

Seconds Process::defaultTerminationGrace() {
    return Seconds(std::max(0.0, terminationGraceSetting.doubleValue()));
}

}  // namespace velto
