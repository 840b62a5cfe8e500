#include <Tests/Support/SmallDisk.h>

#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace velto::testing {

namespace {

constexpr const char* variable = "VELTO_TEST_SMALL_DISK";
constexpr int notPermitted = 77;

/// SIZE FOLDER PROGRAM ARGUMENT...
constexpr const char* script = R"(
    unshare --map-root-user --mount true 2>/dev/null || exit 77
    exec unshare --map-root-user --mount sh -c '
        mount -t tmpfs -o "size=$1" tmpfs "$2" || exit 77
        shift 2
        exec "$@"' sh "$@"
)";

void skip() {
    GTEST_SKIP() << "this system lets nobody mount a file system of his own";
}

}  // namespace

bool ranOnSmallDisk(unsigned mebibytes) {
    if (std::getenv(variable) != nullptr) {
        return false;
    }
    const TemporaryDirectory folder;
    const auto code = runTestAgain(
        {"/bin/sh", "-c", script, "sh", std::to_string(mebibytes) + "m", folder.path()},
        std::string(variable) + "=" + folder.path().string());
    if (code == notPermitted) {
        skip();
    } else {
        EXPECT_EQ(code, 0) << "on the small disk, see above";
    }
    return true;
}

std::filesystem::path smallDisk() {
    return std::getenv(variable);
}

}  // namespace velto::testing
