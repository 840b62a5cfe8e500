#include <VeltoConnectFoundation/Platform/Exception.h>

#include <Tests/Support/PrintValue.h>

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using namespace velto;

TEST(Error, HasATextOfItsOwnWhenNoneIsStated) {
    EXPECT_EQ(Error::posix(ENOENT, "some/file").localizedDescription(),
              "some/file: No such file or directory");
    EXPECT_EQ(Error::make("D", 1, "what", "why").description(),
              "Error Domain=D Code=1 “what” UserInfo={NSLocalizedDescription=what, "
              "NSLocalizedFailureReason=why}");
    EXPECT_EQ(Error("Domain", 12).localizedDescription(),
              "The operation couldn’t be completed. (Domain error 12.)");
    EXPECT_EQ(Error("Domain", 12).localizedFailureReason(), std::nullopt);
    EXPECT_EQ(Error().localizedDescription(), "");
    EXPECT_TRUE(Error().userInfo().isEmpty());
}

TEST(Error, GoesThroughValues) {
    const Error error = Error::make("D", 1, "what", "why");
    const Value value = error;
    EXPECT_EQ(value.className(), "Error");
    EXPECT_EQ(Error::fromValue(value), error);
    EXPECT_EQ(value, Value(Error::make("D", 1, "what", "why")));
    EXPECT_NE(value, Value(Error::make("D", 1, "what", "else")));
    EXPECT_TRUE(Value(Error()).isNone());
    EXPECT_FALSE(Error::fromValue("text"));
    EXPECT_FALSE(Error::fromValue(Exception("name", "reason")));
}

TEST(Exception, AFailedAssertionNamesItsPlace) {
    EXPECT_NO_THROW(assertParameter(true, "x", "f", "F.m"));
    try {
        assertParameter(false, "index < count", "void f(int)", "F.m");
        FAIL() << "nothing was raised";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), InternalInconsistencyException);
        EXPECT_STREQ(exception.what(), "Invalid parameter not satisfying: index < count");
        EXPECT_EQ(exception.userInfo()[AssertionFunctionKey], "void f(int)");
        EXPECT_EQ(exception.userInfo()[AssertionFileKey], "F.m");
    }
    EXPECT_EQ(Exception("name", "").description(), "name");
    EXPECT_EQ(Value(Exception("name", "reason")).description(), "reason");
}

}  // namespace
