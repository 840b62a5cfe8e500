#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// What each drawing of the live line showed, without its codes.
Strings drawnLines(const std::string& screen) {
    constexpr std::string_view start = "\r\x1b[?7l";
    constexpr std::string_view end = "\x1b[K\x1b[?7h";
    Strings lines;
    for (std::size_t at = screen.find(start); at != std::string::npos;
         at = screen.find(start, at + 1)) {
        std::string text =
            screen.substr(at + start.size(), screen.find(end, at) - at - start.size());
        while (text.find('\x1b') != std::string::npos) {
            const std::size_t code = text.find('\x1b');
            text.erase(code, text.find('m', code) - code + 1);
        }
        lines.push_back(text);
    }
    return lines;
}

class TerminalTest : public VeltoTest {
protected:
    TerminalTest() { useScenario("slow=8000000\n"); }
};

TEST_F(TerminalTest, AnUploadIsOneLiveLineThatGoesAway) {
    const auto start = Clock::now();
    TerminalChild child = veltoOnTerminal(job("upload", makeLargePackage(16)));
    child.finish();
    const double seconds = secondsSince(start);
    ASSERT_EQ(child.exitCode, 0) << child.screen;
    const Strings lines = drawnLines(child.screen);
    EXPECT_GE(lines.size(), 5U);
    EXPECT_LE(static_cast<double>(lines.size()), 10 * seconds + 1);
    const std::string all = ::testing::PrintToString(lines);
    EXPECT_THAT(
        lines,
        ::testing::Contains(::testing::ContainsRegex(
            "Uploading package to the Velto Store….*━.*%.* of 16 MB .*MB/s .*0:0[0-9] left")))
        << all;
    // Once the line has been taken away, only the summary follows.
    const std::size_t cleared = child.screen.rfind("\r\x1b[K");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_EQ(linesOf(child.screen.substr(cleared)).size(), 1U) << child.screen;
    EXPECT_THAT(child.screen.substr(cleared), HasSubstr("Uploaded package to the Velto Store."));
    EXPECT_EQ(std::ranges::count(child.screen, '\n'), 1);
}

TEST_F(TerminalTest, ColoursCanBeForbidden) {
    const std::string package = makePackage();
    const struct {
        const char* name;
        Strings options;
        const char* variable;
        bool hasColours;
    } rows[] = {
        {"colours", {}, "", true},
        {"--no-color", {"--no-color"}, "", false},
        {"NO_COLOR", {}, "1", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        environment["NO_COLOR"] = row.variable;
        TerminalChild child = veltoOnTerminal(job("verify", package, row.options));
        child.finish();
        EXPECT_EQ(child.exitCode, 0);
        EXPECT_EQ(child.screen.find("\x1b[1m") != std::string::npos, row.hasColours)
            << child.screen;
    }
}

TEST_F(TerminalTest, ADumbTerminalGetsPlainLines) {
    environment["TERM"] = "dumb";
    TerminalChild child = veltoOnTerminal(job("verify", makePackage()));
    child.finish();
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_THAT(child.screen, Not(HasSubstr("\x1b")));
    EXPECT_THAT(child.screen, HasSubstr("Verified package with the Velto Store."));
}

}  // namespace
}  // namespace cli_test
