#include <VeltoConnectFoundation/Platform/DisplayText.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(DisplayText, ALogLineIsOneRecordThatNothingInItForges) {
    const struct {
        std::string_view line, escaped;
    } rows[] = {
        {"plain\ttext, 日本語 👩‍🚀", "plain\ttext, 日本語 👩‍🚀"},
        {"end\r\n\n", "end"},
        {"one\r\ntwo\n\n2026-01-01T00:00:00.000Z error forged",
         "one\n\ttwo\n\t\n\t2026-01-01T00:00:00.000Z error forged"},
        {"over\rwritten", "over\\rwritten"},
        {"\x1b]0;title\x07\x7f", "\\x1b]0;title\\x07\\x7f"},
        {std::string_view("nul\0", 4), "nul\\x00"},
        {"c1 \xC2\x9B, bytes \xE4\x80", "c1 \\u009b, bytes \\xe4\\x80"},
        {"turned \u202Eround\u2069, ended\u2028here",
         "turned \\u202eround\\u2069, ended\\u2028here"},
        {"not\u200B seen\U000E0041", "not\\u200b seen\\U000e0041"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(escapedLogLine(row.line), row.escaped);
}

TEST(DisplayText, TheSystemsLogIsWrittenSo) {
    ::testing::internal::CaptureStderr();
    systemLog(1, "a \x1b[31m\nforged");
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(written.ends_with("a \\x1b[31m\n\tforged\n")) << written;
}

}  // namespace
}  // namespace velto
