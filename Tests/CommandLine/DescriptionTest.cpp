#include <CommandLine/Command.h>
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
    environment["SOURCE_DATE_EPOCH"] = "86400";
    const Child child = finished({"man"});
    ASSERT_EQ(child.exitCode, 0);
    EXPECT_THAT(child.output, ::testing::StartsWith(".TH VELTO 1 1970-01-02 "));
    EXPECT_THAT(child.output, ::testing::Not(::testing::ContainsRegex("[^.][.][.]\n")));
    std::string text = child.output;
    std::ranges::replace(text, '\n', ' ');
    EXPECT_THAT(text, HasSubstr("before it is killed (1)."));
    write(folder / "velto.1", child.output);
    if (access("/usr/bin/mandoc", X_OK) == 0) {
        Child lint("/usr/bin/mandoc", {"-T", "lint", folder / "velto.1"}, environment);
        EXPECT_EQ(lint.finish().exitCode, 0) << lint.all();
    }
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

/// What a tabulator makes of a line, in the real shells.
TEST_F(DescriptionTest, EveryShellCompletes) {
    if (access("/usr/bin/zsh", X_OK) + access("/usr/bin/fish", X_OK) != 0)
        GTEST_SKIP() << "needs zsh and fish";
    const auto program = velto::testing::veltoProgram();
    environment["PATH"] = program.parent_path().string() + ":/usr/bin:/bin";
    environment["ZDOTDIR"] = folder / "zsh";
    std::filesystem::create_directories(folder / "work/Film.velmp");
    write(folder / "work/Filmless", "");
    write(folder / "work/other.toml", "");
    const std::string work = "cd '" + (folder / "work").string() + "'\n";
    // Control-O shows the line.
    write(folder / "bashrc", work + R"(PS1= ; bind 'set enable-bracketed-paste off'
show() { printf '\n{%s}\n' "$READLINE_LINE"; READLINE_LINE=; }
bind -x '"\C-o": show'
source <(velto completion bash); echo ready
)");
    write(folder / "zsh/.zshrc", work + R"(PS1= ; autoload -U compinit; compinit -D -u
show() { print -r -- $'\n'"{$BUFFER}"; BUFFER= }
zle -N show; bindkey '^O' show
source <(velto completion zsh); echo ready
)");
    write(folder / "home/.config/fish/config.fish", work + "velto completion fish | source\n");
    TerminalChild bash("/bin/bash", {"--rcfile", folder / "bashrc", "-i"}, environment, 200);
    TerminalChild zsh("/usr/bin/zsh", {"-i"}, environment, 200);
    ASSERT_TRUE(bash.readUntil("ready") && zsh.readUntil("ready")) << bash.screen << zsh.screen;

    const struct {
        const char* line;
        const char* rest;  ///< What is added.
    } rows[] = {
        {"velto upl", "oad"},
        {"velto tool l", "ocate"},
        {"velto --config file tool l", "ocate"},
        {"velto --json completion f", "ish"},
        {"velto upload --store=o", "valis"},
        {"velto upload --store zarnet-b", "ooks"},
        {"velto upload --thr", "ottle"},
        {"velto verify --thr", ""},
        {"velto tool command u", "pload"},
        {"velto upload Fi", "lm.velmp/"},
        {"velto upload --config=ot", "her.toml"},
        {"velto --log-file ot", "her.toml"},
        {"velto config get MZWorkS", "eriesManagerMaxCompletedWork"},
        {"velto config set VeltoPas", ""},
        {"velto --set VeltoPas", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const std::string whole = row.line + std::string(row.rest);
        for (TerminalChild* shell : {&bash, &zsh}) {
            shell->screen.clear();
            shell->type(std::string(row.line) + "\t\x0f");
            ASSERT_TRUE(shell->readUntil("}")) << shell->screen;
            std::string line = shell->screen.substr(shell->screen.rfind('{') + 1);
            line.erase(line.find('}'));
            line.erase(line.find_last_not_of(' ') + 1);
            EXPECT_EQ(line, whole) << (shell == &bash ? "bash" : "zsh");
        }
        Child fish("/usr/bin/fish", {"-i", "-c", "complete -C '" + std::string(row.line) + "'"},
                   environment);
        fish.finish();
        const std::string found = fish.output.substr(0, fish.output.find_first_of("\t\n"));
        EXPECT_EQ(found, *row.rest == 0 ? "" : whole.substr(whole.rfind(' ') + 1)) << fish.all();
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
