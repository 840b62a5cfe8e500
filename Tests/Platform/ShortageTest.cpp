#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/IOThread.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>
#include <VeltoConnectFoundation/Platform/Stream.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/ProcessTable.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>
#include <vector>

/// Hosts that have closed what the library did not open, or have nothing left to give.
namespace velto {
namespace {

using ::testing::ElementsAre;
using ::velto::testing::IsError;

constexpr Seconds forever{1e9};

class Receiver final : public ProcessDelegate {
public:
    void processDidTerminate(const ProcessExit& exit) override { end = exit; }
    std::optional<ProcessExit> end;
};

/// 0, or the error's code. The child says nothing and ends with 0.
std::int64_t runChild(std::unique_ptr<Process> process) {
    ProcessLaunch launch;
    launch.path = testing::childProgram("PlaysTranscript");
    launch.arguments = {"/dev/null"};
    const auto receiver = std::make_shared<Receiver>();
    Error error;
    if (!process->launch(launch, RunLoop::current(), receiver, &error)) {
        EXPECT_THAT(error, IsError(POSIXErrorDomain, error.code()));
        EXPECT_EQ(error.localizedFailureReason(),
                  std::generic_category().message(static_cast<int>(error.code())));
        return error.code();
    }
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return receiver->end.has_value(); }));
    EXPECT_EQ(receiver->end, (ProcessExit{ProcessExit::Reason::exit, 0}));
    return 0;
}

/// While it lives, the system gives this process no descriptor.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit little = before_;
        little.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &little);
        for (int number = 0; number >= 0;) {
            number = open("/dev/null", O_RDONLY | O_CLOEXEC);
            taken_.emplace_back(number);
        }
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit before_{};
    std::vector<FileDescriptor> taken_;
};

TEST(Shortage, NothingOfOursTakesTheStandardDescriptors) {
    if (!testing::isFreshProcess()) {
        EXPECT_EQ(testing::runTestAgain({"/bin/sh", "-c", "exec \"$0\" \"$@\" <&- 2>&-"},
                                        "VELTO_TEST_FRESH_PROCESS=1"),
                  0);
        return;
    }
    const testing::TemporaryDirectory folder;
    std::vector<std::shared_ptr<OutputStream>> files;
    for (const char* const name : {"one", "two", "three"}) {
        files.push_back(OutputStream::toFile(folder.at(name), false));
        files.back()->open();
        ASSERT_EQ(files.back()->streamStatus(), StreamStatus::open);
    }
    systemLog(3, "a line that belongs into no file");
    MainQueue::shared().async([] {});
    EXPECT_FALSE(RunLoop::current()->run(Seconds(0)));
    EXPECT_EQ(runChild(Process::make()), 0);
    for (const int number : {STDIN_FILENO, STDERR_FILENO}) {
        EXPECT_EQ(fcntl(number, F_GETFD), -1) << number;
    }
    for (const char* const name : {"one", "two", "three"}) {
        EXPECT_EQ(testing::contentsOfFile(folder.at(name)), "") << name;
    }
}

TEST(Shortage, OutOfDescriptorsWorkEndsWithAnErrorAndTheHostLives) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The sanitizer's check of object types needs a descriptor.";
#endif
    if (testing::ranInFreshProcess()) {
        return;
    }
    std::vector<int> delivered;
    auto early = Process::make();
    ASSERT_NE(early, nullptr);
    std::promise<void> begins;
    std::thread other([&] {
        begins.get_future().wait();
        bool isDone = false;
        RunLoop::current()->perform([&] { isDone = true; });
        EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return isDone; }));
        MainQueue::shared().async([&] { delivered.push_back(1); });
        MainQueue::shared().sync([&] { delivered.push_back(0); });
    });
    {
        const NoDescriptors shortage;
        begins.set_value();
        other.join();
        EXPECT_FALSE(RunLoop::current()->run(Seconds(0)));
        Error error;
        EXPECT_EQ(Process::make(&error), nullptr);
        EXPECT_THAT(error, IsError(POSIXErrorDomain, EMFILE));
        EXPECT_EQ(IOThread::shared().addTimer(Seconds(0), [] {}), 0U);
        EXPECT_EQ(runChild(std::move(early)), EMFILE);
    }
    // What was asked for meanwhile comes, and the next work finds everything as it should be.
    EXPECT_TRUE(RunLoop::current()->run(forever, [&] { return delivered.size() == 2; }));
    EXPECT_THAT(delivered, ElementsAre(0, 1));
    EXPECT_EQ(runChild(Process::make()), 0);
    EXPECT_FALSE(testing::hasChildren());
}

/// While it lives, the system gives this process no thread.
class NoThreads {
public:
    NoThreads() {
        // The limit does not hold for root.
        if (geteuid() == 0) {
            EXPECT_EQ(setresuid(61234, 61234, 61234), 0);
        }
        getrlimit(RLIMIT_NPROC, &before_);
        const rlimit none{0, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    }
    ~NoThreads() { setrlimit(RLIMIT_NPROC, &before_); }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    rlimit before_{};
};

class Told final : public Operation {
public:
    void main() override { ADD_FAILURE() << "without a thread"; }
    void couldNotStart(const Error& error) override { code = error.code(); }
    std::atomic<std::int64_t> code{0};
};

TEST(Shortage, OutOfThreadsWorkEndsWithAnErrorOrWaitsForTheNextOne) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    ASSERT_EQ(IOThread::shared().start(), 0);
    auto process = Process::make();
    auto shortage = std::make_unique<NoThreads>();
    const auto operations = OperationQueue::make();
    operations->setMaxConcurrentOperationCount(1);
    std::vector<std::shared_ptr<Told>> told;
    for (int count = 0; count < 1000; ++count) {
        told.push_back(std::make_shared<Told>());
        operations->addOperation(told.back());
    }
    operations->waitUntilAllOperationsAreFinished();
    for (const auto& operation : told) {
        ASSERT_EQ(operation->code, EAGAIN);
    }
    const auto queue = SerialQueue::make("stranded");
    std::promise<void> ran;
    queue->async([&] { ran.set_value(); });
    MainQueue::runOnOwnThread();
    bool isInline = false;
    MainQueue::shared().sync([&] { isInline = true; });
    EXPECT_TRUE(isInline);
    EXPECT_EQ(runChild(std::move(process)), EAGAIN);

    shortage.reset();
    ran.get_future().get();
    std::promise<bool> onMain;
    MainQueue::shared().async([&] { onMain.set_value(MainQueue::isMainThread()); });
    EXPECT_TRUE(onMain.get_future().get());
}

TEST(Shortage, WithoutAThreadForTheClockTheNextUseOfTheQueueTriesAgain) {
    if (testing::ranInFreshProcess()) {
        return;
    }
    const auto queue = SerialQueue::make("stranded");
    bool hasRun = false;
    {
        const NoThreads shortage;
        queue->async([&] { hasRun = true; });
    }
    queue->sync([] {});
    EXPECT_TRUE(hasRun);
}

}  // namespace
}  // namespace velto
