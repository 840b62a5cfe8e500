#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace cli_test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

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
    /// Waits for the transfer; answers the tool's group, which is not velto's.
    static pid_t groupOf(Child& child) {
        EXPECT_TRUE(child.readUntil("\"completed\":")) << child.all();
        const std::vector<pid_t> tools = toolsOf(child.pid);
        EXPECT_EQ(tools.size(), 1U);
        const pid_t group = tools.empty() ? -1 : getpgid(tools.front());
        EXPECT_NE(group, getpgid(child.pid));
        return group;
    }
    static void expectEnd(pid_t process, double seconds) {
        const auto start = Clock::now();
        while (stateOf(process) != 'Z') {
            if (secondsSince(start) > seconds) {
                kill(process, SIGKILL);
                FAIL() << "still there after " << seconds << " seconds";
            }
            std::this_thread::yield();
        }
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
        const pid_t tool = groupOf(child);
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
    const std::vector<pid_t> tools = toolsOf(child.pid);
    ASSERT_EQ(tools.size(), 1U);
    const pid_t group = getpgid(tools.front());
    const auto start = Clock::now();
    kill(child.pid, SIGINT);
    child.finish();
    EXPECT_EQ(child.exitCode, 130);
    EXPECT_TRUE(groupEnds(group));
    EXPECT_LT(secondsSince(start), 2.0);
}

TEST_F(StoppingTest, ASecondCtrlCEndsAtOnce) {
    Child child =
        hangingUpload("ignore-terminate=yes\n", {"--grace", "60", "--log-file", folder / "log"});
    const pid_t tool = groupOf(child);
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
    EXPECT_THAT(child.errors, StartsWith("velto: Ended at once; "));
    EXPECT_THAT(contentOf(folder / "log"),
                EndsWith("Z info velto ended: stopped, exit code 130\n"));
    const Json result = objectsOf(child.output).back();
    EXPECT_EQ(result["outcome"], "stopped");
    EXPECT_THAT(result["what"].get<std::string>(), StartsWith("Ended at once; "));
}

TEST_F(StoppingTest, AReaderWhoIsStuckStopsNobody) {
    const std::filesystem::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int full = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    while (::write(full, std::string(4096, 'x').data(), 4096) > 0) {
    }
    const std::filesystem::path logPipe = folder / "log";
    ASSERT_EQ(mkfifo(logPipe.c_str(), 0600), 0);
    pollfd log{open(logPipe.c_str(), O_RDWR | O_CLOEXEC), POLLOUT, 0};
    environment["VELTO"] = velto::testing::veltoProgram();
    environment["LOG"] = logPipe;
    const struct {
        const char* name;
        const char* scenario;
        const char* options;
        int signals;
        bool fillsLog;
    } rows[] = {
        {"once", "", "2>$ERRORS", 1, false},
        {"twice", "ignore-terminate=yes\n", "--grace 60", 2, false},
        {"a log", "flood=20@signed-in\n", "--log-file $LOG", 1, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        useScenario(row.scenario + std::string("hang=yes@signed-in\nrecord=") +
                    (folder / row.name).string() + "\n");
        environment["ERRORS"] = pipe;
        Child child("/bin/sh",
                    {"-c",
                     "exec \"$VELTO\" upload \"$0\" -u demo@sandbox.invalid >\"$1\" " +
                         std::string(row.options),
                     makePackage(), pipe},
                    environment);
        while (!std::filesystem::exists(folder / row.name))
            std::this_thread::yield();
        while (row.fillsLog && poll(&log, 1, 0) > 0)
            std::this_thread::yield();
        const std::vector<pid_t> tools = toolsOf(child.pid);
        ASSERT_EQ(tools.size(), 1U);
        const pid_t group = getpgid(tools.front());
        kill(child.pid, SIGTERM);
        if (row.signals == 2) {
            const auto start = Clock::now();
            while (!groupIsGone(group) && secondsSince(start) < 5)
                kill(child.pid, SIGINT);
        }
        expectEnd(child.pid, 5);
        child.finish();
        EXPECT_EQ(child.exitCode, 130) << child.all();
        EXPECT_TRUE(groupEnds(group));
        if (row.fillsLog) {
            EXPECT_THAT(child.errors, HasSubstr("log is incomplete: Nobody reads"));
        }
    }
    close(full);
    close(log.fd);
}

TEST_F(StoppingTest, AToolOutlivesNoKilledVelto) {
    Child child = hangingUpload("ignore-terminate=yes\ngrandchild=60@signed-in\n");
    const pid_t group = groupOf(child);
    kill(child.pid, SIGKILL);
    child.finish();
    EXPECT_TRUE(groupEnds(group, 10));
}

TEST_F(StoppingTest, CtrlZPausesTheToolToo) {
    useScenario("slow=4000000\n");
    environment["VELTO"] = velto::testing::veltoProgram();
    TerminalChild shell("/bin/sh",
                        {"-mc",
                         "\"$VELTO\" upload \"$0\" -u demo@sandbox.invalid; echo paused; "
                         "read line; fg",
                         makeLargePackage(8)},
                        environment, 120);
    ASSERT_TRUE(shell.readUntil(" MB of 8 MB")) << shell.screen;
    const std::vector<pid_t> velto = childrenOf(shell.pid);
    ASSERT_EQ(velto.size(), 1U);
    const std::vector<pid_t> tools = toolsOf(velto.front());
    ASSERT_EQ(tools.size(), 1U);
    shell.type("\x1a");
    ASSERT_TRUE(shell.readUntil("paused\r\n")) << shell.screen;
    EXPECT_EQ(stateOf(velto.front()), 'T');
    EXPECT_EQ(stateOf(tools.front()), 'T');
    const std::size_t cleared = shell.screen.rfind("\r\x1b[J");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_EQ(shell.screen.find("MB of", cleared), std::string::npos);
    shell.type("\n");
    shell.finish();
    EXPECT_EQ(shell.exitCode, 0) << shell.screen;
    EXPECT_THAT(shell.screen, HasSubstr("Uploaded package"));
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
