#include <Tests/Support/ChunkedStream.h>
#include <VeltoConnectFoundation/Codecs/MZMemoryOutputStream.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using velto::StreamEvent;
using velto::StreamStatus;
using velto::testing::write;

TEST(MZMemoryOutputStream, KeepsWhatIsWritten) {
    for (const std::size_t capacity : {0U, 1U, 7U, 1024U}) {
        MZMemoryOutputStream stream(capacity);
        std::string expected;
        // A piece may need far more than twice the room there is.
        for (const std::size_t size : {1U, 0U, 5U, 5000U, 3U, 100000U}) {
            const std::string piece(size, static_cast<char>('a' + size % 26));
            EXPECT_EQ(write(stream, piece), static_cast<std::ptrdiff_t>(size));
            expected += piece;
        }
        EXPECT_EQ(stream.data().view(), expected);
        EXPECT_EQ(stream.propertyForKey(velto::StreamDataWrittenToMemoryKey).data().view(),
                  expected);
        EXPECT_TRUE(stream.propertyForKey("other").isNone());
        EXPECT_FALSE(stream.setProperty(true, velto::StreamDataWrittenToMemoryKey));
    }
}

TEST(MZMemoryOutputStream, HandsItsBlockOverWithoutACopy) {
    MZMemoryOutputStream stream;
    write(stream, "first");
    const std::uint8_t* block = stream.memory();
    const velto::Data first = stream.dataByResettingMemoryStream();
    EXPECT_EQ(first.bytes(), block);
    EXPECT_EQ(stream.memory(), nullptr);
    EXPECT_EQ(stream.length(), 0U);
    EXPECT_TRUE(stream.data().isEmpty());
    EXPECT_TRUE(stream.dataByResettingMemoryStream().isEmpty());
    write(stream, "second");
    EXPECT_EQ(first.view(), "first");
    EXPECT_EQ(stream.data().view(), "second");
}

TEST(MZMemoryOutputStream, StatusAndEventsFollowItsLife) {
    const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
    MZMemoryOutputStream stream;
    stream.setDelegate(recorder);
    EXPECT_EQ(stream.streamStatus(), StreamStatus::notOpen);
    stream.open();
    EXPECT_EQ(stream.streamStatus(), StreamStatus::open);
    EXPECT_EQ(recorder->events, std::vector{StreamEvent::openCompleted});
    write(stream, "kept");
    EXPECT_EQ(stream.streamStatus(), StreamStatus::open);
    EXPECT_TRUE(stream.hasSpaceAvailable());
    stream.close();
    EXPECT_EQ(stream.streamStatus(), StreamStatus::closed);
    EXPECT_EQ(stream.data().view(), "kept");
    EXPECT_EQ(recorder->events.size(), 1U);
}

TEST(MZMemoryOutputStream, RunningOutOfMemoryIsAnErrorThatStays) {
    struct Row {
        bool handedOver;
        std::int64_t code;
        const char* text;
    };
    for (const Row& row :
         {Row{false, -17000, "Unable to allocate additional memory for output stream."},
          Row{true, -17001, "Unable to allocate memory for output stream."}}) {
        SCOPED_TRACE(row.code);
        const auto recorder = std::make_shared<velto::testing::StreamEventRecorder>();
        MZMemoryOutputStream stream;
        stream.open();
        write(stream, "kept");
        if (row.handedOver) {
            EXPECT_EQ(stream.dataByResettingMemoryStream().view(), "kept");
        }
        stream.setDelegate(recorder);
        const std::uint8_t byte = 0;
        EXPECT_EQ(stream.write(&byte, SIZE_MAX - 2), -1);
        EXPECT_EQ(stream.streamError().domain(), MZMemoryOutputStreamErrorDomain);
        EXPECT_EQ(stream.streamError().code(), row.code);
        EXPECT_EQ(stream.streamError().localizedDescription(), row.text);
        EXPECT_EQ(stream.streamError().localizedFailureReason(), row.text);
        EXPECT_EQ(recorder->events, std::vector{StreamEvent::errorOccurred});
        // Required: not back to open.
        EXPECT_EQ(stream.streamStatus(), StreamStatus::writing);
        EXPECT_EQ(stream.data().view(), row.handedOver ? "" : "kept");
    }
    try {
        MZMemoryOutputStream stream(SIZE_MAX);
        ADD_FAILURE() << "nothing was raised";
    } catch (const velto::Exception& exception) {
        EXPECT_EQ(exception.userInfo()[velto::AssertionFileKey].string(), "MZMemoryOutputStream.m");
    }
}

}  // namespace
