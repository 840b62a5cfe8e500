#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanMessages.h>

#include <Tests/Support/CapturedLog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using Messages = VeltoDrovanMessages;
using Text = std::optional<std::string>;

std::vector<std::string> descriptions(const std::vector<velto::Error>& errors) {
    std::vector<std::string> all;
    for (const velto::Error& error : errors) {
        all.push_back(error.localizedDescription());
    }
    return all;
}

TEST(ConvertMessageToError, TakesTheNumberInTheFirstParentheses) {
    const struct {
        const char* message;
        std::int64_t code;
    } rows[] = {
        {"Bad password (-20101)", -20101},
        {"ERROR: Bad (code)", -18000},
        {"odd ) order ( 5", -18000},
        {"zero (0)", -18000},
        {"(5 items) of (7)", 5},
        {"open (12", -18000},
        {"", -18000},
        {"blank ( 42 )", 42},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const velto::Error error = ConvertMessageToError(row.message);
        EXPECT_EQ(error.code(), row.code);
        EXPECT_EQ(error.domain(), "VeltoDrovanErrorDomain");
        EXPECT_EQ(error.localizedDescription(), row.message);
        EXPECT_EQ(error.localizedFailureReason(), row.message);
        EXPECT_EQ(error.localizedRecoverySuggestion(), row.message);
    }
}

TEST(DrovanMessages, ReadsMarkedLines) {
    const struct {
        const char* line;
        Text error, onlyError, warning, info;
    } rows[] = {
        {"", {}, {}, {}, {}},
        {"x ERROR: bad \n", "ERROR: bad", "bad", {}, {}},
        {"x error: bad", "error: bad", "bad", {}, {}},
        {"  plain \r\n", "plain", {}, {}, {}},
        {"a WARN: careful\n", "a WARN: careful", {}, "careful", {}},
        {"info-x: note\n", "info-x: note", {}, {}, "note"},
        {"ERROR:", "ERROR:", "", {}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(Messages::extractErrorFromLine(row.line), row.error);
        EXPECT_EQ(Messages::extractErrorFromLineOnlyIfPresent(row.line), row.onlyError);
        EXPECT_EQ(Messages::extractWarningFromLineOnlyIfPresent(row.line), row.warning);
        EXPECT_EQ(Messages::extractInfoMessageFromLineOnlyIfPresent(row.line), row.info);
    }
}

TEST(DrovanMessages, ReadsTheBlockBelowErrorMessages) {
    EXPECT_EQ(Messages::extractMultipleErrorsFromString("ERROR: a\nERROR: b\n"), std::nullopt);
    EXPECT_EQ(Messages::extractMultipleErrorsFromString("error messages:\nx"), std::nullopt);
    EXPECT_THAT(
        *Messages::extractMultipleErrorsFromString(
            "ERROR: before\nOld Error Messages:\nold\nError Messages:\n\tone (-5)\n\nERROR: two\n"),
        ElementsAre("one (-5)", "ERROR: two"));
    EXPECT_TRUE(Messages::extractMultipleErrorsFromString("Error Messages:")->empty());
    EXPECT_EQ(Messages::parseErrorsFromString("Error Messages:\none (-5)").at(0).code(), -5);
    EXPECT_TRUE(Messages::parseErrorsFromString("nothing").empty());
}

TEST(DrovanMessages, CollectsAllMarkedLinesButTheKnownOptionWarnings) {
    const char* const output =
        "WARN: one\nERROR: e1\n"
        "WARN: The following option was specified but is not recognized: -TxHeaders\n"
        "WARN: The following option was specified but is not recognized: -DTxHeaders\n"
        "WARN: The following option was specified but is not recognized: -Other\nINFO-X: i\nerror: "
        "e2";
    EXPECT_THAT(
        descriptions(Messages::parseAllWarningsFromString(output)),
        ElementsAre("one", "The following option was specified but is not recognized: -Other"));
    EXPECT_THAT(descriptions(Messages::parseAllErrorsFromString(output)), ElementsAre("e1", "e2"));
    EXPECT_THAT(descriptions(Messages::parseAllInfoMessagesFromString(output)), ElementsAre("i"));
}

TEST(DrovanMessages, ReadsXMLAnswers) {
    velto::testing::CapturedLog log;
    EXPECT_EQ(Messages::parseErrorFromXMLString("no xml"), "Error parsing return XML:\n(null)");
    EXPECT_EQ(Messages::parseErrorFromXMLString("<a><b/></a>"), std::nullopt);
    EXPECT_EQ(Messages::parseErrorFromXMLString(
                  "<a><Error><Message>one</Message><Message>x</Message></Error><Error/>"
                  "<Error><Message/></Error><Error><Message>t<b>w</b>o</Message></Error></a>"),
              "one\ntwo");
    EXPECT_THAT(log.messages(), ElementsAre("Missing error message!", "Missing error message!"));
}

}  // namespace
