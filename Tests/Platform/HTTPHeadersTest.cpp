#include <VeltoConnectFoundation/Platform/HTTPHeaders.h>
#include <VeltoConnectFoundation/Platform/Secret.h>

#include <gmock/gmock.h>

namespace {

using velto::HTTPHeaders;

TEST(HTTPHeaders, NamesCompareWithoutRegardToCase) {
    HTTPHeaders headers;
    headers.add("X-Many", "1");
    headers.add("Other", "o");
    headers.add("x-many", "2");
    EXPECT_EQ(*headers.value("X-MANY"), "1");
    EXPECT_THAT(headers.values("x-Many"), ::testing::ElementsAre("1", "2"));
    EXPECT_EQ(headers.dictionary(), (velto::Dictionary{{"X-Many", "1, 2"}, {"Other", "o"}}));

    headers.set("X-mAny", "3");
    EXPECT_THAT(headers.values("X-Many"), ::testing::ElementsAre("3"));
    EXPECT_EQ(headers.begin()->name, "X-Many");
    headers.set("New", "");
    EXPECT_EQ(headers.size(), 3U);
    EXPECT_EQ(*headers.value("new"), "");
    headers.remove("NEW");
    EXPECT_EQ(headers.value("New"), nullptr);
}

TEST(Secret, WipingLeavesNothingInItsMemory) {
    std::string secret(100, 'x');
    secret.resize(40);  // The rest stands behind the text's end.
    const char* const memory = secret.data();
    const std::size_t room = secret.capacity();
    velto::wipe(secret);
    EXPECT_TRUE(secret.empty());
    EXPECT_EQ(secret.data(), memory);
    secret.resize(room);
    EXPECT_EQ(std::string_view(memory, room).find('x'), std::string_view::npos);
}

}  // namespace
