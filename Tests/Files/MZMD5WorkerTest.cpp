#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZMD5Worker.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <Tests/Support/WaitUntil.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using velto::Error;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::IsNoError;
using velto::testing::TemporaryDirectory;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

TEST(MZMD5Worker, DigestsItsFile) {
    const TemporaryDirectory folder;
    const auto worker = velto::make<MZMD5Worker>(folder.write("a", "video"));
    EXPECT_EQ(worker->md5(), std::nullopt);
    EXPECT_EQ(worker->percentComplete(), 0);
    worker->run();
    EXPECT_EQ(worker->md5(), "421b47ffd946ca083b65cd668c6b17e6");
    EXPECT_EQ(worker->percentComplete(), 100);
    EXPECT_EQ(worker->size(), 5U);
    EXPECT_EQ(worker->completed(), 5U);
    EXPECT_EQ(worker->workStatus(), MZWorkStatusFinished);
    const auto empty = velto::make<MZMD5Worker>(folder.write("empty", ""));
    empty->run();
    EXPECT_EQ(empty->md5(), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(MZMD5Worker, HasNoDigestOfWhatItCannotRead) {
    const TemporaryDirectory folder;
    ASSERT_EQ(mkfifo(folder.at("pipe").c_str(), 0600), 0);
    const struct {
        std::string file;
        std::int64_t code;
    } rows[] = {{folder.at("none"), -18001},
                {folder.path(), -18007},
                {folder.at("pipe"), -18004},
                {"/dev/zero", -18004}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const auto worker = velto::make<MZMD5Worker>(row.file);
        worker->run();
        ASSERT_EQ(worker->errors().size(), 1U);
        EXPECT_THAT(worker->errors().front(), IsError(MZMD5OperationErrorDomain, row.code));
        EXPECT_EQ(worker->md5(), std::nullopt);
        EXPECT_EQ(worker->percentComplete(), 100);
    }
}

/// A cancel counts also when it comes between the start and the first block. Half of a large sparse
/// file takes longer than any test waits.
TEST(MZMD5Worker, HasNoDigestOfHalfAFile) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("a", "");
    ASSERT_EQ(truncate(file.c_str(), off_t{1} << 40), 0);
    for (const bool atOnce : {true, false}) {
        SCOPED_TRACE(atOnce);
        const auto worker = velto::make<MZMD5Worker>(file);
        std::atomic<unsigned> told = 0;
        const velto::Observation observation =
            worker->observe("percentComplete", [&](const velto::PropertyChange&) { ++told; });
        std::thread runner([&] { worker->run(); });
        if (!atOnce) {
            EXPECT_TRUE(velto::testing::waitUntil([&] { return told >= 2; }));
            EXPECT_LT(worker->percentComplete(), 100);
        }
        worker->cancel();
        runner.join();
        EXPECT_EQ(worker->md5(), std::nullopt);
        EXPECT_FALSE(worker->hasErrors());
        EXPECT_EQ(worker->workStatus(), MZWorkStatusCancelled);
    }
    // The operation forgets a cancel that comes before it begins.
    const auto worker = velto::make<MZMD5Worker>(file);
    const velto::Observation observation =
        worker->observe("statusMessage", [&](const velto::PropertyChange&) { worker->cancel(); });
    worker->run();
    EXPECT_EQ(worker->md5(), std::nullopt);
    EXPECT_EQ(worker->completed(), 8192U);
}

TEST(MZFileCopyMD5Operation, DigestsWhatItCopies) {
    const TemporaryDirectory folder;
    const std::string sparse = folder.write("sparse", "begin");
    ASSERT_EQ(truncate(sparse.c_str(), 3 * mebibyte), 0);
    for (const std::string& file :
         {sparse, folder.write("empty", ""), folder.write("a", std::string(9 * mebibyte, 'a'))}) {
        SCOPED_TRACE(file);
        const auto operation = MZFileCopyMD5Operation::initWithFile(file);
        EXPECT_EQ(operation->md5(), std::nullopt);
        ASSERT_THAT(operation->copyToPath(file + ".copy"), IsNoError());
        EXPECT_EQ(operation->md5(), MZMD5Operation::md5ForFilename(file));
        EXPECT_EQ(operation->copied(), operation->size());
        EXPECT_TRUE(contentsOfFile(file) == contentsOfFile(file + ".copy"));
        EXPECT_THAT(operation->copyToPath(file + ".copy"), IsError(MZFileCopyErrorDomain, -19000));
        EXPECT_EQ(operation->md5(), std::nullopt);
    }
}

TEST(MZFileCopyMD5Operation, StopsWithinABlock) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("a", "");
    ASSERT_EQ(truncate(file.c_str(), off_t{1} << 40), 0);
    const auto operation = MZFileCopyMD5Operation::initWithFile(file);
    operation->setCopyFileProgressCallbackBlockPtr(
        [](std::uint64_t, std::uint64_t, bool& stop) { stop = true; });
    const Error error = operation->copyToPath(folder.at("copy"));
    EXPECT_EQ(error.localizedDescription(), "The user canceled the file copy.");
    EXPECT_EQ(error.underlyingError().code(), ECANCELED);
    EXPECT_EQ(operation->md5(), std::nullopt);
}

}  // namespace
