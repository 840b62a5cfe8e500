#include <Tests/Support/ChunkedStream.h>
#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Codecs/MZBufferedOutputStream.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using velto::Error;
using velto::StreamStatus;
using velto::testing::ChunkedOutputStream;
using velto::testing::Chunks;
using velto::testing::write;

TEST(MZBufferedOutputStream, TakesAtMostItsBuffer) {
    const auto output = std::make_shared<ChunkedOutputStream>();
    MZBufferedOutputStream stream(output);
    stream.open();
    const std::string text(5000, 'x');
    EXPECT_EQ(write(stream, text), 2048);
    EXPECT_EQ(output->calls(), 0U);
    EXPECT_EQ(write(stream, "y"), 1);
    EXPECT_EQ(output->written(), text.substr(0, 2048));
    EXPECT_EQ(output->calls(), 1U);
    EXPECT_EQ(write(stream, text.substr(0, 2047)), 2047);
    EXPECT_EQ(output->calls(), 1U);
    EXPECT_EQ(write(stream, ""), 0);
    EXPECT_EQ(output->calls(), 1U);
    stream.close();
    EXPECT_EQ(output->written(), text.substr(0, 2048) + "y" + text.substr(0, 2047));
    EXPECT_EQ(output->streamStatus(), StreamStatus::closed);
    EXPECT_THROW(MZBufferedOutputStream(output, 0), velto::Exception);
}

TEST(MZBufferedOutputStream, ShowsTheWrappedStreamAsItself) {
    const auto output = std::make_shared<ChunkedOutputStream>();
    const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
    MZBufferedOutputStream stream(output, 16);
    EXPECT_EQ(stream.streamStatus(), StreamStatus::notOpen);
    stream.open();
    EXPECT_EQ(stream.streamStatus(), StreamStatus::open);
    stream.setDelegate(recorder);
    EXPECT_EQ(output->delegate().lock(), recorder);
    EXPECT_EQ(stream.delegate().lock(), recorder);
    EXPECT_EQ(stream.hasSpaceAvailable(), output->hasSpaceAvailable());
    EXPECT_TRUE(stream.setProperty(1, "settable"));
    EXPECT_FALSE(stream.setProperty(1, "other"));
    write(stream, "held");
    EXPECT_EQ(stream.propertyForKey(velto::StreamDataWrittenToMemoryKey).data().view(), "held");
}

TEST(MZBufferedOutputStream, AFailedFlushLosesWhatWasBuffered) {
    struct Row {
        const char* name;
        Chunks chunks;
        std::int64_t code;
        std::string domain;
    };
    const Row rows[] = {
        {"the stream breaks", {{2}, 3}, -1, "ChunkedStream"},
        {"the stream takes no more", {{0}}, -10000, "MZBufferedOutputStreamErrorDoman"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto output = std::make_shared<ChunkedOutputStream>(row.chunks);
        const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
        output->setDelegate(recorder);
        MZBufferedOutputStream stream(output, 8);
        ASSERT_EQ(write(stream, "12345678"), 8);
        EXPECT_EQ(write(stream, "9"), -1);
        EXPECT_EQ(stream.streamError().code(), row.code);
        EXPECT_EQ(stream.streamError().domain(), row.domain);
        EXPECT_EQ(recorder->events, std::vector{velto::StreamEvent::errorOccurred});
        EXPECT_EQ(recorder->senders.front(), &stream);
        const std::size_t calls = output->calls();
        EXPECT_FALSE(stream.flushByteQueue());
        EXPECT_EQ(output->calls(), calls);
        EXPECT_TRUE(stream.streamError());
    }
    const auto output = std::make_shared<ChunkedOutputStream>(Chunks{{0}});
    MZBufferedOutputStream stream(output, 8);
    write(stream, "1");
    const Error error = stream.flushByteQueue();
    EXPECT_EQ(output->calls(), 1001U);
    EXPECT_EQ(error.localizedDescription(),
              "The output stream is exhausted and won’t allow additional writes.");
    EXPECT_EQ(error.localizedFailureReason(), "Output stream exhausted");
}

TEST(MZBufferedOutputStream, KeepsTheOrderOfBytesHoweverTheyAreTaken) {
    std::mt19937_64 random(velto::testing::randomSeed());
    for (int round = 0; round < 200; ++round) {
        Chunks chunks{{1 + random() % 9, random() % 3, random() % 50}};
        const auto output = std::make_shared<ChunkedOutputStream>(chunks);
        MZBufferedOutputStream stream(output, 1 + random() % 40);
        std::string expected;
        for (int step = 0; step < 100; ++step) {
            const std::string piece(random() % 60, static_cast<char>('a' + step % 26));
            const auto taken = static_cast<std::size_t>(write(stream, piece));
            expected += piece.substr(0, taken);
        }
        stream.close();
        ASSERT_EQ(output->written(), expected);
    }
}

}  // namespace
