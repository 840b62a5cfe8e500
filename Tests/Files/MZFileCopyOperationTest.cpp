#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZFileCopyMD5Operation.h>
#include <VeltoConnectFoundation/Files/MZFileCopyOperation.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <Tests/Support/FileBlocks.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/ManualClock.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/SmallDisk.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <Tests/Support/WaitUntil.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <vector>

namespace {

using velto::Error;
using velto::Exception;
using velto::FileManager;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::IsNoError;
using velto::testing::TemporaryDirectory;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

TEST(MZFileCopyOperation, NeedsAFileThatIsThere) {
    const TemporaryDirectory folder;
    Error error;
    const std::string missing = folder.at("none");
    EXPECT_EQ(MZFileCopyOperation::initWithFile(missing, error), nullptr);
    EXPECT_THAT(error, IsError(MZFileCopyErrorDomain, -19000));
    EXPECT_EQ(error.localizedDescription(), "No such file at path: " + missing);
    EXPECT_EQ(error.localizedFailureReason(), "No such file at path: " + missing);
    try {
        (void)MZFileCopyOperation::initWithFile(missing);
        FAIL() << "nothing was raised";
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), "MZFileCopyOperationException");
        EXPECT_EQ(exception.reason(), "No such file at path: " + missing);
    }
    error = {};
    const auto operation = MZFileCopyOperation::initWithFile(folder.write("a", "12345"), error);
    ASSERT_NE(operation, nullptr);
    EXPECT_THAT(error, IsNoError());
    EXPECT_EQ(operation->size(), 5U);
    EXPECT_EQ(operation->fileSize(), velto::Value(5));
    EXPECT_EQ(operation->copied(), 0U);
}

/// The system's reason stays to be read beside the text.
TEST(MZFileCopyOperation, WordsItsFailures) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("file", "x");
    const auto operation = MZFileCopyOperation::initWithFile(file);
    const auto cancelled = MZFileCopyOperation::initWithFile(file);
    cancelled->cancel();
    const auto withoutSource = velto::make<MZFileCopyOperation>("", velto::Value(0));
    const std::shared_ptr<MZFileCopyOperation> all[] = {operation, cancelled, withoutSource};
    const struct {
        std::size_t operation;
        std::string destination;
        std::string text;
        int reason;
    } rows[] = {
        {0, "", "No destination file specified", 0},
        {0, file, "Failed to copy the file (err=17).", EEXIST},
        {0, folder.at("none/copy"), "Failed to copy the file (err=2).", ENOENT},
        {1, folder.at("copy"), "The user canceled the file copy.", 0},
        {2, folder.at("copy"), "No source file specified", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const Error error = all[row.operation]->copyToPath(row.destination);
        EXPECT_THAT(error, IsError(MZFileCopyErrorDomain, -19000));
        EXPECT_EQ(error.localizedDescription(), row.text);
        EXPECT_EQ(error.localizedFailureReason(), row.text);
        EXPECT_EQ(error.underlyingError().code(), row.reason);
        EXPECT_FALSE(FileManager::exists(folder.at("copy")));
    }
    EXPECT_THROW(operation->copyToFile(file), Exception);
    EXPECT_EQ(contentsOfFile(file), "x");
}

/// The clock moves on by itself by far less than the spacing between two steps of 8 MiB, so that
/// only what the test adds counts.
TEST(MZFileCopyOperation, TellsAtMostFourTimesASecondAndAllAtTheEnd) {
    const TemporaryDirectory folder;
    if (velto::testing::clonesFiles(folder.path())) {
        GTEST_SKIP() << "a clone has no steps";
    }
    const std::string file = folder.write("file", std::string(33 * mebibyte, 'x'));
    velto::testing::ManualClock clock;
    const auto operation = MZFileCopyOperation::initWithFile(file);
    std::vector<std::uint64_t> told;
    operation->setCopyFileProgressCallbackBlockPtr(
        [&](std::uint64_t written, std::uint64_t size, bool& stop) {
            EXPECT_EQ(size, 33 * mebibyte);
            EXPECT_FALSE(stop);
            EXPECT_EQ(operation->copied(), written);
            told.push_back(written);
            if (written == 8 * mebibyte) {
                clock.advance(velto::Seconds(60));
            }
        });
    ASSERT_THAT(operation->copyToPath(folder.at("copy")), IsNoError());
    ASSERT_GE(told.size(), 3U);
    EXPECT_EQ(told[0], 8 * mebibyte);
    EXPECT_EQ(told[1], 16 * mebibyte);
    EXPECT_EQ(told.back(), 33 * mebibyte);
    EXPECT_EQ(operation->copied(), 33 * mebibyte);
    for (const char* const name : {"", "just a byte"}) {
        const auto small = MZFileCopyOperation::initWithFile(folder.write("small", name));
        ASSERT_THAT(small->copyToPath(folder.at("copy of " + std::string(name))), IsNoError());
        EXPECT_EQ(small->copied(), small->size());
    }
}

TEST(MZFileCopyOperation, AStopFlagCancels) {
    const TemporaryDirectory folder;
    if (velto::testing::clonesFiles(folder.path())) {
        GTEST_SKIP() << "a clone has no steps";
    }
    const std::string file = folder.write("file", std::string(20 * mebibyte, 'x'));
    const auto operation = MZFileCopyOperation::initWithFile(file);
    operation->setCopyFileProgressCallbackBlockPtr(
        [](std::uint64_t, std::uint64_t, bool& stop) { stop = true; });
    const Error error = operation->copyToPath(folder.at("copy"));
    EXPECT_EQ(error.localizedDescription(), "The user canceled the file copy.");
    EXPECT_TRUE(operation->isCancelled());
    EXPECT_LT(FileManager::attributes(folder.at("copy"))->size, 20 * mebibyte);
}

/// All of it is told of at once. One that digests reads the bytes all the same, and can be stopped.
TEST(MZFileCopyOperation, ClonesWhereTheFileSystemCan) {
    if (velto::testing::ranOnCloningDisk()) {
        return;
    }
    const TemporaryDirectory folder;
    const std::string bytes(20 * mebibyte, 'x');
    const std::string file = folder.write("file", bytes);
    const auto plain = MZFileCopyOperation::initWithFile(file);
    const auto digesting = MZFileCopyMD5Operation::initWithFile(file);
    for (const std::shared_ptr<MZFileCopyOperation>& operation : {plain, {digesting}}) {
        const std::string copy = folder.at(operation == plain ? "plain" : "digested");
        std::vector<std::uint64_t> told;
        operation->setCopyFileProgressCallbackBlockPtr(
            [&](std::uint64_t written, std::uint64_t, bool&) { told.push_back(written); });
        ASSERT_THAT(operation->copyToPath(copy), IsNoError());
        EXPECT_EQ(operation->copied(), bytes.size());
        ASSERT_FALSE(told.empty());
        EXPECT_EQ(told.back(), bytes.size());
        EXPECT_TRUE(operation != plain || told.size() == 1);
        EXPECT_TRUE(velto::testing::shareBlocks(file, copy));
        operation->setCopyFileProgressCallbackBlockPtr({});
    }
    EXPECT_EQ(digesting->md5(), MZMD5Operation::md5ForFilename(file));
    digesting->setCopyFileProgressCallbackBlockPtr(
        [&](std::uint64_t, std::uint64_t, bool& stop) { stop = true; });
    EXPECT_EQ(digesting->copyToPath(folder.at("stopped")).localizedDescription(),
              "The user canceled the file copy.");
    EXPECT_EQ(digesting->md5(), std::nullopt);
    EXPECT_EQ(FileManager::attributes(folder.at("stopped"))->mode, 0600U);
    plain->cancel();
    EXPECT_TRUE(plain->copyToPath(folder.at("never")));
    EXPECT_FALSE(FileManager::exists(folder.at("never")));
}

/// What was copied stays; with the memory of a file system, as with a disk.
TEST(MZFileCopyOperation, SaysThatTheDiskIsFull) {
    if (velto::testing::ranOnSmallDisk(4)) {
        return;
    }
    const TemporaryDirectory folder;
    const std::string file = folder.write("file", std::string(10 * mebibyte, 'x'));
    const std::string copy = velto::testing::smallDisk() / "copy";
    for (const std::shared_ptr<MZFileCopyOperation>& operation :
         {MZFileCopyOperation::initWithFile(file),
          std::shared_ptr<MZFileCopyOperation>(MZFileCopyMD5Operation::initWithFile(file))}) {
        const Error error = operation->copyToPath(copy);
        EXPECT_EQ(error.localizedDescription(), "Failed to copy the file (err=28).");
        EXPECT_THAT(error.underlyingError(), IsError(velto::POSIXErrorDomain, ENOSPC));
        EXPECT_LT(operation->copied(), 10 * mebibyte);
        EXPECT_EQ(FileManager::attributes(copy)->mode, 0600U);
        ASSERT_TRUE(FileManager::remove(copy));
    }
}

/// At whatever moment the cancel comes: a copy that says that it is whole is whole, any other says
/// that it was cancelled.
TEST(MZFileCopyOperation, CancelsAtAnyMoment) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const TemporaryDirectory folder;
    constexpr std::uint64_t size = 24 * mebibyte;
    const std::string file = folder.write("file", std::string(size, 'x'));
    unsigned whole = 0;
    const std::optional<std::string> md5 = MZMD5Operation::md5ForFilename(file);
    for (unsigned round = 0; round < 100; ++round) {
        const auto digesting =
            round % 2 == 0 ? nullptr : MZFileCopyMD5Operation::initWithFile(file);
        const std::shared_ptr<MZFileCopyOperation> operation =
            digesting ? digesting : MZFileCopyOperation::initWithFile(file);
        const auto delay = std::chrono::microseconds(random() % 12000);
        std::thread canceller([&] {
            const auto end = std::chrono::steady_clock::now() + delay;
            while (std::chrono::steady_clock::now() < end) {
                std::this_thread::yield();
            }
            operation->cancel();
        });
        const Error error = operation->copyToPath(folder.at("copy"));
        canceller.join();
        if (error) {
            ASSERT_EQ(error.localizedDescription(), "The user canceled the file copy.");
            ASSERT_TRUE(!digesting || !digesting->md5());
        } else {
            ++whole;
            ASSERT_TRUE(!digesting || digesting->md5() == md5);
            ASSERT_EQ(operation->copied(), size);
            ASSERT_EQ(FileManager::attributes(folder.at("copy"))->size, size);
        }
        ASSERT_LE(operation->copied(), size);
        (void)FileManager::remove(folder.at("copy"));
    }
    std::cout << whole << " of 100 were copied before\n";
}

}  // namespace
