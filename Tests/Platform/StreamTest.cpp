#include <VeltoConnectFoundation/Platform/Stream.h>

#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/PrintValue.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <unistd.h>

namespace {

using namespace velto;
using velto::testing::StreamEventRecorder;

const std::uint8_t* bytes(const char* text) {
    return reinterpret_cast<const std::uint8_t*>(text);
}

std::string readAll(InputStream& stream, std::size_t step) {
    std::string text;
    std::vector<std::uint8_t> buffer(step);
    for (;;) {
        const std::ptrdiff_t count = stream.read(buffer.data(), step);
        if (count <= 0) {
            return text;
        }
        text.append(buffer.begin(), buffer.begin() + count);
    }
}

TEST(DataStream, KnowsItsEndWithTheLastByte) {
    const auto stream = InputStream::withData(Data("abcde"));
    const auto events = std::make_shared<StreamEventRecorder>();
    stream->setDelegate(events);
    std::uint8_t buffer[8];
    EXPECT_EQ(stream->read(buffer, 1), -1);
    stream->open();
    const std::uint8_t* view = nullptr;
    std::size_t length = 0;
    EXPECT_EQ(stream->read(buffer, 2), 2);
    ASSERT_TRUE(stream->getBuffer(view, length));
    EXPECT_EQ(std::string(view, view + length), "cde");
    EXPECT_EQ(stream->propertyForKey(StreamFileCurrentOffsetKey), 2);
    EXPECT_EQ(stream->streamStatus(), StreamStatus::open);
    EXPECT_EQ(stream->read(buffer, 8), 3);
    EXPECT_EQ(stream->streamStatus(), StreamStatus::atEnd);
    EXPECT_EQ(stream->read(buffer, 8), 0);
    EXPECT_FALSE(stream->getBuffer(view, length));
    stream->close();
    EXPECT_EQ(stream->read(buffer, 8), -1);
    EXPECT_EQ(events->events,
              (std::vector{StreamEvent::openCompleted, StreamEvent::endEncountered}));
}

TEST(FileStream, ReadsBackWhatWasWritten) {
    const std::filesystem::path folder =
        std::filesystem::path(::testing::TempDir()) / ("streams" + std::to_string(::getpid()));
    std::filesystem::create_directory(folder);
    const std::string path = folder / "file";
    for (const bool append : {false, false, true}) {
        const auto out = OutputStream::toFile(path, append);
        EXPECT_EQ(out->write(bytes("x"), 1), -1);
        out->open();
        EXPECT_EQ(out->write(bytes("hello"), 5), 5);
        EXPECT_TRUE(out->hasSpaceAvailable());
        out->close();
        out->close();
        EXPECT_EQ(out->streamStatus(), StreamStatus::closed);
    }
    const auto in = InputStream::withFile(path);
    in->open();
    EXPECT_EQ(readAll(*in, 3), "hellohello");
    EXPECT_EQ(in->streamStatus(), StreamStatus::atEnd);
    EXPECT_TRUE(in->setProperty(8, StreamFileCurrentOffsetKey));
    EXPECT_EQ(in->propertyForKey(StreamFileCurrentOffsetKey), 8);
    EXPECT_EQ(readAll(*in, 100), "lo");
    std::filesystem::remove_all(folder);
}

TEST(FileStream, FailsWithTheSystemsError) {
    const auto events = std::make_shared<StreamEventRecorder>();
    const std::shared_ptr<Stream> streams[] = {InputStream::withFile("/nonexistent/file"),
                                               OutputStream::toFile("/nonexistent/file")};
    for (const auto& stream : streams) {
        events->events.clear();
        stream->setDelegate(events);
        stream->open();
        EXPECT_EQ(stream->streamStatus(), StreamStatus::error);
        EXPECT_EQ(stream->streamError().domain(), POSIXErrorDomain);
        EXPECT_EQ(stream->streamError().code(), ENOENT);
        EXPECT_EQ(events->events, std::vector{StreamEvent::errorOccurred});
    }
}

}  // namespace
