#include <VeltoConnectFoundation/Platform/Version.h>

#include <Tests/Support/Paths.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

TEST(Version, IsTheOneTheProjectDeclares) {
    std::ifstream file(velto::testing::sourceFolder() / "CMakeLists.txt");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(text.find("VERSION " + std::string(velto::libraryVersion()) + " "),
              std::string::npos);
}

}  // namespace
