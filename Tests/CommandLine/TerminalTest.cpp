#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// What stood in the terminal's row after each drawing of the live line.
Strings shownLines(const std::string& screen, std::size_t width) {
    constexpr std::string_view end = "\x1b[?7h";
    Strings lines;
    Strings cells(width, " ");
    std::size_t column = 0;
    for (std::size_t at = 0; at < screen.size(); ++at) {
        const char byte = screen[at];
        if (byte == '\r') {
            column = 0;
        } else if (byte == '\x1b') {
            const std::size_t last = screen.find_first_of("mKJhl", at);
            const std::string code = screen.substr(at, last + 1 - at);
            // At the right edge the cursor stands on the last column.
            if (code == "\x1b[K" || code == "\x1b[J")
                std::fill(cells.begin() + static_cast<int>(std::min(column, width - 1)),
                          cells.end(), " ");
            if (code == end)
                lines.push_back(std::accumulate(cells.begin(), cells.end(), std::string()));
            at = last;
        } else if ((byte & 0xC0) == 0x80) {
            cells[column - 1] += byte;
        } else if (byte != '\n') {
            column = std::min(column, width - 1);
            cells[column++] = byte;
        }
    }
    for (std::string& line : lines)
        line.erase(line.find_last_not_of(' ') + 1);
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
    const Strings lines = shownLines(child.screen, 100);
    EXPECT_GE(lines.size(), 5U);
    EXPECT_LE(static_cast<double>(lines.size()), 10 * seconds + 1);
    const std::string all = ::testing::PrintToString(lines);
    EXPECT_THAT(
        lines,
        ::testing::Contains(::testing::ContainsRegex(
            "Uploading package to the Velto Store….*━.*%.* of 16 MB .*MB/s .*0:0[0-9] left")))
        << all;
    // Once the line has been taken away, only the summary follows.
    const std::size_t cleared = child.screen.rfind("\r\x1b[J");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_EQ(linesOf(child.screen.substr(cleared)).size(), 1U) << child.screen;
    EXPECT_THAT(child.screen.substr(cleared), HasSubstr("Uploaded package to the Velto Store."));
    EXPECT_EQ(std::ranges::count(child.screen, '\n'), 1);
}

TEST_F(TerminalTest, TheLastColumnIsSeenAtEveryWidth) {
    const std::string package = makeLargePackage(4);
    const struct {
        unsigned short width;
        const char* locale;
    } rows[] = {{40, "C.UTF-8"}, {60, "C"}, {80, "C.UTF-8"}};
    for (const auto& [width, locale] : rows) {
        SCOPED_TRACE(width);
        environment["LC_ALL"] = locale;
        std::filesystem::remove_all(folder / "store");
        TerminalChild child = veltoOnTerminal(job("upload", package), width);
        child.finish();
        Strings lines = shownLines(child.screen, width);
        std::erase_if(lines, [](const std::string& line) { return line.find('%') == line.npos; });
        EXPECT_FALSE(lines.empty());
        for (const std::string& line : lines)
            EXPECT_THAT(line, ::testing::ContainsRegex("(%|B/s|left|[0-9]:[0-9][0-9])$"));
    }
}

TEST_F(TerminalTest, TheDigestOfALargeFileHasTheLineToo) {
    write(folder / "film.mov", "");
    std::filesystem::resize_file(folder / "film.mov", 500'000'000);
    TerminalChild child = veltoOnTerminal({"digest", folder / "film.mov"});
    child.finish();
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_THAT(shownLines(child.screen, 100),
                ::testing::Contains(::testing::ContainsRegex(
                    "film.mov  .*━.* [0-9]+%.* of 476.8 MB .*B/s .*0:0[0-9] left$")))
        << child.screen;
    const std::size_t cleared = child.screen.rfind("\r\x1b[J");
    ASSERT_NE(cleared, std::string::npos);
    EXPECT_THAT(child.screen.substr(cleared), ::testing::EndsWith("film.mov\r\n"));
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
