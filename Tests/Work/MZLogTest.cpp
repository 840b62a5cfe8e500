#include <VeltoConnectFoundation/Work/MZLog.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/SecretRegistry.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/Work/VeltoConnectFoundationErrors.h>

#include <Tests/Support/CapturedLog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using velto::Array;
using velto::Dictionary;
using velto::Error;
using velto::Value;
using velto::testing::CapturedLog;
using Line = CapturedLog::Line;

/// Switches a level off for a scope.
class Silenced {
public:
    explicit Silenced(std::int32_t level) : level_(level) {
        MZLoggingSetLogLevelEnabled(level, false);
    }
    ~Silenced() { MZLoggingSetLogLevelEnabled(level_, true); }
    Silenced(const Silenced&) = delete;
    Silenced& operator=(const Silenced&) = delete;

private:
    std::int32_t level_;
};

TEST(MZLog, SwitchesGateTheirLevels) {
    CapturedLog log;
    {
        const Silenced info(MZLogLevelInfo);
        MZLogInfo("info %d", 1);
        MZLog("always %d", 2);
    }
    {
        const Silenced error(MZLogLevelError);
        MZLogStderr("stderr");
        MZLogError("error");
        MZLogCritical("critical");
    }
    MZLogStderr("stderr again");
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{1, "always 2"}, Line{5, "critical"}, Line{4, "stderr again"}));
}

TEST(MZLog, UnknownLevelsAreRefusedWithAWarning) {
    CapturedLog log;
    MZLoggingSetLogLevelEnabled(4, false);
    MZLoggingSetLogLevelEnabled(6, false);
    EXPECT_FALSE(MZLoggingIsLogLevelEnabled(-1));
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{2, "Unknown log level: 4"}, Line{2, "Unknown log level: 6"},
                            Line{2, "Unknown log level: -1"}));
}

TEST(MZLog, ANullFunctionOnlyAsks) {
    const MZLogFunction current = MZSetLogFunction(nullptr);
    EXPECT_NE(current, nullptr);
    EXPECT_EQ(MZSetLogFunction(&MZStdoutStderrLogFunction), current);
    EXPECT_EQ(MZSetLogFunction(current), &MZStdoutStderrLogFunction);
}

TEST(MZLog, KnownPasswordsAreHiddenInEveryLine) {
    velto::UserDefaults::shared().setArguments({{"VeltoPasswords", Array{"abc", ""}}});
    const velto::RegisteredSecret registered("canary&");
    CapturedLog log;
    MZLogInfo("%@", "abc/abcd");
    MZLogInfo("%@", "CANARY%26");
    // Hidden before it is cut, which would leave the half of it.
    MZLogInfo("%@", MZLoggableObjectForObject(std::string(77, 'x') + "canary&"));
    velto::UserDefaults::shared().setArguments({});
    EXPECT_THAT(log.messages(), ElementsAre("**hidden value**/**hidden value**d",
                                            "**hidden value**", std::string(77, 'x') + "**h…"));
}

TEST(MZLog, TheConsoleFunctionChoosesStreamAndPrefix) {
    const MZLogFunction previous = MZSetLogFunction(&MZStdoutStderrLogFunction);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    MZLogInfo("info");
    MZLogWarning("warning");
    MZLogError("error");
    MZLogStderr("plain");
    MZLogCritical("%@", "critical\x1b[31m\n*** Error: forged\r\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "info\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "*** Warning: warning\n*** Error: error\nplain\n*** Critical: critical\\x1b[31m\n"
              "\t*** Error: forged\n");
    MZSetLogFunction(previous);
}

class CountingLogger : public MZLogger {
public:
    void LogMessage(std::string_view, std::int32_t) override {
        ++lines;
        if (fails) {
            throw velto::Exception("Name", "reason");
        }
    }
    int lines = 0;
    bool fails = false;
};

TEST(MZLog, LoggersAreHeldWeaklyAndFailAlone) {
    const CapturedLog log;
    auto failing = std::make_shared<CountingLogger>();
    auto other = std::make_shared<CountingLogger>();
    failing->fails = true;
    MZAddLogger(failing);
    MZAddLogger(other);
    MZAddLogger(other);  // no duplicate check: told twice
    MZLogInfo("one");
    EXPECT_EQ(failing->lines, 1);
    EXPECT_EQ(other->lines, 2);
    const std::size_t before = MZGetLoggers().size();
    failing.reset();
    EXPECT_EQ(MZGetLoggers().size(), before - 1);
    MZRemoveLogger(other);
    MZLogInfo("two");
    EXPECT_EQ(other->lines, 2);
}

TEST(LoggableString, IsCutAndMasked) {
    const struct {
        std::string input;
        std::size_t limit;
        std::string expected;
    } rows[] = {
        {std::string(80, 'x'), 80, std::string(80, 'x')},
        {std::string(100, 'x'), 80, std::string(80, 'x') + "…"},
        {"ééé", 2, "éé…"},
        {R"({"sharedsecret":"xyz","a":1})", 500, R"({"sharedsecret":"**hidden value**","a":1})"},
        {R"({"SessionId":"s1","SessionId":"s2"})", 500,
         R"({"SessionId":"**hidden value**","SessionId":"s2"})"},
        {R"({"SharedSecret":"abcdef"})", 19, R"({"SharedSecret":"ab…)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.input);
        EXPECT_EQ(MZLoggableStringForStringWithMaxLength(row.input, row.limit), row.expected);
    }
}

TEST(LoggableObject, CutsContainersAndHidesSecrets) {
    Dictionary many;
    for (int i = 0; i < 25; ++i) {
        many.set("key" + std::to_string(i), i);
    }
    const Dictionary cut = MZLoggableObjectForObject(many).dictionary();
    EXPECT_EQ(cut.size(), 21U);
    EXPECT_EQ(cut["…"].string(), "… truncated …");
    EXPECT_EQ(cut["key19"].string(), "19");

    const Value secrets = MZLoggableObjectForObject(Dictionary{
        {"Password", "p"}, {"password", "shown"}, {"in", Dictionary{{"SessionId", Array{"s"}}}}});
    EXPECT_EQ(secrets["Password"].string(), "**hidden value**");
    EXPECT_EQ(secrets["password"].string(), "shown");
    EXPECT_EQ(secrets["in"]["SessionId"].string(), "**hidden value**");

    Array ten;
    for (int i = 0; i < 10; ++i) {
        ten.append(i);
    }
    EXPECT_EQ(MZLoggableObjectForObject(ten).array().size(), 10U);
    ten.append(10);
    EXPECT_EQ(MZLoggableObjectForObject(ten).array().size(), 11U);
    EXPECT_EQ(MZLoggableObjectForObject(ten)[10].string(), "…");
}

TEST(LoggableObject, TakesAnyDepth) {
    Value deep = Array{};
    for (int i = 0; i < 200'000; ++i) {
        deep = Array{std::move(deep)};
    }
    const Value copy = MZLoggableObjectForObject(deep);
    EXPECT_TRUE(copy[0][0].isArray());
}

TEST(FoundationErrors, CarryUserInformationWholeOrNotAtAll) {
    const Error underlying("Other", 7);
    const Error whole =
        VeltoConnectFoundationGenerateFullErrorWithUnderlying("d", "r", 5, underlying);
    EXPECT_EQ(whole.localizedDescription(), "d");
    EXPECT_EQ(whole.localizedFailureReason(), "r");
    EXPECT_EQ(whole.underlyingError(), underlying);
    const Error bare =
        VeltoConnectFoundationGenerateFullErrorWithUnderlying("", "r", 5, underlying);
    EXPECT_EQ(bare.code(), 5);
    EXPECT_EQ(bare.domain(), "VeltoConnectFoundationErrorDomain");
    EXPECT_TRUE(bare.userInfo().isEmpty());
    const Error http = VeltoConnectFoundationGenerateErrorWithHttpSatusCode("d", 1, 404);
    EXPECT_EQ(http.localizedFailureReason(), "Unable to validate your application.");
    EXPECT_EQ(http.underlyingError().code(), 404);
    EXPECT_TRUE(http.underlyingError().userInfo().isEmpty());
    EXPECT_EQ(VeltoConnectFoundationErrorFromException(velto::Exception("N", "why"), 3)
                  .localizedDescription(),
              "An unexpected error occurred: why");
}

}  // namespace
