#include <VeltoConnectFoundation/DeliveryTool/MZTask.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Support/ChangeRecorder.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/ProcessTable.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <thread>

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using velto::testing::CapturedLog;
using velto::testing::childProgram;
using velto::testing::ScopedUserDefaults;
using velto::testing::TemporaryDirectory;

class Receiver final : public MZTaskDelegate {
public:
    void taskDidAppendToStandardOutput(MZTask& task, const velto::Data& block) override {
        receive(task, output, block);
    }
    void taskDidAppendToStandardError(MZTask& task, const velto::Data& block) override {
        receive(task, error, block);
    }
    void taskDidTerminate(MZTask& task) override {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        ++ends;
        status = task.terminationStatus();
        if (throwsAtEnd) {
            throw velto::Exception(velto::GenericException, "thrown at the end");
        }
    }

    std::string output;
    std::string error;
    int ends = 0;
    std::int64_t status = 0;
    bool throwsAtBlocks = false;
    bool throwsAtEnd = false;
    std::function<void(MZTask&)> onBlock;

private:
    void receive(MZTask& task, std::string& text, const velto::Data& block) {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        EXPECT_EQ(ends, 0);
        text += block.view();
        if (onBlock) {
            onBlock(task);
        }
        if (throwsAtBlocks) {
            throw velto::Exception(velto::GenericException, "thrown at a block");
        }
    }
    const std::thread::id thread = std::this_thread::get_id();
};

class MZTaskTest : public ::testing::Test {
protected:
    std::shared_ptr<MZTask> task(std::string_view program,
                                 std::vector<std::string> arguments = {}) const {
        auto made = velto::make<MZTask>();
        made->setLaunchPath(childProgram(program).string());
        made->setArguments(std::move(arguments));
        made->setDelegate(receiver);
        return made;
    }

    const ScopedUserDefaults defaults{{{"VeltoProcessTerminationGrace", 0.1}}};
    const TemporaryDirectory folder;
    CapturedLog log;
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
};

TEST_F(MZTaskTest, AllOutputComesBeforeTheEndAndTheStatus) {
    const std::string transcript = folder.write("transcript", "o out\ne err\np last\nb FF\nx 5\n");
    const auto child = task("PlaysTranscript", {transcript});
    EXPECT_EQ(child->execute(), 5);
    EXPECT_EQ(receiver->output, "out\nlast\xFF");
    EXPECT_EQ(receiver->error, "err\n");
    EXPECT_EQ(receiver->ends, 1);
    EXPECT_EQ(receiver->status, 5);
    EXPECT_EQ(child->terminationStatus(), 5);
    EXPECT_FALSE(child->isRunning());
}

TEST_F(MZTaskTest, ASignalAdds128) {
    EXPECT_EQ(task("DiesBySignal", {std::to_string(SIGUSR1)})->execute(), 128 + SIGUSR1);
}

TEST_F(MZTaskTest, FolderAndEnvironmentReachTheChild) {
    const auto child = task("ShowsItself", {"a b"});
    velto::testing::ChangeRecorder recorder(*child, {"environment"});
    EXPECT_EQ(child->environment(), std::nullopt);
    child->setEnvironment(velto::Dictionary{{"NAME", "value"}});
    EXPECT_THAT(recorder.take(), ElementsAre("environment"));
    child->setCurrentDirectoryPath(folder.path().string());
    EXPECT_EQ(child->execute(), 0);
    EXPECT_THAT(receiver->output, AllOf(HasSubstr("argument: a b\nvariable: NAME=value\nfolder: " +
                                                  folder.path().string() + "\n")));
}

TEST_F(MZTaskTest, WhatCannotBeLaunchedSaysWhatAndWhy) {
    const auto child = task("ShowsItself");
    child->setLaunchPath("/nowhere/tool");
    try {
        child->execute();
        ADD_FAILURE() << "no exception";
    } catch (const velto::Exception& exception) {
        EXPECT_EQ(exception.name(), velto::InvalidArgumentException);
        EXPECT_EQ(exception.reason(),
                  "The program “/nowhere/tool” could not be started. No such file or directory");
    }
    EXPECT_EQ(receiver->ends, 0);
}

TEST_F(MZTaskTest, ATaskThatWasNeverLaunchedSaysSoWhenItGoes) {
    task("ShowsItself")->terminate();
    EXPECT_THAT(log.messages(),
                ElementsAre("MZTask was not launched prior to dealloc: task not launched"));
}

TEST_F(MZTaskTest, WithoutPipesItAnswersMinusOne) {
    // A sanitizer checks each class once by means of a pipe of its own: now, by another failure.
    {
        const auto nowhere = task("ShowsItself");
        nowhere->setLaunchPath("/nowhere/tool");
        EXPECT_THROW(nowhere->execute(), velto::Exception);
    }
    log.clear();

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const auto child = task("ShowsItself");
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(child->execute(), -1);
    EXPECT_FALSE(child->isRunning());
    EXPECT_EQ(log.lines().at(0).level, MZLogLevelError);
    EXPECT_THAT(log.messages().at(0), HasSubstr("Too many open files"));
}

TEST_F(MZTaskTest, WhatADelegateThrowsAtABlockIsLoggedOnly) {
    receiver->throwsAtBlocks = true;
    // The signal comes when all has been read, so that nothing is left to flush.
    const auto child = task("ClosesItsOutput");
    receiver->onBlock = [](MZTask& from) { from.terminate(); };
    EXPECT_EQ(child->execute(), 128 + SIGTERM);
    EXPECT_TRUE(log.contains(
        "*** Warning: Caught exception while reading from stdout file handle: thrown at a block"));

    log.clear();
    receiver = std::make_shared<Receiver>();
    receiver->throwsAtBlocks = true;
    EXPECT_EQ(task("PlaysTranscript", {folder.write("t", "e err\nx 0\n")})->execute(), 0);
    // Which of the two depends on whether the child was still there when it was read.
    EXPECT_TRUE(
        log.contains("*** Warning: Caught exception while reading from stdin file handle: thrown "
                     "at a block") ||
        log.contains("*** Warning: Caught exception while flushing channels: thrown at a block"));
}

TEST_F(MZTaskTest, TheFlushIsCountedAndEndsAtAnException) {
    const auto child = task("ShowsItself");
    const auto report = [&](velto::ProcessStream stream, std::string_view text) {
        child->processDidReport(stream,
                                {velto::ChannelReport::Kind::drained, velto::Data(text), 0});
    };
    report(velto::ProcessStream::standardOutput, "a");
    report(velto::ProcessStream::standardOutput, "b");
    receiver->throwsAtBlocks = true;
    report(velto::ProcessStream::standardError, "c");
    report(velto::ProcessStream::standardError, "d");
    child->processDidTerminate({velto::ProcessExit::Reason::unknown, -1});
    EXPECT_EQ(receiver->output + receiver->error, "abc");
    EXPECT_EQ(receiver->status, -1);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("*** Warning: Caught exception while flushing channels: thrown at a block",
                    "stdout: Handled multiple calls to -availableData"));
}

TEST_F(MZTaskTest, AFlushThatBreaksIsNotCounted) {
    const auto child = task("ShowsItself");
    for (const char* text : {"a", "b"}) {
        receiver->throwsAtBlocks = *text == 'b';
        child->processDidReport(velto::ProcessStream::standardOutput,
                                {velto::ChannelReport::Kind::drained, velto::Data(text), 0});
    }
    child->processDidTerminate({velto::ProcessExit::Reason::exit, 0});
    EXPECT_EQ(receiver->ends, 1);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("*** Warning: Caught exception while flushing channels: thrown at a block"));
}

TEST_F(MZTaskTest, WhatADelegateThrowsAtTheEndIsPassedOn) {
    receiver->throwsAtEnd = true;
    const auto child = task("PlaysTranscript", {folder.write("t", "x 4\n")});
    EXPECT_THROW(child->execute(), velto::Exception);
    EXPECT_EQ(child->terminationStatus(), 4);
    EXPECT_FALSE(child->isRunning());
}

TEST_F(MZTaskTest, AnotherThreadMayEndIt) {
    const auto child = task("IgnoresTerminate");
    std::jthread other;
    receiver->onBlock = [&](MZTask& from) {
        other = std::jthread([&from] {
            EXPECT_TRUE(from.isRunning());
            from.terminate();
        });
    };
    EXPECT_EQ(child->execute(), 128 + SIGKILL);
}

TEST_F(MZTaskTest, ATaskThatGoesEndsItsChild) {
    auto child = task("ClosesItsOutput");
    child->launch();
    child.reset();
    EXPECT_TRUE(velto::testing::waitUntil([] { return !velto::testing::hasChildren(); }));
    EXPECT_EQ(receiver->ends, 0);
}

}  // namespace
