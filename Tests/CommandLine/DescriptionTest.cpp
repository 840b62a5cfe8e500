#include <CommandLine/Command.h>
#include <CommandLine/Completion.h>
#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;

/// Help, completion and manual page, which come from one description.
using DescriptionTest = VeltoTest;

TEST_F(DescriptionTest, EveryCommandHasHelpWithExamples) {
    for (const velto::cli::Command* command : velto::cli::allCommands()) {
        SCOPED_TRACE(command->name);
        std::string text(command->name);
        Strings words;
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find(' ', at), text.size());
            words.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        words.emplace_back("--help");
        const Child child = finished(words);
        EXPECT_EQ(child.exitCode, 0);
        EXPECT_THAT(child.output, HasSubstr("velto " + text));
        EXPECT_THAT(child.output, HasSubstr(command->run == nullptr ? "Commands\n" : "Examples\n"));
        for (const auto& line : linesOf(child.output))
            EXPECT_LE(line.size(), 90U) << line;
    }
}

TEST_F(DescriptionTest, TheManualPageTellsEverything) {
    const Child child = finished({"man"});
    ASSERT_EQ(child.exitCode, 0);
    for (const velto::cli::Command* command : velto::cli::allCommands())
        EXPECT_THAT(child.output, HasSubstr("velto " + std::string(command->name)));
    for (const auto& meaning : velto::cli::exitCodeMeanings())
        EXPECT_THAT(child.output,
                    HasSubstr("\\fB" + std::to_string(static_cast<int>(meaning.code)) + "\\fR"));
    for (const char* part : {"\\-20101", "\\-22938", "VELTO_PASSWORD",
                             "MZWorkSeriesManagerMaxCompletedWork", "NO_COLOR", "\\-\\-log\\-file"})
        EXPECT_THAT(child.output, HasSubstr(part));
    for (const std::string& line : linesOf(child.output)) {
        if (line.starts_with('.')) {
            EXPECT_THAT(line, ::testing::ContainsRegex("^\\.(TH|SH|SS|PP|TP|nf|fi)")) << line;
        }
    }
}

TEST_F(DescriptionTest, CompletionsMentionEveryCommandAndOption) {
    for (const char* shell : {"bash", "zsh", "fish"}) {
        SCOPED_TRACE(shell);
        const Child child = finished({"completion", shell});
        ASSERT_EQ(child.exitCode, 0);
        for (const velto::cli::Command* command : velto::cli::allCommands()) {
            EXPECT_THAT(child.output, HasSubstr(command->lastWord()));
            for (const velto::cli::Option* option : velto::cli::completedOptions(command))
                EXPECT_THAT(child.output, HasSubstr(option->name));
        }
    }
}

TEST_F(DescriptionTest, BashCompletesCommandsOptionsAndValues) {
    const Child script = finished({"completion", "bash"});
    write(folder / "velto.bash", script.output);
    const struct {
        const char* line;  ///< The last word is being typed.
        const char* expected;
    } rows[] = {
        {"velto '' ", "package verify upload digest tool config completion man"},
        {"velto up", "upload"},
        {"velto tool ''", "locate version command"},
        {"velto --config file tool l", "locate"},
        {"velto upload --store zarnet", "zarnet-books zarnet-services"},
        {"velto upload --thr", "--throttle"},
        {"velto verify --thr", ""},
        {"velto completion f", "fish"},
        {"velto tool command u", "upload"},
        {"velto config get MZWorkSeriesM", "MZWorkSeriesManagerMaxCompletedWork"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Child child(
            "/bin/bash",
            {"-c",
             "source '" + (folder / "velto.bash").string() + "'; COMP_WORDS=(" + row.line +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _velto; echo \"${COMPREPLY[*]}\""},
            environment);
        child.finish();
        EXPECT_EQ(child.output, std::string(row.expected) + "\n") << child.errors;
    }
}

TEST_F(DescriptionTest, AFullDiskIsNoSuccess) {
    Child child("/bin/sh", {"-c", "\"$VELTO\" man >/dev/full"}, [&] {
        auto variables = environment;
        variables["VELTO"] = velto::testing::veltoProgram();
        return variables;
    }());
    child.finish();
    EXPECT_EQ(child.exitCode, 1) << child.all();
}

}  // namespace
}  // namespace cli_test
