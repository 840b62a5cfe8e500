#include <VeltoConnectFoundation/Platform/Channel.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/ProcessTable.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <random>
#include <thread>
#include <utility>

namespace velto {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::velto::testing::childProgram;
using ::velto::testing::hasChildren;
using ::velto::testing::isAlive;
using ::velto::testing::IsError;
using ::velto::testing::openDescriptors;
using ::velto::testing::waitUntil;

using Clock = std::chrono::steady_clock;

/// Collects what one child tells.
class Receiver final : public ProcessDelegate {
public:
    void processDidReport(ProcessStream stream, const ChannelReport& report) override {
        if (end || report.error != 0) {
            isOrdered = false;
        }
        (stream == ProcessStream::standardOutput ? output : error) += report.block.view();
        ++blocks;
        if (onBlock) {
            onBlock();
        }
    }
    void processDidTerminate(const ProcessExit& exit) override {
        isOrdered = isOrdered && !end;
        end = exit;
    }

    std::string output;
    std::string error;
    std::size_t blocks = 0;
    std::optional<ProcessExit> end;
    bool isOrdered = true;  ///< One end, behind all blocks.
    std::function<void()> onBlock;
};

ProcessLaunch child(std::string_view name, std::vector<std::string> arguments = {}) {
    ProcessLaunch launch;
    launch.path = childProgram(name);
    launch.arguments = std::move(arguments);
    launch.terminationGrace = Seconds(0.1);
    return launch;
}

constexpr ProcessExit exited(int status) {
    return {ProcessExit::Reason::exit, status};
}

constexpr ProcessExit killed(int number) {
    return {ProcessExit::Reason::uncaughtSignal, number};
}

/// One child on this thread's run loop.
class ProcessTest : public ::testing::Test {
protected:
    void launch(const ProcessLaunch& launch) {
        Error problem;
        ASSERT_TRUE(process->launch(launch, RunLoop::current(), receiver, &problem))
            << problem.description();
    }
    void waitForEnd() {
        waitFor([this] { return receiver->end.has_value(); });
    }
    static void waitFor(const std::function<bool()>& done) {
        ASSERT_TRUE(RunLoop::current()->run(Seconds(60), done)) << "nothing came";
    }
    void run(const ProcessLaunch& how) {
        launch(how);
        waitForEnd();
        EXPECT_TRUE(receiver->isOrdered);
        EXPECT_FALSE(process->isRunning());
    }

    /// Once run loop and I/O thread have theirs.
    std::size_t descriptorsAtRest() {
        run(child("PlaysTranscript", {"/dev/null"}));
        process.reset();
        return openDescriptors();
    }

    std::unique_ptr<Process> process = Process::make();
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
};

TEST_F(ProcessTest, ChildrenStartCleanWithWhatTheyAreGiven) {
    const testing::TemporaryDirectory folder;
    // What must not reach the child.
    const int leaked = dup(STDERR_FILENO);
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto pipes = std::signal(SIGPIPE, SIG_IGN);

    ProcessLaunch how = child("ShowsItself", {"-a", "b c", ""});
    how.environment = Dictionary{{"NAME", "text with = and spaces"}, {"EMPTY", ""}};
    how.folder = folder.path();
    run(how);

    std::signal(SIGPIPE, pipes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(leaked);
    EXPECT_EQ(receiver->output,
              "argument: -a\nargument: b c\nargument: \n"
              "variable: NAME=text with = and spaces\nvariable: EMPTY=\n"
              "folder: " +
                  folder.path().string() +
                  "\n"
                  "leads its group: yes\nsignals that are blocked or ignored: 0\n"
                  "input: ended\ndescriptors: 3\n");
    EXPECT_EQ(receiver->end, exited(0));
}

TEST_F(ProcessTest, EnvironmentIsInheritedOrEmptyAndInputSilent) {
    ASSERT_EQ(setenv("VELTO_TEST_INHERITED", "yes", 1), 0);
    ProcessLaunch how = child("ShowsItself");
    how.standardInput = ProcessLaunch::StandardInput::silentPipe;
    run(how);
    unsetenv("VELTO_TEST_INHERITED");
    EXPECT_THAT(receiver->output,
                AllOf(HasSubstr("VELTO_TEST_INHERITED=yes\n"), HasSubstr("input: silent\n")));

    process = Process::make();
    receiver = std::make_shared<Receiver>();
    how.environment = Dictionary();
    run(how);
    EXPECT_THAT(receiver->output, Not(HasSubstr("variable:")));
}

TEST_F(ProcessTest, WhatCannotBeStartedSaysWhy) {
    const testing::TemporaryDirectory folder;
    const std::string text = folder.write("text", "no program");
    const std::string orphan = folder.write("orphan", "#!/no/such/interpreter\n");
    const std::string odd = folder.write("odd", "no program");
    chmod(orphan.c_str(), 0755);
    chmod(odd.c_str(), 0755);
    const std::string good = childProgram("ShowsItself");
    const struct {
        const char* name;
        std::string path;
        std::string folder;
        std::vector<std::string> arguments;
        int code;
        const char* description;
    } rows[] = {
        {"missing", folder.at("missing"), "", {}, ENOENT, "missing” could not be started"},
        {"empty", "", "", {}, ENOENT, "could not be started"},
        {"not executable", text, "", {}, EACCES, "text” could not be started"},
        {"a folder", folder.path(), "", {}, EACCES, "could not be started"},
        {"no interpreter", orphan, "", {}, ENOENT, "orphan” could not be started"},
        {"no program", odd, "", {}, ENOEXEC, "odd” could not be started"},
        {"missing folder", good, folder.at("nowhere"), {}, ENOENT, "nowhere” cannot be used"},
        {"folder is a file", good, text, {}, ENOTDIR, "text” cannot be used"},
        {"zero byte", good, "", {std::string("a\0b", 3)}, EINVAL, "could not be started"},
    };
    run(child("PlaysTranscript", {"/dev/null"}));  // run loop and I/O thread have theirs
    process = Process::make();
    const std::size_t before = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ProcessLaunch how;
        how.path = row.path;
        how.folder = row.folder;
        how.arguments = row.arguments;
        Error error;
        EXPECT_FALSE(process->launch(how, RunLoop::current(), receiver, &error));
        EXPECT_THAT(error, IsError(POSIXErrorDomain, row.code));
        EXPECT_THAT(error.localizedDescription(), HasSubstr(row.description));
        EXPECT_FALSE(error.localizedFailureReason().value_or("").empty());
        EXPECT_FALSE(process->isLaunched());
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST_F(ProcessTest, ASecondLaunchRaises) {
    run(child("ShowsItself"));
    EXPECT_THROW(launch(child("ShowsItself")), Exception);
}

TEST_F(ProcessTest, BothPipesAreReadWhileBothAreFlooded) {
    constexpr std::size_t size = 20'000'000;
    run(child("FloodsBothPipes", {std::to_string(size)}));
    EXPECT_EQ(receiver->output, std::string(size, 'o'));
    EXPECT_EQ(receiver->error, std::string(size, 'e'));
    EXPECT_EQ(receiver->end, exited(3));
}

TEST_F(ProcessTest, AFloodWaitsForASlowTarget) {
    constexpr std::size_t size = 16 * Channel::defaultLimit;
    launch(child("FloodsBothPipes", {std::to_string(size)}));
    // With the loop at rest the child comes to rest too: what it has written stops growing.
    const std::string file = "/proc/" + std::to_string(process->identifier()) + "/io";
    const auto written = [&file] {
        const std::string text = testing::contentsOfFile(file);
        return std::stoull(text.substr(text.find("wchar: ") + 7));
    };
    std::size_t last = 0;
    int rest = 0;
    ASSERT_TRUE(waitUntil([&] {
        const std::size_t now = written();
        rest = now == last && now > 0 ? rest + 1 : 0;
        last = now;
        return rest == 20;
    }));
    EXPECT_LT(last, 3 * Channel::defaultLimit);
    waitForEnd();
    EXPECT_EQ(receiver->output.size(), size);
    EXPECT_EQ(receiver->error.size(), size);
}

TEST_F(ProcessTest, AChildThatClosesItsOutputLivesOn) {
    launch(child("ClosesItsOutput"));
    waitFor([this] { return receiver->output == "closing\n"; });
    EXPECT_TRUE(process->isRunning());
    EXPECT_TRUE(process->interrupt());
    waitForEnd();
    EXPECT_EQ(receiver->end, exited(7));
}

TEST_F(ProcessTest, TerminateKillsWhatIgnoresIt) {
    launch(child("IgnoresTerminate"));
    waitFor([this] { return !receiver->output.empty(); });
    const auto start = Clock::now();
    EXPECT_TRUE(process->terminate());
    EXPECT_TRUE(process->terminate());
    waitForEnd();
    EXPECT_EQ(receiver->end, killed(SIGKILL));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_FALSE(process->terminate());
}

TEST_F(ProcessTest, TerminateKillsWhatIsLeftOfTheGroup) {
    launch(child("IgnoresTerminate", {"family"}));
    waitFor([this] { return receiver->output.ends_with('\n'); });
    const int grandchild = std::stoi(receiver->output.substr(6));
    ASSERT_TRUE(isAlive(grandchild));
    process->terminate();
    waitForEnd();
    EXPECT_EQ(receiver->end, killed(SIGTERM));
    EXPECT_TRUE(waitUntil([=] { return !isAlive(grandchild); }));
}

TEST_F(ProcessTest, AChildIsEndedWithTheGroupThatItJoined) {
    const auto leader = Process::make();
    ASSERT_TRUE(leader->launch(child("IgnoresTerminate"), RunLoop::current(), {}));
    ProcessLaunch member = child("IgnoresTerminate");
    member.processGroup = leader->identifier();
    launch(member);
    EXPECT_EQ(::getpgid(static_cast<pid_t>(process->identifier())), leader->identifier());
    EXPECT_TRUE(process->kill());
    waitForEnd();
    leader->waitUntilExit();
    EXPECT_EQ(leader->exitStatus(), killed(SIGKILL));
}

TEST_F(ProcessTest, AGrandchildThatHoldsThePipesKeepsNobody) {
    const std::size_t before = descriptorsAtRest();
    for (int round = 0; round < 100; ++round) {
        const auto start = Clock::now();
        process = Process::make();
        receiver = std::make_shared<Receiver>();
        run(child("LeavesGrandchild", round % 10 == 0 ? std::vector<std::string>{"flood"}
                                                      : std::vector<std::string>{}));
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
        EXPECT_EQ(receiver->end, exited(0));
        const std::size_t number = receiver->output.find_first_of("0123456789");
        ASSERT_NE(number, std::string::npos);
        kill(std::stoi(receiver->output.substr(number)), SIGKILL);
    }
    process.reset();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST_F(ProcessTest, AChildIsReapedWhateverBecameOfItsOwner) {
    launch(child("FloodsBothPipes", {"10000000"}));
    const int number = static_cast<int>(process->identifier());
    process.reset();
    receiver.reset();
    EXPECT_TRUE(waitUntil([=] { return kill(number, 0) != 0; }));
    EXPECT_FALSE(hasChildren());
}

TEST_F(ProcessTest, OutputForAThreadThatHasEndedIsDropped) {
    std::thread([this] { launch(child("FloodsBothPipes", {"20000000"})); }).join();
    EXPECT_TRUE(waitUntil([this] { return !process->isRunning(); }));
    EXPECT_EQ(process->exitStatus(), exited(3));
}

TEST_F(ProcessTest, ASerialQueueReceivesInOrderToo) {
    const auto queue = SerialQueue::make("process test");
    ASSERT_TRUE(process->launch(child("FloodsBothPipes", {"3000000"}),
                                std::shared_ptr<Queue>(queue), receiver));
    process->waitUntilExit();
    EXPECT_FALSE(process->isRunning());
    ASSERT_TRUE(waitUntil([&] {
        bool hasEnded = false;
        queue->sync([&] { hasEnded = receiver->end.has_value(); });
        return hasEnded;
    }));
    EXPECT_TRUE(receiver->isOrdered);
    EXPECT_EQ(receiver->output.size() + receiver->error.size(), 6'000'000U);
}

TEST_F(ProcessTest, AStatusThatTheHostTookIsAFailure) {
    launch(child("ClosesItsOutput"));
    // A host that reaps everything, as fast as it can.
    std::thread host([] { waitpid(-1, nullptr, 0); });
    waitFor([this] { return !receiver->output.empty(); });
    process->interrupt();
    host.join();
    waitForEnd();
    EXPECT_TRUE(receiver->end == ProcessExit{} || receiver->end == exited(7));

    const auto before = std::signal(SIGCHLD, SIG_IGN);
    process = Process::make();
    receiver = std::make_shared<Receiver>();
    run(child("DiesBySignal", {std::to_string(SIGUSR1)}));
    std::signal(SIGCHLD, before);
    EXPECT_EQ(receiver->end, ProcessExit{});
    EXPECT_EQ(ProcessExit{}.status, -1);
}

TEST_F(ProcessTest, AThousandCancelsAtRandomMomentsLeaveNothing) {
    const std::size_t before = descriptorsAtRest();
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    std::atomic<Process*> current{nullptr};
    std::atomic<int> moment{0};
    std::jthread canceller([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            Process* const target = current.exchange(nullptr);
            if (target == nullptr) {
                std::this_thread::yield();
                continue;
            }
            const auto start = Clock::now();
            while (Clock::now() - start < std::chrono::microseconds(moment)) {
            }
            target->terminate();
            moment = -1;
        }
    });
    for (int round = 0; round < 1000; ++round) {
        process = Process::make();
        receiver = std::make_shared<Receiver>();
        moment = std::uniform_int_distribution(0, 2000)(random);
        current = process.get();
        launch(child("FloodsBothPipes", {"50000"}));
        waitForEnd();
        ASSERT_TRUE(receiver->end == exited(3) || receiver->end == killed(SIGTERM));
        ASSERT_TRUE(receiver->isOrdered);
        while (moment != -1) {
            std::this_thread::yield();
        }
    }
    process.reset();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(hasChildren());
}

TEST_F(ProcessTest, TheNumberOfAnEmptyGroupIsForgotten) {
    run(child("ShowsItself"));
    const std::unique_ptr<Process> ended = std::move(process);
    const std::int64_t number = ended->identifier();
    // A stranger gets the number, leads a group, and leaves somebody in it.
    int grandchild = 0;
    for (int attempt = 0; attempt < 100 && (!process || process->identifier() != number);
         ++attempt) {
        if (grandchild != 0) {
            kill(grandchild, SIGKILL);
        }
        std::ofstream("/proc/sys/kernel/ns_last_pid") << number - 1;
        process = Process::make();
        receiver = std::make_shared<Receiver>();
        run(child("LeavesGrandchild"));
        grandchild = std::stoi(receiver->output);
    }
    const bool isReused = process->identifier() == number;
    EXPECT_FALSE(ended->kill());
    EXPECT_TRUE(isAlive(grandchild));
    EXPECT_TRUE(process->kill());
    EXPECT_TRUE(waitUntil([=] { return !isAlive(grandchild); }));
    if (!isReused) {
        GTEST_SKIP() << "the system gives no number a second time here";
    }
}

}  // namespace
}  // namespace velto
