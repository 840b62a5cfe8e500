#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

using velto::Error;
using velto::FileAttributes;
using velto::FileManager;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::TemporaryDirectory;

TEST(FileManager, AtomicWriteReplacesAllOrNothing) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("a", "old");
    ASSERT_TRUE(FileManager::writeAtomically(file, "new and longer", 0600));
    EXPECT_EQ(contentsOfFile(file), "new and longer");
    EXPECT_EQ(FileManager::attributes(file)->mode, 0600U);

    Error error;
    EXPECT_FALSE(FileManager::writeAtomically(folder.at("missing/a"), "x", 0600, &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ENOENT));
    // A folder cannot be replaced: nothing is left beside it.
    ASSERT_TRUE(FileManager::createFolder(folder.at("b")));
    EXPECT_FALSE(FileManager::writeAtomically(folder.at("b"), "x", 0600, &error));
    EXPECT_EQ(FileManager::namesInFolder(std::string(folder.path()))->size(), 2U);
}

TEST(FileManager, AtomicWriteKeepsALink) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("real", "old");
    ASSERT_EQ(symlink(file.c_str(), folder.at("link").c_str()), 0);
    ASSERT_TRUE(FileManager::writeAtomically(folder.at("link"), "new"));
    EXPECT_EQ(contentsOfFile(file), "new");
    EXPECT_EQ(FileManager::linkAttributes(folder.at("link"))->kind,
              FileAttributes::Kind::symbolicLink);
}

TEST(FileManager, ReadsWholeFilesUpToALimit) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("a", "12345");
    const std::string pipe = folder.at("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const struct {
        std::string path;
        std::size_t limit;
        int code;
        std::string bytes;
    } rows[] = {
        {file, 5, 0, "12345"},
        {file, 6, 0, "12345"},
        {file, 4, EFBIG, ""},
        {folder.write("empty", ""), 0, 0, ""},
        {folder.at("missing"), 9, ENOENT, ""},
        {std::string(folder.path()), 9, EISDIR, ""},
        {pipe, 9, EINVAL, ""},
        {"/proc/sys/kernel/ostype", 100, 0, "Linux\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path + " " + std::to_string(row.limit));
        Error error;
        const auto data = FileManager::read(row.path, row.limit, &error);
        ASSERT_EQ(data.has_value(), row.code == 0) << error.description();
        if (data) {
            EXPECT_EQ(data->view(), row.bytes);
        } else {
            EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, row.code));
            EXPECT_NE(error.description().find(row.path), std::string::npos);
        }
    }
}

TEST(FileManager, CreatesFoldersAndRemovesTreesButNotWhatLinksLeadTo) {
    const TemporaryDirectory folder;
    const std::string deep = folder.at("a/b//c/");
    ASSERT_TRUE(FileManager::createFolder(deep, 0700));
    ASSERT_TRUE(FileManager::createFolder(deep));
    EXPECT_TRUE(FileManager::isFolder(deep));
    EXPECT_FALSE(FileManager::isExecutable(deep));

    const std::string file = folder.write("kept/file", "x");
    Error error;
    EXPECT_FALSE(FileManager::createFolder(file + "/d", 0700, &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ENOTDIR));
    ASSERT_EQ(symlink(folder.at("kept").c_str(), folder.at("a/link").c_str()), 0);
    ASSERT_TRUE(FileManager::remove(folder.at("a")));
    EXPECT_FALSE(FileManager::exists(folder.at("a")));
    EXPECT_TRUE(FileManager::exists(file));
    EXPECT_FALSE(FileManager::remove(folder.at("a"), &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ENOENT));
}

TEST(FileManager, ExpandsTildes) {
    const std::string home = FileManager::homeFolder();
    ASSERT_FALSE(home.empty());
    const struct {
        const char* path;
        std::string expected;
    } rows[] = {
        {"~", home},
        {"~/", home + "/"},
        {"~/a/~b", home + "/a/~b"},
        {"a/~/b", "a/~/b"},
        {"", ""},
        {"/x", "/x"},
        {"~daemon/x", "/usr/sbin/x"},
        {"~no-such-name/x", "~no-such-name/x"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FileManager::expandingTilde(row.path), row.expected) << row.path;
    }
}

}  // namespace
