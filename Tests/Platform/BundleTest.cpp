#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/UUID.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <Tests/Support/Paths.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

namespace {

using velto::Bundle;
using velto::ProcessInfo;

TEST(Bundle, TheApplicationIsItsProcessUntilTheHostSpeaks) {
    const auto before = Bundle::application();
    EXPECT_EQ(before.name(), "PlatformTests");
    EXPECT_EQ(before.identifier(), "");
    EXPECT_EQ(before.version(), "");

    Bundle::setApplication("org.host.invalid", "Host", "2.1", {{"MZClientName", "Client"}});
    const auto host = Bundle::application();
    EXPECT_EQ(host.identifier(), "org.host.invalid");
    EXPECT_EQ(host.name(), "Host");
    EXPECT_EQ(host.version(), "2.1");
    EXPECT_EQ(host.infoValue("MZClientName").string(), "Client");
    EXPECT_EQ(before.name(), "PlatformTests");
    Bundle::setApplication({}, {}, {});
    EXPECT_EQ(Bundle::application().name(), "PlatformTests");
}

TEST(Bundle, TheLibraryIsTheFolderOfItsSharedObject) {
    EXPECT_EQ(Bundle::library().path(), velto::testing::buildFolder() / "lib");
    EXPECT_EQ(Bundle::library().version(), velto::libraryVersion());
    EXPECT_TRUE(Bundle::library().identifier().starts_with(Bundle::storeFamilyPrefix));
    EXPECT_EQ(Bundle::executableFolder(), velto::testing::buildFolder() / "tests");
}

TEST(ProcessInfo, TellsTheSystemInOneLineAndTheEnvironmentByName) {
    const std::string& system = ProcessInfo::operatingSystemDescription();
    EXPECT_NE(system.find("Linux"), std::string::npos);
    EXPECT_EQ(system.find('\n'), std::string::npos);
    ASSERT_EQ(setenv("VELTO_TEST_VARIABLE", "a=b", 1), 0);
    EXPECT_EQ(ProcessInfo::environment()["VELTO_TEST_VARIABLE"].string(), "a=b");
    unsetenv("VELTO_TEST_VARIABLE");
}

TEST(UUID, IsRandomAndOfVersionFour) {
    const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const std::string text = velto::UUID::random();
        EXPECT_TRUE(std::regex_match(text, form)) << text;
        EXPECT_TRUE(seen.insert(text).second);
    }
}

}  // namespace
