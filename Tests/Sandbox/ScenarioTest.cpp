#include <Tests/Sandbox/SandboxFixture.h>

#include <algorithm>

using namespace sandbox_test;

namespace {

class ScenarioTest : public SandboxTest {
protected:
    Child verify(std::string_view scenario) {
        useScenario(scenario);
        return tool(arguments("verify", makePackage()));
    }
};

}  // namespace

TEST_F(ScenarioTest, TheCommandLineIsReadAsDocumented) {
    const auto package = makePackage();
    const Strings good{"-u", "demo@sandbox.invalid", "-p", "@env:PW"};
    const std::string unknown = "WARN: The following option was specified but is not recognized: ";
    struct Row {
        const char* name;
        Strings words;
        int exitCode;
        std::string said;  ///< A line of either pipe.
    };
    const std::vector<Row> rows{
        {"version", {"-version"}, 0, "Velm Drovan, version 1.0.0"},
        {"nothing", {}, 2, "\tThe option -m takes verify or upload (-24301)"},
        {"other mode",
         {"-m", "provider"},
         2,
         "\tThe option -m takes verify or upload (-24301): provider"},
        {"no package", {"-m", "verify"}, 2, "\tThe option -f with a package is missing (-24301)"},
        {"value missing", {"-m", "verify", "-f"}, 2, "\tAn option lacks its value (-24301): -f"},
        {"open quote",
         {"-m", "verify", "-f", "'x"},
         2,
         "\tAn argument has a quote that is not closed (-24301): -f"},
        {"no number", {"-k", "fast"}, 2, "\tAn option takes a whole number (-24301): -k fast"},
        {"no truth",
         {"-indicator", "1"},
         2,
         "\tAn option takes true or false (-24301): -indicator 1"},
        {"no property", {"-Dname"}, 2, "\tA property takes the form -Dname=value (-24301): -Dname"},
        {"headers no base64",
         {"-DTxHeaders=%%"},
         2,
         "\tThe value of -DTxHeaders is not base64 text of a JSON object of headers (-24301)"},
        {"unknown option and its value",
         {"-m", "verify", "-f", package, "-odd", "value"},
         0,
         unknown + "-odd"},
        {"unknown option without", {"-odd", "-m", "verify", "-f", package}, 0, unknown + "-odd"},
        {"unknown verbosity",
         {"-m", "verify", "-f", package, "-v", "'loud'"},
         0,
         "WARN: The value of -v is not recognized: loud"},
        {"properties",
         {"-m", "verify", "-f", package, "-v", "eXtreme", "-Ddrovan.client='it'\\''s'",
          "-DproxyPort=8080", "-DTxHeaders=eyJhIjoiYiJ9", "-serviceAddress", "https://x.invalid"},
         0,
         "DBG: property drovan.client=it's"},
        {"double quotes",
         {"-m", "verify", "-f", "\"" + package.string() + "\""},
         0,
         "The package was verified: P.velmp"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Strings words = row.words;
        if (row.exitCode == 0)
            words.insert(words.begin(), good.begin(), good.end());
        const Child run = finishedTool(words);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.all();
        const std::string said =
            row.said + (row.exitCode == 0
                            ? "\n"
                            : ". Correct the command line that the tool was started with.\n");
        EXPECT_NE((run.output + run.errors).find(said), std::string::npos) << run.all();
        EXPECT_EQ(run.output.find(unknown) != std::string::npos, row.said.starts_with(unknown));
    }
}

TEST_F(ScenarioTest, VerbosityOffLeavesResultsAndErrors) {
    useScenario("warning=w\ninfo=i\n");
    Strings words = arguments("upload", makePackage());
    words.back() = "off";
    Child run = tool(words);
    EXPECT_EQ(run.finish().output, "The package was delivered: V1.velmp\n");
}

TEST_F(ScenarioTest, EndsAsAsked) {
    struct Row {
        const char* scenario;
        int exitCode, signal;
    };
    for (const Row& row : {Row{"crash=SEGV@start", -1, SIGSEGV}, Row{"crash=6@end", -1, SIGABRT},
                           Row{"crash=KILL@checked", -1, SIGKILL}, Row{"exit=7@signed-in", 7, 0},
                           Row{"exit=0@start", 0, 0}, Row{"exit=9@end", 9, 0},
                           Row{"error=Odd (5)\nexit=3@end", 3, 0}, Row{"exit=4@transfer", 0, 0},
                           Row{"colour=red", 2, 0}, Row{"slow=fast", 2, 0}, Row{"hang", 2, 0},
                           Row{"crash=6@noon", 2, 0}, Row{"# nothing\n\n slow = 0 \r\n", 0, 0}}) {
        SCOPED_TRACE(row.scenario);
        Child run = verify(row.scenario);
        run.finish();
        EXPECT_EQ(run.exitCode, row.exitCode) << run.all();
        EXPECT_EQ(run.signal, row.signal);
    }
}

TEST_F(ScenarioTest, PrintsMessagesInEachStyle) {
    const std::string message = "The store is closed (5 items) (-1)";
    const std::string line = "ERROR: " + message + "\n";
    const std::string block = "Error Messages:\n\t" + message + "\n\tand so on\n";
    const std::string lines = line + "ERROR: and so on\n";
    struct Row {
        const char* style;
        std::string output, errors;
    };
    for (const Row& row : {Row{"block", "", lines + block}, Row{"output-block", block, lines},
                           Row{"lines", "", lines}, Row{"none", "", ""}}) {
        SCOPED_TRACE(row.style);
        Child run = verify(
            "warning=careful\ninfo=by the way\nerror=" + message +
            "\nerror=and so on\nverify-count=no\nunterminated=the end\nerror-style=" + row.style);
        run.finish();
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.errors, row.errors);
        EXPECT_TRUE(run.output.ends_with("verified: P.velmp\n" + row.output + "the end"))
            << run.output;
        EXPECT_NE(run.output.find("\nINFO-X: by the way\nWARN: careful\n"), std::string::npos);
        EXPECT_EQ(run.output.find("\"count\""), std::string::npos);
    }
}
