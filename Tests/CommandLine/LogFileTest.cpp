#include <Tests/CommandLine/VeltoFixture.h>

#include <sys/stat.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class LogFileTest : public VeltoTest {
protected:
    Child verified(const std::filesystem::path& log, const Strings& options = {}) {
        Strings words = job("verify", makePackage(), {"--log-file", log});
        words.insert(words.end(), options.begin(), options.end());
        return finished(words);
    }
};

TEST_F(LogFileTest, TellsWhatRanAndKeepsTheToolsLines) {
    write(folder / "hidden.toml", "VeltoPasswords = [\"canary-1\"]\n");
    const std::string forged = "2026-01-01T00:00:00.000Z critical forged";
    const Child child = verified(
        folder / "log", {"--config", folder / "hidden.toml", "--tool",
                         toolThatPrints("one\x1b[2J\rtwo canary-1\nERROR: \n" + forged + "\n", 1)});
    EXPECT_EQ(std::filesystem::status(folder / "log").permissions(), std::filesystem::perms(0600));
    const std::string log = contentOf(folder / "log");
    const Strings lines = linesOf(log);
    ASSERT_GT(lines.size(), 5U) << child.all();
    EXPECT_THAT(lines.front(), MatchesRegex("[0-9-]+T[0-9:.]+Z info velto [0-9.]+: velto verify "
                                            ".*--config .*hidden.toml .*"));
    EXPECT_THAT(lines.back(), MatchesRegex(".*Z info velto ended: .*, exit code [0-9]+"));
    EXPECT_THAT(log, AllOf(HasSubstr(" debug one\\x1b[2J\\rtwo **hidden value**\n"),
                           Not(HasSubstr("\n" + forged)), Not(HasSubstr("canary"))));
    for (const std::string& line : lines)
        EXPECT_THAT(line, MatchesRegex("(\t|[0-9-]+T[0-9:.]+Z [a-z]+ ).*"));

    // What a setting may hold is hidden as the log of it would be, and all that a slip may be. A
    // wrong value, too, leaves a log.
    const struct {
        Strings words;
        int exitCode;
        const char* shown;
    } rows[] = {
        {{"config", "get", "VeltoTransport", "--set", "VeltoDrovanExtraArgs=-v off -p 'canary 2'"},
         0,
         "get VeltoTransport"},
        {{"config", "set", "VeltoDrovanExtraArgs", "--", "-p", "canary-3"},
         0,
         "set VeltoDrovanExtraArgs"},
        {{"config", "set", "VeltoPasword", "canary-4"}, 2, "set VeltoPasword '**hidden**'\n"},
        {{"config", "set", "VeltoPassword=canary-5", "on"}, 2, "set 'VeltoPassword=**hidden**' "},
        {{"config", "--set", "VeltoPasword=canary-6"}, 2, "'VeltoPasword=**hidden**'\n"},
        {{"config", "--set", "VeltoPasword:canary-7"}, 2, "--set '**hidden**'\n"},
    };
    for (const auto& row : rows) {
        Strings all{"--log-file", folder / "other"};
        all.insert(all.end(), row.words.begin(), row.words.end());
        EXPECT_EQ(finished(all).exitCode, row.exitCode);
        const std::string other = contentOf(folder / "other");
        EXPECT_THAT(other, AllOf(HasSubstr(row.shown), Not(HasSubstr("canary"))));
        EXPECT_THAT(other, EndsWith("exit code " + std::to_string(row.exitCode) + "\n"));
    }
}

TEST_F(LogFileTest, AFileThatIsThereStaysAsItIsAndNoLinkIsFollowed) {
    write(folder / "log", "kept\n");
    std::filesystem::permissions(folder / "log", std::filesystem::perms(0644));
    EXPECT_EQ(verified(folder / "log").exitCode, 0);
    EXPECT_EQ(std::filesystem::status(folder / "log").permissions(), std::filesystem::perms(0644));
    EXPECT_THAT(contentOf(folder / "log"), StartsWith("kept\n2"));

    write(folder / "target", "");
    std::filesystem::create_symlink(folder / "target", folder / "link");
    std::filesystem::create_symlink(folder / "new", folder / "dangling");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const struct {
        std::filesystem::path path;
        const char* why;
    } rows[] = {
        {folder / "link", "link is a symbolic link"},
        {folder / "dangling", "dangling is a symbolic link"},
        {folder / "pipe", "Nobody reads the pipe"},
        {folder / "gone/log", "No such file or directory"},
        {folder, "Is a directory"},
        {"/dev/fd/99", "Bad file descriptor"},
    };
    for (const auto& row : rows) {
        const Child child = verified(row.path);
        EXPECT_EQ(child.exitCode, 2) << row.path;
        EXPECT_THAT(child.errors, HasSubstr(row.why));
    }
    const Child lonely(
        Child::ToItsEnd(), "/usr/bin/setsid",
        {"-w", velto::testing::veltoProgram(), "tool", "locate", "--log-file=/dev/tty"},
        environment);
    EXPECT_THAT(lonely.errors, HasSubstr("No such device or address"));
    EXPECT_EQ(contentOf(folder / "target"), "");
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));
}

TEST_F(LogFileTest, WhatIsOpenAlreadyCanBeNamedAndAFullDiskIsTold) {
    EXPECT_THAT(verified("/dev/stderr").errors, EndsWith("velto ended: done, exit code 0\n"));
    const Child child = verified("/dev/full");
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_THAT(linesOf(child.errors),
                ::testing::ElementsAre(
                    AllOf(HasSubstr("log is incomplete"), HasSubstr("No space left on device"))));
}

}  // namespace
}  // namespace cli_test
