#include <VeltoConnectFoundation/Platform/PathTrust.h>

#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

namespace {

namespace fs = std::filesystem;
using velto::PathTrust;
using Verdict = velto::PathTrust::Verdict;

constexpr uid_t stranger = 65534;

/// Whether the change was allowed: only root gives things away.
void give(const fs::path& path, uid_t user, gid_t group) {
    ASSERT_EQ(::lchown(path.c_str(), user, group), 0) << path;
}

/// An access list that lets a stranger in; the mask would let anybody of it write.
void admit(const fs::path& path, std::uint16_t rights) {
    const struct {
        std::uint32_t version = POSIX_ACL_XATTR_VERSION;
        posix_acl_xattr_entry entries[5];
    } list{.entries = {{ACL_USER_OBJ, 7, 0},
                       {ACL_USER, rights, stranger},
                       {ACL_GROUP_OBJ, 5, 0},
                       {ACL_MASK, 7, 0},
                       {ACL_OTHER, 5, 0}}};
    ASSERT_EQ(::setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof(list), 0), 0);
}

TEST(PathTrust, IsForWhatNobodyElseCanReplace) {
    constexpr uid_t same = static_cast<uid_t>(-1);
    const struct {
        const char* name;
        std::function<void(const fs::path&)> change;
        Verdict verdict;
        const char* place;  ///< Of the verdict, in the folder.
        const char* asked = "outer/inner/tool";
        bool needsRoot = false;
    } rows[] = {
        {"as made", [](const fs::path&) {}, Verdict::trusted, ""},
        {"sticky", [](const fs::path& f) { ::chmod((f / "outer").c_str(), 01777); },
         Verdict::trusted, ""},
        {"written to by everybody", [](const fs::path& f) { ::chmod((f / "outer").c_str(), 0777); },
         Verdict::writable, "outer"},
        {"a program of everybody's",
         [](const fs::path& f) { ::chmod((f / "outer/inner/tool").c_str(), 0757); },
         Verdict::writable, "outer/inner/tool"},
        {"a stranger's", [](const fs::path& f) { give(f / "outer", stranger, same); },
         Verdict::foreign, "outer", "outer/inner/tool", true},
        {"a stranger's program in a sticky folder",
         [](const fs::path& f) {
             ::chmod((f / "outer/inner").c_str(), 01777);
             give(f / "outer/inner/tool", stranger, same);
         },
         Verdict::foreign, "outer/inner/tool", "outer/inner/tool", true},
        {"written to by a group", [](const fs::path& f) { ::chmod((f / "outer").c_str(), 0775); },
         Verdict::writable, "outer"},
        {"written to by a user of its access list",
         [](const fs::path& f) { admit(f / "outer", ACL_READ | ACL_WRITE); }, Verdict::writable,
         "outer"},
        {"read by a user of its access list",
         [](const fs::path& f) { admit(f / "outer", ACL_READ); }, Verdict::trusted, ""},
        {"by a link", [](const fs::path& f) { fs::create_symlink("outer/inner/tool", f / "link"); },
         Verdict::trusted, "", "link"},
        {"by a link through a folder of everybody's",
         [](const fs::path& f) {
             fs::create_symlink(f / "outer/../outer/inner", f / "link");
             ::chmod((f / "outer").c_str(), 0777);
         },
         Verdict::writable, "outer", "link/tool"},
        {"by a stranger's link",
         [](const fs::path& f) {
             fs::create_symlink("outer/inner/tool", f / "link");
             give(f / "link", stranger, same);
         },
         Verdict::foreign, "link", "link", true},
        {"a ring of links", [](const fs::path& f) { fs::create_symlink("link", f / "link"); },
         Verdict::missing, "link", "link"},
        {"none", [](const fs::path&) {}, Verdict::missing, "outer/none", "outer/none/tool"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.needsRoot && ::geteuid() != 0) {
            continue;
        }
        const velto::testing::TemporaryDirectory folder;
        ::chmod(folder.write("outer/inner/tool", "#!").c_str(), 0755);
        ::chmod(folder.at("outer").c_str(), 0755);
        ::chmod(folder.at("outer/inner").c_str(), 0755);
        row.change(folder.path());
        const PathTrust trust = PathTrust::of(folder.at(row.asked));
        EXPECT_EQ(trust.verdict(), row.verdict) << trust.place();
        EXPECT_EQ(trust.place(), *row.place == '\0' ? "" : folder.at(row.place));
        EXPECT_EQ(trust.reason().empty(), row.verdict == Verdict::trusted);
    }
    EXPECT_EQ(PathTrust::of("bin/sh").verdict(), Verdict::relative);
    EXPECT_EQ(PathTrust::of("").verdict(), Verdict::relative);
    EXPECT_TRUE(PathTrust::of("/usr/bin/env"));
}

}  // namespace
