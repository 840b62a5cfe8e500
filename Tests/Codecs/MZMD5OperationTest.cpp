#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>

namespace {

using velto::Error;
using velto::StreamStatus;
using velto::testing::ChunkedInputStream;
using velto::testing::Chunks;
using velto::testing::IsError;
using velto::testing::TemporaryDirectory;

constexpr std::string_view nothing = "d41d8cd98f00b204e9800998ecf8427e";
constexpr std::string_view abc = "900150983cd24fb0d6963f7d28e17f72";

/// Endless; calls back at each read.
class SpyStream final : public velto::InputStream {
public:
    explicit SpyStream(std::function<void(std::size_t length)> reading)
        : reading_(std::move(reading)) {}

    void open() override {}
    void close() override {}
    StreamStatus streamStatus() const override { return status; }
    Error streamError() const override { return {}; }
    bool hasBytesAvailable() const override { return false; }
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        reading_(length);
        std::memset(buffer, 0, length);
        return static_cast<std::ptrdiff_t>(length);
    }

    StreamStatus status = StreamStatus::open;

private:
    std::function<void(std::size_t length)> reading_;
};

TEST(MZMD5Operation, TheSameBytesHaveTheSameDigestWhereverTheyAre) {
    const TemporaryDirectory folder;
    struct Row {
        std::string bytes;
        std::string_view md5;
    };
    const Row rows[] = {
        {"", nothing},
        {"abc", abc},
        {std::string(8192, 'x'), "94303bc70972121e4f1c88deb6521f1b"},
        {std::string(1000001, 'x'), "2743744dddf71d51751d7de9a286c43c"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes.size());
        const std::string path = folder.write("bytes", row.bytes);
        EXPECT_EQ(MZMD5Operation::md5ForData(velto::Data(std::string_view(row.bytes))), row.md5);
        EXPECT_EQ(MZMD5Operation::md5ForString(row.bytes, velto::TextEncoding::utf8), row.md5);
        EXPECT_EQ(MZMD5Operation::md5ForFilename(path), row.md5);
        for (const auto& stream :
             {velto::InputStream::withData(velto::Data(std::string_view(row.bytes))),
              velto::InputStream::withFile(path)}) {
            stream->open();
            EXPECT_EQ(MZMD5Operation::md5ForStream(stream.get()), row.md5);
            EXPECT_NE(stream->streamStatus(), StreamStatus::closed);
        }
        ChunkedInputStream chunked(row.bytes, {{1, 0, 9000, 0, 0}, Chunks::never, false});
        EXPECT_EQ(MZMD5Operation::md5ForStream(&chunked), row.md5);
        const auto operation = MZMD5Operation::operationWthFile(path);
        for (int time = 0; time < 2; ++time) {
            EXPECT_EQ(operation->computeMD5WithError(), row.md5);
            EXPECT_EQ(operation->bytesAnalyzed(), row.bytes.size());
        }
    }
}

TEST(MZMD5Operation, AStringIsDigestedInItsEncoding) {
    EXPECT_EQ(MZMD5Operation::md5ForString("é", velto::TextEncoding::isoLatin1),
              MZMD5Operation::md5ForData(velto::Data(std::string_view("\xe9"))));
    Error error;
    EXPECT_FALSE(MZMD5Operation::md5ForString("€", velto::TextEncoding::ascii, &error));
    EXPECT_THAT(error, IsError(velto::GeneralErrorDomain, EILSEQ));
}

TEST(MZMD5Operation, AStreamThatCannotBeReadIsAnError) {
    struct Row {
        StreamStatus status;
        std::int64_t code;
        const char* text;
    };
    for (const Row& row : {
             Row{StreamStatus::atEnd, -18003, "MD5 input stream has no data."},
             Row{StreamStatus::error, -18004, "MD5 input stream is in an error status."},
             Row{StreamStatus::closed, -18005,
                 "MD5 input stream must be open before attempting to read from it."},
             Row{StreamStatus::notOpen, -18006, "MD5 input stream is in an invalid status."},
             Row{StreamStatus::opening, -18006, "MD5 input stream is in an invalid status."},
             Row{StreamStatus::reading, -18006, "MD5 input stream is in an invalid status."},
             Row{StreamStatus::writing, -18006, "MD5 input stream is in an invalid status."},
         }) {
        SCOPED_TRACE(static_cast<int>(row.status));
        SpyStream stream([](std::size_t) { ADD_FAILURE() << "was read"; });
        stream.status = row.status;
        Error error;
        EXPECT_FALSE(MZMD5Operation::md5ForStream(&stream, &error));
        EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", row.code));
        EXPECT_EQ(error.localizedDescription(), row.text);
        EXPECT_EQ(error.localizedFailureReason(), row.text);
    }
    Error error;
    EXPECT_FALSE(MZMD5Operation::md5ForStream(nullptr, &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18002));
    EXPECT_EQ(error.localizedDescription(), "An MD5 input stream must be provided.");
}

TEST(MZMD5Operation, ABrokenStreamIsNoShorterOne) {
    ChunkedInputStream broken("abcdef", {{2}, 4});
    Error error;
    EXPECT_FALSE(MZMD5Operation::md5ForStream(&broken, &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18007));
    EXPECT_EQ(error.localizedDescription(), "Unable to read from the MD5 input stream.");
    EXPECT_THAT(error.underlyingError(), IsError("ChunkedStream", -1));

    StreamStatus* status = nullptr;
    SpyStream breaking([&](std::size_t) { *status = StreamStatus::error; });
    status = &breaking.status;
    EXPECT_FALSE(MZMD5Operation::md5ForStream(&breaking, &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18007));
}

TEST(MZMD5Operation, EmptyReadsInARowEndTheDigest) {
    std::vector<std::size_t> sizes(1000, 0);
    sizes.push_back(1);
    ChunkedInputStream slow("abc", {sizes});
    EXPECT_EQ(MZMD5Operation::md5ForStream(&slow), abc);
    EXPECT_EQ(slow.calls(), 3003U);

    ChunkedInputStream dry("abc", {{0}});
    Error error;
    EXPECT_FALSE(MZMD5Operation::md5ForStream(&dry, &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18008));
    EXPECT_EQ(error.localizedDescription(),
              "The MD5 input stream is unreadable and won’t allow additional reads.");
    EXPECT_EQ(dry.calls(), 1001U);
}

TEST(MZMD5Operation, AFileThatCannotBeReadSaysWhy) {
    const TemporaryDirectory folder;
    Error error;
    const std::string missing = folder.at("missing");
    EXPECT_FALSE(MZMD5Operation::md5ForFilename(missing, &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18001));
    EXPECT_EQ(error.localizedDescription(),
              "The source file must exist to compute the MD5: " + missing);
    EXPECT_FALSE(MZMD5Operation::operation()->computeMD5WithError(&error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18001));
    EXPECT_FALSE(MZMD5Operation::md5ForFilename(folder.path().string(), &error));
    EXPECT_THAT(error, IsError("MZMD5OperationErrorDomain", -18007));
    EXPECT_THAT(error.underlyingError(), IsError(velto::POSIXErrorDomain, EISDIR));
}

TEST(MZMD5Operation, ReadsInBlocksAndIsCancelledBetweenThem) {
    const auto operation = MZMD5Operation::operation();
    std::uint64_t reads = 0;
    SpyStream stream([&](std::size_t length) {
        EXPECT_EQ(length, 8192U);
        EXPECT_EQ(operation->bytesAnalyzed(), reads * 8192);
        if (++reads == 3) {
            operation->cancel();
        }
    });
    // Required: a cancelled digest is that of the part.
    EXPECT_EQ(operation->computeMD5WithStream(&stream),
              MZMD5Operation::md5ForData(velto::Data(std::string_view(std::string(24576, '\0')))));
    EXPECT_TRUE(operation->isCancelled());
    EXPECT_EQ(operation->bytesAnalyzed(), 24576U);

    ChunkedInputStream next("abc");
    EXPECT_EQ(operation->computeMD5WithStream(&next), abc);
    EXPECT_FALSE(operation->isCancelled());
    EXPECT_EQ(operation->bytesAnalyzed(), 3U);
}

}  // namespace
