#include <VeltoConnectFoundation/Platform/Regex.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using velto::Regex;
using velto::RegexMatch;

std::shared_ptr<const Regex> regex(std::string_view pattern) {
    return Regex::regexWithPattern(pattern);
}

TEST(Regex, MatchesTheWholeTextOrFromItsStartOrAnywhere) {
    const auto code = regex(R"((.*)\(([-]?[\d]+)\)([\s]*))");
    EXPECT_EQ(code->matchWhole("Not found (-42) \n"),
              (RegexMatch{"Not found (-42) \n", "Not found ", "-42", " \n"}));
    EXPECT_EQ(code->matchWhole("(7) and more"), std::nullopt);
    EXPECT_EQ(code->matchAtStart("(7) and more"), (RegexMatch{"(7) ", "", "7", " "}));

    const auto version = regex(R"(^.*?Drovan, version\s+(.*?)$)");
    const RegexMatch expected{"VelmDrovan, version 2.4.0", "2.4.0"};
    EXPECT_EQ(version->firstMatch("VelmDrovan, version 2.4.0"), expected);
    EXPECT_EQ(version->firstMatch("VelmDrovan, version 2.4.0\n"), expected);
    EXPECT_EQ(version->firstMatch("version 2"), std::nullopt);
    EXPECT_EQ(regex("b")->matchAtStart("ab"), std::nullopt);
}

TEST(Regex, FindsAllMatchesWithTheirGroups) {
    EXPECT_EQ(regex(R"((\w)=(\d)?)")->allMatches("é=1, 😀b=;"),
              (std::vector<RegexMatch>{{"é=1", "é", "1"}, {"b=", "b", std::nullopt}}));
    EXPECT_EQ(regex("a*")->allMatches("baa").size(), 3U);
    EXPECT_TRUE(regex("x")->allMatches("").empty());
    const auto letters = Regex::regexWithPattern("ÄB", velto::RegexCase::insensitive);
    EXPECT_TRUE(letters->matchWhole("äb"));
    EXPECT_FALSE(regex("ÄB")->matchWhole("äb"));
}

TEST(Regex, APatternThatDoesNotCompileIsAnError) {
    velto::Error error;
    EXPECT_EQ(Regex::regexWithPattern("(open", velto::RegexCase::sensitive, &error), nullptr);
    EXPECT_TRUE(error);
    EXPECT_NE(error.localizedFailureReason().value_or("").find("(open"), std::string::npos);
}

TEST(Regex, ARunawayMatchEndsWithoutAnAnswer) {
    EXPECT_FALSE(regex("(a+)+b")->firstMatch(std::string(40, 'a')));
    std::string manyLetters;
    manyLetters.resize(9'000'000, 'a');
    EXPECT_FALSE(regex(R"((?:.|\s)*x)")->matchWhole(manyLetters));
}

}  // namespace
