#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

class StoppingTest : public VeltoTest {
protected:
    /// Started and in the middle of the transfer, where the tool hangs.
    Child hangingUpload(const std::string& scenario, const Strings& options = {}) {
        useScenario(scenario + "hang=yes@transfer:50\n");
        package_ = makeLargePackage(4);
        Strings words = job("upload", package_, {"--json"});
        words.insert(words.end(), options.begin(), options.end());
        return velto(words);
    }
    /// Waits for the transfer; answers the tool's process, which leads its group.
    static pid_t toolOf(Child& child) {
        EXPECT_TRUE(child.readUntil("\"completed\":")) << child.all();
        const std::vector<pid_t> tools = childrenOf(child.pid);
        EXPECT_EQ(tools.size(), 1U);
        return tools.empty() ? -1 : tools.front();
    }

    std::string package_;
};

TEST_F(StoppingTest, CtrlCEndsTheWholeGroupWithinTwoSeconds) {
    const struct {
        const char* name;
        const char* scenario;
        int signal;
        bool leavesSomething;
    } rows[] = {
        {"a tool that obeys", "", SIGINT, false},
        {"a tool that ignores it", "ignore-terminate=yes\n", SIGINT, true},
        {"one with a process of its own", "ignore-terminate=yes\ngrandchild=60@signed-in\n",
         SIGTERM, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove_all(folder / "LARGE.velmp");
        Child child = hangingUpload(row.scenario);
        const pid_t tool = toolOf(child);
        ASSERT_EQ(getpgid(tool), tool);
        const auto start = Clock::now();
        kill(child.pid, row.signal);
        child.finish();
        EXPECT_TRUE(groupEnds(tool));
        EXPECT_LT(secondsSince(start), 2.0);
        EXPECT_EQ(child.exitCode, 130) << child.all();
        const Json result = objectsOf(child.output).back();
        EXPECT_EQ(result["outcome"], "stopped");
        EXPECT_THAT(result["what"].get<std::string>(), HasSubstr(package_));
        EXPECT_EQ(std::filesystem::exists(folder / "store/DemoStudio/LARGE.velmp.incoming"),
                  row.leavesSomething);
        EXPECT_FALSE(std::filesystem::exists(folder / "store/DemoStudio/LARGE.velmp/metadata.xml"));
    }
}

TEST_F(StoppingTest, WhatAToolLeavesBehindIsGoneToo) {
    write(folder / "tool",
          "#!/bin/sh\n(trap '' TERM INT; exec sleep 60) &\n"
          "echo Checking the MD5 checksum\nexec sleep 60\n");
    std::filesystem::permissions(folder / "tool", std::filesystem::perms(0755));
    Child child = velto(job("upload", makePackage(), {"--tool", folder / "tool"}));
    ASSERT_TRUE(child.readUntil("Verifying asset checksums…")) << child.all();
    const std::vector<pid_t> tools = childrenOf(child.pid);
    ASSERT_EQ(tools.size(), 1U);
    const auto start = Clock::now();
    kill(child.pid, SIGINT);
    child.finish();
    EXPECT_EQ(child.exitCode, 130);
    EXPECT_TRUE(groupEnds(tools.front()));
    EXPECT_LT(secondsSince(start), 2.0);
}

TEST_F(StoppingTest, ASecondCtrlCEndsAtOnce) {
    Child child = hangingUpload("ignore-terminate=yes\n", {"--grace", "60"});
    const pid_t tool = toolOf(child);
    kill(child.pid, SIGINT);
    ASSERT_TRUE(child.readUntil("Stopping")) << child.all();
    EXPECT_FALSE(groupIsGone(tool));
    // Again and again, since two that come together count as one.
    const auto start = Clock::now();
    while (!groupIsGone(tool) && secondsSince(start) < 5)
        kill(child.pid, SIGINT);
    child.finish();
    EXPECT_LT(secondsSince(start), 1.0);
    EXPECT_EQ(child.exitCode, 130);
    EXPECT_TRUE(groupEnds(tool));
    EXPECT_THAT(child.errors, HasSubstr("ended at once"));
}

TEST_F(StoppingTest, TheLastLineOnATerminalSaysWhatWasLeft) {
    useScenario("slow=1000000\n");
    const std::string package = makeLargePackage(4);
    TerminalChild child = veltoOnTerminal(job("upload", package), 200);
    ASSERT_TRUE(child.readUntil(" MB of 4 MB")) << child.screen;
    child.type("\x03");
    child.finish();
    EXPECT_EQ(child.exitCode, 130);
    const std::string last = child.screen.substr(child.screen.rfind('\r', child.screen.size() - 3));
    EXPECT_THAT(child.screen, HasSubstr("Stopped."));
    EXPECT_THAT(last, HasSubstr(package)) << child.screen;
}

}  // namespace
}  // namespace cli_test
