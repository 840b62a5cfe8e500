#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/IsError.h>
#include <VeltoConnectFoundation/Codecs/MZMD5InputStream.h>
#include <VeltoConnectFoundation/Codecs/MZMD5OutputStream.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using velto::Error;
using velto::StreamStatus;
using velto::testing::ChunkedInputStream;
using velto::testing::ChunkedOutputStream;
using velto::testing::IsError;
using velto::testing::write;

constexpr std::string_view abc = "900150983cd24fb0d6963f7d28e17f72";

TEST(MZMD5InputStream, DigestsExactlyWhatIsRead) {
    std::array<std::uint8_t, 16> buffer{};
    const auto stream = MZMD5InputStream::streamWithInputStream(
        std::make_shared<ChunkedInputStream>("abc", velto::testing::Chunks{{1, 0, 2}}));
    stream->open();
    EXPECT_EQ(stream->streamStatus(), StreamStatus::open);
    while (stream->streamStatus() == StreamStatus::open) {
        EXPECT_GE(stream->read(buffer.data(), buffer.size()), 0);
    }
    EXPECT_EQ(stream->read(buffer.data(), buffer.size()), 0);
    EXPECT_EQ(stream->md5WithError(), abc);
    EXPECT_EQ(stream->md5WithError(), abc);

    // What is taken without reading is not digested.
    MZMD5InputStream data(velto::InputStream::withData(velto::Data(std::string_view("abc"))));
    data.open();
    const std::uint8_t* bytes = nullptr;
    std::size_t length = 0;
    EXPECT_TRUE(data.hasBytesAvailable());
    ASSERT_TRUE(data.getBuffer(bytes, length));
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(data.propertyForKey(velto::StreamFileCurrentOffsetKey).integerValue(), 0);
    EXPECT_EQ(data.read(buffer.data(), 0), 0);
    data.close();
    EXPECT_EQ(data.streamStatus(), StreamStatus::closed);
    EXPECT_EQ(data.md5WithError(), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(MZMD5OutputStream, DigestsExactlyWhatIsTaken) {
    const auto output = std::make_shared<ChunkedOutputStream>(velto::testing::Chunks{{2, 0, 1, 5}});
    const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
    const auto stream = MZMD5OutputStream::streamWithOutputStream(output);
    stream->setDelegate(recorder);
    EXPECT_EQ(output->delegate().lock(), recorder);
    stream->open();
    EXPECT_TRUE(stream->hasSpaceAvailable());
    EXPECT_TRUE(stream->setProperty(1, "settable"));
    EXPECT_EQ(write(*stream, "abXXX"), 2);
    EXPECT_EQ(write(*stream, "end"), 0);
    EXPECT_EQ(write(*stream, "cXX"), 1);
    stream->close();
    EXPECT_EQ(stream->md5WithError(), abc);
    EXPECT_EQ(output->written(), "abc");
    EXPECT_EQ(stream->propertyForKey(velto::StreamDataWrittenToMemoryKey).data().view(), "abc");
    EXPECT_TRUE(recorder->events.empty());
}

TEST(MZMD5OutputStream, AnErrorOfTheDigestIsTheStreams) {
    struct Row {
        const char* name;
        void (*misuse)(MZMD5OutputStream& stream);
        std::int64_t code;
    };
    const Row rows[] = {
        {"opened twice", [](MZMD5OutputStream& stream) { stream.open(); }, -19002},
        {"written to after its digest was asked",
         [](MZMD5OutputStream& stream) {
             EXPECT_EQ(stream.md5WithError(), abc);
             EXPECT_EQ(write(stream, "more"), -1);
         },
         -19003},
        // Required: closing closes the digest, which was closed when it was asked.
        {"closed after its digest was asked",
         [](MZMD5OutputStream& stream) {
             EXPECT_EQ(stream.md5WithError(), abc);
             stream.close();
         },
         -19004},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
        MZMD5OutputStream stream(std::make_shared<ChunkedOutputStream>());
        stream.setDelegate(recorder);
        stream.open();
        EXPECT_EQ(write(stream, "abc"), 3);
        row.misuse(stream);
        EXPECT_EQ(stream.streamStatus(), StreamStatus::error);
        EXPECT_THAT(stream.streamError(), IsError("MZMD5ContextErrorDomain", row.code));
        EXPECT_EQ(recorder->events, std::vector{velto::StreamEvent::errorOccurred});
        EXPECT_EQ(recorder->senders.front(), &stream);
        Error error;
        EXPECT_FALSE(stream.md5WithError(&error));
        EXPECT_EQ(error, stream.streamError());
    }
}

TEST(MZMD5InputStream, AnErrorOfTheWrappedStreamIsItsOwn) {
    std::array<std::uint8_t, 16> buffer{};
    const auto missing = velto::InputStream::withFile("/nonexistent/file");
    MZMD5InputStream unopened(missing);
    unopened.open();
    unopened.close();
    Error error;
    EXPECT_FALSE(unopened.md5WithError(&error));
    EXPECT_EQ(error, missing->streamError());
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ENOENT));

    MZMD5InputStream broken(
        std::make_shared<ChunkedInputStream>("abcdef", velto::testing::Chunks{{2}, 2}));
    broken.open();
    EXPECT_EQ(broken.read(buffer.data(), buffer.size()), 2);
    EXPECT_EQ(broken.read(buffer.data(), buffer.size()), -1);
    EXPECT_EQ(broken.streamStatus(), StreamStatus::error);
    EXPECT_FALSE(broken.md5WithError(&error));
    EXPECT_THAT(error, IsError("ChunkedStream", -1));
}

}  // namespace
