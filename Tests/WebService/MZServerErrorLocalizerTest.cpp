#include <VeltoConnectFoundation/WebService/MZServerErrorLocalizer.h>

#include <Tests/Support/CapturedLog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using velto::testing::CapturedLog;

TEST(MZServerErrorLocalizer, WordsWhatItKnowsAndLetsTheRestThrough) {
    const std::string noUser =
        "Unable to find a user with username jdoe.  If you are an encoding house user, you must "
        "specify a provider short name. (1243)";
    struct Row {
        const char* name;
        std::int64_t code;
        std::optional<std::string> message;
        std::optional<std::string> expected;
        bool isLogged;
    };
    const std::vector<Row> rows{
        {"one group", 1243, noUser,
         "Unable to find a user with username jdoe. If you are an encoding house user, you must "
         "specify a provider short name.",
         false},
        {"one blank only", 1243, "Unable to find a user with username jdoe. If you are",
         "Unable to find a user with username jdoe. If you are", true},
        {"not from the start", 1243, "x " + noUser, "x " + noUser, true},
        {"a name with a placeholder", 1190,
         "No suitable application records were found. Verify your bundle identifier 'a.%@.b' is "
         "correct.",
         "No suitable application records were found. Verify your bundle identifier ‘a.%@.b’ is "
         "correct.",
         false},
        {"no group", 1080, "Neither an encoding house user nor an VeltoConnect user was found. X",
         "Neither an encoding house user nor an Velto Connect user was found.", false},
        {"text of another code", 1080, "Your Zarnet ID or password was entered incorrectly.",
         "Your Zarnet ID or password was entered incorrectly.", false},
        {"text does not matter", 3000, "whatever", "Cannot verify client.", false},
        {"none", 3000, std::nullopt, "Cannot verify client.", false},
        {"none for an expression", 1243, std::nullopt, std::nullopt, false},
        {"unknown code, known text", 5,
         "Neither an encoding house user nor an VeltoConnect user was found.",
         "Neither an encoding house user nor an Velto Connect user was found.", false},
        {"unknown", 5, "Something else", "Something else", true},
        {"unknown and empty", 5, "", "", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CapturedLog log;
        EXPECT_EQ(MZServerErrorLocalizer::localizedMessageForCode(row.code, row.message),
                  row.expected);
        if (row.isLogged) {
            EXPECT_THAT(log.messages(), ElementsAre("Non-localized server string received: '" +
                                                    row.message.value_or("") + "'."));
        } else {
            EXPECT_THAT(log.messages(), IsEmpty());
        }
    }
}

TEST(MZServerErrorLocalizer, MessagesWithAnAddressEndInAReservedName) {
    EXPECT_THAT(
        MZServerErrorLocalizer::localizedMessageForCode(-20209, "x").value_or(""),
        ::testing::MatchesRegex("This Zarnet ID has been locked for security reasons. Visit "
                                "Gravenly to reset your account \\(https://.*\\.invalid\\)\\."));
    EXPECT_THAT(MZServerErrorLocalizer::localizedMessageForCode(-22938, "x").value_or(""),
                ::testing::MatchesRegex("Sign in with .* create a new one, go to "
                                        "https://.*\\.invalid"));
}

TEST(MZServerErrorLocalizer, HandWrittenEntriesWinOverGeneratedOnes) {
    velto::Dictionary table = MZServerErrorLocalizer::generatedErrorDictionary();
    EXPECT_TRUE(table.isEmpty());
    table.set(3000, velto::Dictionary{{"m", "generated"}});
    table.set(17, velto::Dictionary{{"m", "kept"}});
    MZServerErrorLocalizer::addOtherErrorsToDictionary(table);
    EXPECT_EQ(table.valueForKey(3000)["m"].string(), "Cannot verify client.");
    EXPECT_EQ(table.valueForKey(17)["m"].string(), "kept");
    EXPECT_TRUE(table.valueForKey(1190)["r"].isObject());
}

}  // namespace
