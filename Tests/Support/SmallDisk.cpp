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

// Both: FOLDER SIZE PROGRAM ARGUMENT...

constexpr const char* smallScript = R"(
    unshare --map-root-user --mount true 2>/dev/null || exit 77
    exec unshare --map-root-user --mount sh -c '
        mount -t tmpfs -o "size=$2" tmpfs "$1" || exit 77
        shift 2
        exec "$@"' sh "$@"
)";

constexpr const char* cloningScript = R"(
    PATH="$PATH:/usr/sbin:/sbin"
    unshare --mount true 2>/dev/null || exit 77
    truncate -s "$2" "$1.image" || exit 77
    mkfs.xfs -q -m reflink=1 "$1.image" 2>/dev/null || mkfs.btrfs -q "$1.image" 2>/dev/null ||
        exit 77
    exec unshare --mount sh -c '
        mount -o loop "$1.image" "$1" 2>/dev/null || exit 77
        export TMPDIR="$1"
        shift 2
        exec "$@"' sh "$@"
)";

void skip() {
    GTEST_SKIP() << "this system lets nobody mount a file system of his own";
}

/// False in the process that `script` starts.
bool ranOnDisk(const char* script, const std::string& size) {
    if (std::getenv(variable) != nullptr) {
        return false;
    }
    const TemporaryDirectory folder;
    const std::string disk = folder.at("disk");
    std::filesystem::create_directory(disk);
    const auto code =
        runTestAgain({"/bin/sh", "-c", script, "sh", disk, size}, variable + ("=" + disk));
    if (code == notPermitted) {
        skip();
    } else {
        EXPECT_EQ(code, 0) << "on the disk of its own, see above";
    }
    return true;
}

}  // namespace

bool ranOnSmallDisk(unsigned mebibytes) {
    return ranOnDisk(smallScript, std::to_string(mebibytes) + "m");
}

bool ranOnCloningDisk() {
    return ranOnDisk(cloningScript, "1G");
}

std::filesystem::path smallDisk() {
    return std::getenv(variable);
}

}  // namespace velto::testing
