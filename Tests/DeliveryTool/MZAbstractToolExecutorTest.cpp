#include <VeltoConnectFoundation/DeliveryTool/MZAbstractToolExecutor.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/PrintValue.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gmock/gmock.h>

#include <csignal>
#include <random>
#include <thread>

namespace {

using ::testing::ElementsAre;
using velto::Dictionary;
using velto::testing::CapturedLog;
using velto::testing::childProgram;
using velto::testing::IsError;
using velto::testing::ScopedUserDefaults;
using velto::testing::TemporaryDirectory;

class Executor final : public MZAbstractToolExecutor {
public:
    Executor(velto::PassKey key, std::string program, std::vector<std::string> arguments)
        : MZAbstractToolExecutor(key),
          program_(std::move(program)),
          arguments_(std::move(arguments)) {}

    std::optional<std::string> toolName() const override { return "tool"; }
    std::shared_ptr<MZTask> taskWithError(velto::Error& error) override {
        if (program_.empty()) {
            error = failure;
            return nullptr;
        }
        auto task = velto::make<MZTask>();
        task->setLaunchPath(childProgram(program_).string());
        task->setArguments(arguments_);
        return task;
    }
    void taskDidTerminate(MZTask& task) override {
        MZAbstractToolExecutor::taskDidTerminate(task);
        if (onEnd) {
            onEnd(task);
        }
    }
    void processExitCode(MZToolExecutorResult& result) override { judged = result.errorCode(); }
    bool expectsStandardOutputWithSuccessfulExit() const override { return expectsOutput; }

    velto::Error failure;
    bool expectsOutput = false;
    std::optional<std::int64_t> judged;
    std::function<void(MZTask&)> onEnd;

private:
    std::string program_;
    std::vector<std::string> arguments_;
};

std::shared_ptr<Executor> executor(std::string program, std::vector<std::string> arguments = {}) {
    return velto::make<Executor>(std::move(program), std::move(arguments));
}

TEST(MZAbstractToolExecutor, ARunGivesOutputStatusAndTime) {
    const TemporaryDirectory folder;
    CapturedLog log;
    const std::string transcript = folder.write("transcript", "o out\ne err\nx 3\n");
    const auto tool = executor("PlaysTranscript", {transcript, "-p", "secret"});
    const auto result = tool->execute();
    const std::string command =
        childProgram("PlaysTranscript").string() + " " + transcript + " -p **hidden value**";
    EXPECT_EQ(tool->judged, 3);
    EXPECT_EQ(tool->code(), 3);
    EXPECT_GT(result->timeToExecute(), 0);
    EXPECT_LT(result->timeToExecute(), 60);
    EXPECT_FALSE(result->error());
    EXPECT_EQ(result->describeAsPlist(),
              (Dictionary{{"command", command},
                          {"stdout", "out\n"},
                          {"stderr", "err\n"},
                          {"error-code", "3"},
                          {"seconds-to-execute", result->timeToExecute()},
                          {"tool-name", "tool"}}));
    EXPECT_THAT(log.messages(), ElementsAre("Executing: " + command, "*** Terminate: 3",
                                            "Finished: " + command + " with status 3"));

    // The buffers are those of the last run.
    EXPECT_EQ(tool->execute()->standardOutput().view(), "out\n");
}

TEST(MZAbstractToolExecutor, ATaskThatCannotBeMadeIsTheResultsError) {
    const auto tool = executor("");
    auto result = tool->execute();
    EXPECT_THAT(result->error(), IsError(velto::GeneralErrorDomain, -27005));
    EXPECT_EQ(result->error().localizedDescription(), "Could not create the task to run “tool”.");
    EXPECT_EQ(result->error().localizedFailureReason(), "Could not create the task to run “tool”.");
    EXPECT_EQ(result->errorCode(), std::nullopt);
    EXPECT_EQ(result->describeAsPlist(), std::nullopt);
    EXPECT_EQ(result->toolName(), "tool");
    EXPECT_EQ(tool->judged, std::nullopt);

    tool->failure = velto::Error("Own", 1);
    result = tool->execute();
    EXPECT_THAT(result->error(), IsError("Own", 1));
}

TEST(MZAbstractToolExecutor, SubclassesMustSayWhatTheyAre) {
    class Nameless final : public MZAbstractToolExecutor {
    public:
        using MZAbstractToolExecutor::MZAbstractToolExecutor;
    };
    class Named final : public MZAbstractToolExecutor {
    public:
        using MZAbstractToolExecutor::MZAbstractToolExecutor;
        std::optional<std::string> toolName() const override { return "named"; }
    };
    const auto reasonOf = [](const auto& action) {
        try {
            action();
        } catch (const velto::Exception& exception) {
            EXPECT_EQ(exception.name(), velto::InternalInconsistencyException);
            return exception.reason();
        }
        return std::string("no exception");
    };
    const std::string nameless = reasonOf([] { velto::make<Nameless>(); });
    EXPECT_THAT(nameless, ::testing::StartsWith("The class ‘"));
    EXPECT_THAT(nameless,
                ::testing::EndsWith("Nameless’ needs to override the method 'toolName'."));
    EXPECT_EQ(reasonOf([] { velto::make<Named>()->execute(); }),
              "Subclasses must override taskWithError:");
}

TEST(MZAbstractToolExecutor, WaitsForOutputOfASuccessOnly) {
    const TemporaryDirectory folder;
    auto tool = executor("PlaysTranscript", {folder.write("failure", "x 1\n")});
    tool->expectsOutput = true;
    EXPECT_EQ(tool->execute()->errorCode(), 1);

    tool = executor("PlaysTranscript", {folder.write("success", "x 0\n")});
    tool->expectsOutput = true;
    // What comes after the end ends the wait.
    tool->onEnd = [&](MZTask& task) {
        velto::RunLoop::current()->perform(
            [&] { tool->taskDidAppendToStandardOutput(task, velto::Data("late")); });
    };
    const auto result = tool->execute();
    EXPECT_EQ(result->standardOutput().view(), "late");
    EXPECT_LT(result->timeToExecute(), 9);
}

TEST(MZAbstractToolExecutor, ACancelEndsTheToolWheneverItComes) {
    const ScopedUserDefaults defaults{{{"VeltoProcessTerminationGrace", 0.1}}};
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    for (int round = 0; round < 100; ++round) {
        const auto tool = executor("ClosesItsOutput");
        const std::chrono::microseconds moment(std::uniform_int_distribution(0, 3000)(random));
        const std::jthread other([&] {
            const auto start = std::chrono::steady_clock::now();
            while (std::chrono::steady_clock::now() - start < moment) {
            }
            tool->cancel();
            tool->cancel();
        });
        ASSERT_EQ(tool->execute()->errorCode(), 128 + SIGTERM);
    }
}

TEST(MZToolExecutorResult, ReadsOutputInItsEncoding) {
    const auto tool = executor("ShowsItself");
    const struct {
        const char* name;
        std::string bytes;
        velto::TextEncoding encoding;
        std::optional<std::string> output;
        std::optional<std::string> error;
    } rows[] = {
        {"nothing", "", velto::TextEncoding::utf8, std::nullopt, ""},
        {"UTF-8", "é", velto::TextEncoding::utf8, "é", "é"},
        {"not UTF-8", "\xE9", velto::TextEncoding::utf8, "é", std::nullopt},
        {"Latin-1", "\xE9", velto::TextEncoding::isoLatin1, "é", "é"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        tool->setOutputEncoding(row.encoding);
        const auto result = tool->createResult();
        EXPECT_EQ(result->outputEncoding(), row.encoding);
        result->setStandardOutput(velto::Data(row.bytes));
        result->setStandardError(velto::Data(row.bytes));
        EXPECT_EQ(result->standardOutputString(), row.output);
        EXPECT_EQ(result->standardErrorString(), row.error);
    }
}

TEST(MZToolExecutorResult, ThePropertyListHoldsWhatThereIs) {
    const auto result = executor("ShowsItself")->createResult();
    EXPECT_EQ(result->errorCodeString(), "0");
    EXPECT_EQ(result->describeAsPlist(), std::nullopt);
    result->setErrorCode(0);
    EXPECT_EQ(result->describeAsPlist(), (Dictionary{{"seconds-to-execute", 0.0}}));
    result->setErrorCode(std::int64_t{1} << 32);
    EXPECT_EQ(result->describeAsPlist(), (Dictionary{{"seconds-to-execute", 0.0}}));
    result->setErrorCode(-1);
    EXPECT_EQ(result->describeAsPlist(),
              (Dictionary{{"error-code", "-1"}, {"seconds-to-execute", 0.0}}));
}

}  // namespace
