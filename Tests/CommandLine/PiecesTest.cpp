#include <CommandLine/Console.h>
#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Failure.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/JSONLine.h>
#include <CommandLine/LiveDisplay.h>
#include <CommandLine/PlainDisplay.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanMessages.h>
#include <VeltoConnectFoundation/Platform/SecretRegistry.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>

namespace velto::cli {
namespace {

using ::testing::HasSubstr;

TEST(PiecesTest, PrintableTextIsOneLineThatCommandsNoTerminal) {
    const struct {
        std::string_view text, expected;
    } rows[] = {
        {"plain", "plain"},
        {"two\nlines\tand tab\r\n", "two lines and tab"},
        {"\x1b]0;title\x07", "\xEF\xBF\xBD]0;title\xEF\xBF\xBD"},
        {"c1 \xC2\x9B"
         "31m",
         "c1 \xEF\xBF\xBD"
         "31m"},
        {"cut \xE2\x82", "cut \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"überlong \xC0\xAF", "überlong \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"turned \xE2\x80\xAEround", "turned \xEF\xBF\xBDround"},
        {"日本語 🎬", "日本語 🎬"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(printable(row.text), row.expected);
}

TEST(PiecesTest, ColumnsAreCountedAndCut) {
    EXPECT_EQ(columnsOf("日本 e\xCC\x81🎬"), 8U);
    EXPECT_EQ(truncated("日本語です", 7), "日本語…");
    EXPECT_EQ(truncated("Uploading package…", 12), "Uploading p…");
    EXPECT_EQ(truncated("Uploading package…", 11), "Uploading…");
    EXPECT_EQ(truncated("short", 5), "short");
    EXPECT_EQ(truncated("short", 0), "");
    std::string marked = "e";
    for (int mark = 0; mark < 100'000; ++mark)
        marked += "\u0301";
    EXPECT_LT(truncated(marked, 10).size(), 400U);
    EXPECT_EQ(durationText(59.6), "1:00");
    EXPECT_EQ(durationText(3723), "1:02:03");
    EXPECT_EQ(durationText(1e300), "");
    EXPECT_EQ(wrapped("aa " + std::string(70, 'b') + " cccc dddd", 2, 10),
              "aa\n  " + std::string(70, 'b') + " cccc\n  dddd");
}

TEST(PiecesTest, PlainLinesComeAtLeastEachThirtySeconds) {
    ::testing::internal::CaptureStdout();
    {
        Console console;
        PlainDisplay display(console);
        Display::Time now{};
        Progress progress{.phase = "Authenticating"};
        display.phaseChanged(progress, now);
        for (int line = 0; line < 3; ++line) {
            const auto wait = display.nextProgress() - now;
            EXPECT_GT(wait, std::chrono::seconds(1));
            EXPECT_LT(wait, std::chrono::seconds(30));
            now = display.nextProgress();
            progress.elapsed += std::chrono::duration<double>(wait).count();
            if (line == 2) {
                progress.percent = 12.9;
            }
            display.progressed(progress, now);
        }
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Authenticating\nAuthenticating still running after 0:25\n"
              "Authenticating still running after 0:50\nAuthenticating 12%\n");
}

TEST(PiecesTest, AnyDepthIsWrittenAsJSON) {
    Value value = "x";
    for (int depth = 0; depth < 100'000; ++depth) {
        value = depth % 2 == 0 ? Value(Array{value}) : Value(Dictionary{{"k", value}});
    }
    std::string text;
    appendJSON(text, value);
    EXPECT_EQ(text.size(), 50'000 * 2 + 50'000 * 6 + 3U);
    const RegisteredSecret letter("t");
    EXPECT_EQ(JSONLine("t")
                  .addWord("t", "t")
                  .add("a", Array{1, -2.5, true, Null{}, "\x01\"\\\xFF"})
                  .add("b", {})
                  .add("c", Dictionary{{"t", "\u009B\u202E\u2028\U000E0041 t"}})
                  .addAll({{"output", Dictionary{{"tt", 1}}}})
                  .text("now", true),
              R"({"type":"t","schema":1,"time":"now","t":"t",)"
              R"("a":[1,-2.5,true,null,"\u0001\"\\)"
              "\xEF\xBF\xBD"
              R"("],"c":{"t":"\u009b\u202e\u2028\udb40\udc41 **hidden value**"},)"
              R"("output":{"**hidden value****hidden value**":1}})");
}

TEST(PiecesTest, TheLiveLineLeavesOutWhatHasNoRoom) {
    const Console console;
    const Progress progress{.phase = "Uploading package to the Velto Store…",
                            .percent = 42.9,
                            .completed = 45 << 20,
                            .size = 105 << 20,
                            .rate = 3 << 20,
                            .remaining = 20.4,
                            .elapsed = 12};
    for (std::size_t width = 1; width <= 160; ++width) {
        const std::string line = LiveDisplay::line(progress, width, console);
        EXPECT_LE(columnsOf(line), width);
        EXPECT_EQ(line.find("42%") != line.npos, width >= 6) << width;
    }
    const std::string wide = LiveDisplay::line(progress, 160, console);
    // Without a locale, "…" takes three columns.
    for (const char* part : {"Uploading package to the Velto Store...", " 42%", "45 MB of 105 MB",
                             "3 MB/s", "0:20 left"})
        EXPECT_THAT(wide, HasSubstr(part));
    const std::string narrow = LiveDisplay::line(progress, 60, console);
    EXPECT_THAT(narrow, HasSubstr("42%"));
    EXPECT_THAT(narrow, ::testing::Not(HasSubstr("MB of")));
    EXPECT_THAT(LiveDisplay::line({.phase = "Authenticating…", .elapsed = 3}, 80, console),
                HasSubstr("Authenticating...       0:03"));
}

TEST(PiecesTest, ArgumentsAreUnderstood) {
    const Command* command = nullptr;
    Failure failure;
    const auto parse = [&](std::vector<std::string> words) {
        return Invocation::parse(words, command, failure);
    };
    const auto upload = parse({"--json", "upload", "-u", "me", "tool", "--store=ovalis", "-q"});
    ASSERT_TRUE(upload);
    EXPECT_EQ(upload->command, &uploadCommand());
    EXPECT_EQ(upload->operands, std::vector<std::string>{"tool"});
    EXPECT_EQ(upload->value(userOption), "me");
    EXPECT_EQ(upload->value(storeOption), "ovalis");
    EXPECT_TRUE(upload->has(jsonOption) && upload->has(quietOption) && !upload->has(verboseOption));
    const auto set = parse({"config", "set", "KEY", "[a,b]", "--", "-x", "--json"});
    ASSERT_TRUE(set);
    EXPECT_EQ(set->operands, (std::vector<std::string>{"KEY", "[a,b]", "-x", "--json"}));
    const struct {
        std::vector<std::string> words;
        const char* said;
    } wrong[] = {
        {{"verify", "a", "b"}, "‘b’"},
        {{"verify"}, "PACKAGE"},
        {{"upload", "p", "--store", "x"}, "‘x’"},
        {{"completion", "tcsh"}, "‘tcsh’"},
        {{"tool", "lcate"}, "‘lcate’"},
        {{"verify", "p", "--transport", "DAV"}, "‘--transport’"},
        {{"upload", "p", "--user"}, "--user"},
        {{"tool", "locate", "--tool", ""}, "--tool needs a value: --tool PATH."},
    };
    for (const auto& row : wrong) {
        EXPECT_FALSE(parse(row.words)) << row.said;
        EXPECT_EQ(failure.exitCode, ExitCode::usage);
        EXPECT_THAT(failure.what, HasSubstr(row.said));
    }
}

TEST(PiecesTest, TheWorstErrorDecidesTheExitCode) {
    const Error busy = Error::posix(EAGAIN, "Busy");
    const Error odd = Error::make(VeltoDrovanErrorDomain, -4711, "ERROR: Odd", "");
    const Error expired = Error::make(VeltoDrovanErrorDomain, -20283, "Expired", "");
    const Error strange = Error::make("StrangeDomain", 1, "Strange", "");
    EXPECT_EQ(failureOfErrors("x", {busy}).exitCode, ExitCode::tryAgain);
    EXPECT_EQ(failureOfErrors("x", {busy, odd}).exitCode, ExitCode::failed);
    EXPECT_EQ(failureOfErrors("x", {odd, expired, busy}).exitCode, ExitCode::signIn);
    EXPECT_EQ(failureOfErrors("x", {strange}).exitCode, ExitCode::failed);
    EXPECT_EQ(failureOfErrors("x", {odd, busy, odd}).why,
              (std::vector<std::string>{"Odd", busy.localizedDescription()}));
    EXPECT_EQ(failureKinds().back().domain, "");
    for (const auto& [number, code] : {std::pair{EMFILE, ExitCode::tryAgain},
                                       {ETXTBSY, ExitCode::tryAgain},
                                       {ENOEXEC, ExitCode::toolNotFound},
                                       {EINVAL, ExitCode::failed}}) {
        const Error error(WorkerErrorDomain, -10001, {{UnderlyingErrorKey, Error::posix(number)}});
        const Failure failure = failureOfErrors("x", {error});
        EXPECT_EQ(failure.exitCode, code) << number;
        EXPECT_EQ(failure.next == failureKind(error).next, code != ExitCode::tryAgain) << number;
    }
    // What the system said says more than that a digest failed.
    Error undigested;
    EXPECT_FALSE(MZMD5Operation::md5ForFilename("/", &undigested));
    EXPECT_EQ(failureOfErrors("x", {undigested}).why,
              std::vector<std::string>{"/: Is a directory"});
}

TEST(PiecesTest, ManyErrorsTakeTimeByTheirNumber) {
    const auto seconds = [](int count) {
        std::vector<Error> errors;
        for (int index = 0; index < count; ++index) {
            errors.push_back(Error::make(VeltoDrovanErrorDomain, -1, std::to_string(index), ""));
        }
        const std::clock_t start = std::clock();
        EXPECT_EQ(failureOfErrors("x", errors).why.size(), errors.size());
        return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    };
    EXPECT_LT(seconds(40'000), 8 * seconds(10'000) + 0.05);
}

}  // namespace
}  // namespace velto::cli
