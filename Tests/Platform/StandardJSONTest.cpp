#include <VeltoConnectFoundation/Platform/StandardJSON.h>

#include <Tests/Support/IsError.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

using velto::Array;
using velto::Dictionary;
using velto::Error;
using velto::parseJSON;
using velto::Value;
using velto::testing::IsError;

TEST(StandardJSON, ReadsEveryKind) {
    const struct {
        const char* text;
        Value expected;
    } rows[] = {
        {R"({"messageType":"VerifyProgress","percent":12.5,"n":[1,-2,true,false]})",
         Dictionary{{"messageType", "VerifyProgress"},
                    {"percent", 12.5},
                    {"n", Array{1, -2, true, false}}}},
        {" [] ", Array{}},
        {"{}", Dictionary{}},
        {R"("é😀")", "é😀"},
        {R"("a\u0000b")", std::string_view("a\0b", 3)},
        {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"1e3", 1000.0},
        {R"({"a":1,"b":2,"a":3})", Dictionary{{"a", 3}, {"b", 2}}},
        {R"([[],[[{}]]])", Array{Array{}, Array{Array{Dictionary{}}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        Error error;
        const auto value = parseJSON(row.text, &error);
        ASSERT_TRUE(value.has_value()) << error.description();
        EXPECT_EQ(*value, row.expected);
        EXPECT_EQ(value->kind(), row.expected.kind());
    }
    EXPECT_TRUE(parseJSON("null")->isNull());
}

TEST(StandardJSON, RefusesTheRestAndSaysWhereButNotWhat) {
    for (const char* text : {"", " ", "canary", "[canary]", "{\"canary\"}", "[1,]", "[1] canary",
                             "\"\xff canary\"", "01", "1e999", "\"canary", "'canary'", "nan"}) {
        SCOPED_TRACE(text);
        Error error;
        EXPECT_FALSE(parseJSON(text, &error).has_value());
        EXPECT_THAT(error, IsError(velto::StandardJSONErrorDomain, 1));
        EXPECT_EQ(error.description().find("canary"), std::string::npos) << error.description();
    }
}

TEST(StandardJSON, LevelsAreBounded) {
    const auto nested = [](std::size_t levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    EXPECT_TRUE(parseJSON(nested(512)).has_value());
    EXPECT_FALSE(parseJSON(nested(513)).has_value());
    Error error;
    EXPECT_FALSE(parseJSON(nested(1000000), &error).has_value());
    EXPECT_EQ(error.localizedFailureReason(), "It has too many levels.");
}

}  // namespace
