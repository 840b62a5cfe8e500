#include <VeltoConnectFoundation/Platform/Process.h>

#include <VeltoConnectFoundation/Platform/Channel.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>

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
    posix_spawn_file_actions_t actions;
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

    Error spawn(const ProcessLaunch& launch, pid_t& child);
    Error watch(pid_t child,
                const ProcessLaunch& launch,
                const DeliveryTarget& target,
                const std::weak_ptr<ProcessDelegate>& delegate);
    void childEnded();
    std::optional<ProcessExit> reap() const VELTO_REQUIRES(mutex_);
    void graceEnded();
    bool killGroup() VELTO_REQUIRES(mutex_);

    mutable Mutex mutex_;
    Phase phase_ VELTO_GUARDED_BY(mutex_) = Phase::idle;
    pid_t child_ VELTO_GUARDED_BY(mutex_) = 0;
    pid_t group_ VELTO_GUARDED_BY(mutex_) = 0;
    FileDescriptor childHandle_
        VELTO_GUARDED_BY(mutex_);  ///< Invalid also when nothing is to be reaped.
    ProcessExit exit_ VELTO_GUARDED_BY(mutex_);
    Seconds grace_ VELTO_GUARDED_BY(mutex_){};
    IOThread::Token endWatch_ VELTO_GUARDED_BY(mutex_) = 0;
    IOThread::Token graceTimer_ VELTO_GUARDED_BY(mutex_) = 0;
    std::vector<std::shared_ptr<RunLoop>> waiters_ VELTO_GUARDED_BY(mutex_);

    Pipe output_, error_;  ///< The launching thread, until they are handed on.
    FileDescriptor silentInput_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<Channel> outputChannel_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<Channel> errorChannel_ VELTO_GUARDED_BY(mutex_);
    std::function<void(const ProcessExit&)> tellEnd_ VELTO_GUARDED_BY(mutex_);
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
    pid_t child = 0;
    Error failure = spawn(launch, child);
    if (!failure) {
        failure = watch(child, launch, target, delegate);
    }
    if (failure) {
        const MutexGuard guard(mutex_);
        phase_ = Phase::idle;
        return fail(error, std::move(failure));
    }
    return true;
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
        ::posix_spawn_file_actions_adddup2(&files.actions, input.reading.number(), STDIN_FILENO);
    } else {
        ::posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    ::posix_spawn_file_actions_adddup2(&files.actions, output_.writing.number(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&files.actions, error_.writing.number(), STDERR_FILENO);
    if (!launch.folder.empty()) {
        ::posix_spawn_file_actions_addchdir_np(&files.actions, launch.folder.c_str());
    }
    ::posix_spawn_file_actions_addclosefrom_np(&files.actions, STDERR_FILENO + 1);
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

Error Process::State::watch(pid_t child,
                            const ProcessLaunch& launch,
                            const DeliveryTarget& target,
                            const std::weak_ptr<ProcessDelegate>& delegate) {
    output_.writing.reset();
    error_.writing.reset();
    const auto channel = [&](Pipe& pipe, ProcessStream stream) {
        return std::make_shared<Channel>(std::move(pipe.reading), target,
                                         [delegate, stream](const ChannelReport& report) {
                                             if (const auto receiver = delegate.lock()) {
                                                 receiver->processDidReport(stream, report);
                                             }
                                         });
    };
    FileDescriptor handle(::pidfd_open(child, 0));
    int number = handle ? 0 : errno;

    // Whatever ends at once waits for this lock.
    const MutexGuard guard(mutex_);
    const auto ended = [self = shared_from_this()] { self->childEnded(); };
    if (handle) {
        endWatch_ = IOThread::shared().addReadable(handle.number(), ended);
        number = endWatch_ != 0 ? 0 : errno;
    } else if (number == ESRCH) {
        // The host reaps all children, and has reaped this one.
        IOThread::shared().addTimer(Seconds(0), ended);
        number = 0;
    }
    if (number != 0) {
        ::kill(launch.processGroup != 0 ? child : -child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        return launchError(number, launch.path);
    }
    child_ = child;
    group_ = launch.processGroup != 0 ? static_cast<pid_t>(launch.processGroup) : child;
    childHandle_ = std::move(handle);
    grace_ = launch.terminationGrace;
    outputChannel_ = channel(output_, ProcessStream::standardOutput);
    errorChannel_ = channel(error_, ProcessStream::standardError);
    tellEnd_ = [target, delegate](const ProcessExit& exit) {
        target.post([delegate, exit] {
            if (const auto receiver = delegate.lock()) {
                receiver->processDidTerminate(exit);
            }
        });
    };
    phase_ = Phase::running;
    outputChannel_->open();
    errorChannel_->open();
    return {};
}

void Process::State::childEnded() {
    std::shared_ptr<Channel> output;
    std::shared_ptr<Channel> error;
    std::function<void(const ProcessExit&)> tellEnd;
    std::vector<std::shared_ptr<RunLoop>> waiters;
    ProcessExit exit;
    {
        const MutexGuard guard(mutex_);
        const std::optional<ProcessExit> reaped = reap();
        if (!reaped) {
            return;
        }
        IOThread::shared().remove(std::exchange(endWatch_, 0));
        childHandle_.reset();
        silentInput_.reset();
        exit_ = exit = *reaped;
        phase_ = Phase::ended;
        // The grace goes on for what the child has left behind in its group.
        if (graceTimer_ != 0 && ::kill(-group_, 0) != 0) {
            IOThread::shared().remove(std::exchange(graceTimer_, 0));
        }
        output = std::move(outputChannel_);
        error = std::move(errorChannel_);
        tellEnd = std::move(tellEnd_);
        waiters.swap(waiters_);
    }
    output->drain();
    error->drain();
    if (tellEnd) {
        tellEnd(exit);
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
    // Not yet reaped, so the number still is this child's.
    return phase_ == Phase::running && ::kill(-group_, number) == 0;
}

bool Process::State::terminate() {
    const MutexGuard guard(mutex_);
    if (phase_ != Phase::running) {
        return false;
    }
    ::kill(-group_, SIGTERM);
    if (graceTimer_ == 0) {
        graceTimer_ = IOThread::shared().addTimer(
            grace_, [self = shared_from_this()] { self->graceEnded(); });
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
    // A group outlives its leader, and as long as it has members no process gets the leader's
    // number: one that has it is somebody else, and so is its group.
    const bool isOurs = phase_ == Phase::running || group_ != child_ ||
                        (child_ > 0 && ::kill(child_, 0) != 0 && errno == ESRCH);
    return isOurs && ::kill(-group_, SIGKILL) == 0;
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
