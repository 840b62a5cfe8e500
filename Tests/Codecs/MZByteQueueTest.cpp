#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Codecs/MZByteQueue.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace {

struct Release {
    void operator()(MZSimpleCByteQueue* queue) const { MZByteQueueRelease(queue); }
};
using QueueOwner = std::unique_ptr<MZSimpleCByteQueue, Release>;

QueueOwner makeQueue(std::size_t capacity) {
    return QueueOwner(MZByteQueueCreate(capacity));
}

void appendRun(MZSimpleCByteQueue* queue, const std::string& text) {
    MZByteQueueAppendBytes(queue, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

void prependRun(MZSimpleCByteQueue* queue, const std::string& text) {
    MZByteQueuePrependBytes(queue, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

/// The bytes held as both enumerators give them.
std::string content(MZSimpleCByteQueue* queue) {
    std::string forwards;
    std::size_t index = MZByteQueueEnumerator(queue);
    while (const std::uint8_t* byte = MZByteQueueNextByte(queue, &index)) {
        forwards += static_cast<char>(*byte);
    }
    std::string backwards;
    index = MZByteQueueReverseEnumerator(queue);
    while (const std::uint8_t* byte = MZByteQueuePreviousByte(queue, &index)) {
        backwards += static_cast<char>(*byte);
    }
    EXPECT_EQ(forwards, std::string(backwards.rbegin(), backwards.rend()));
    return forwards;
}

TEST(MZByteQueue, MisuseRaisesWithConditionAndPlace) {
    const QueueOwner owner = makeQueue(4);
    MZSimpleCByteQueue* queue = owner.get();
    MZByteQueueAppendByte(queue, 'a');
    const std::uint8_t byte = 0;
    std::size_t index = 0;
    struct Row {
        const char* condition;
        const char* function;
        std::function<void()> misuse;
    };
    const Row rows[] = {
        {"capacity", "MZSimpleCByteQueue *MZByteQueueCreate(NSUInteger)",
         [] { MZByteQueueCreate(0); }},
        {"queue", "MZSimpleCByteQueue *MZByteQueueCreate(NSUInteger)",
         [] { MZByteQueueCreate(SIZE_MAX); }},
        {"queue", "void MZByteQueueRelease(MZSimpleCByteQueue *)",
         [] { MZByteQueueRelease(nullptr); }},
        {"queue", nullptr, [] { MZByteQueueEnumerator(nullptr); }},
        {"queue", nullptr, [&] { MZByteQueueNextByte(nullptr, &index); }},
        {"queue", nullptr, [] { MZByteQueueReverseEnumerator(nullptr); }},
        {"queue", nullptr, [&] { MZByteQueuePreviousByte(nullptr, &index); }},
        {"queue", nullptr, [] { MZByteQueueByteAtIndex(nullptr, 0); }},
        {"queue", nullptr, [] { MZByteQueueSetByteAtIndex(nullptr, 0, 0); }},
        {"queue", nullptr, [] { MZByteQueueInsertByteAtIndex(nullptr, 0, 0); }},
        {"queue", nullptr, [] { MZByteQueueRemoveByteAtIndex(nullptr, 0); }},
        {"queue", nullptr, [] { MZByteQueuePrependByte(nullptr, 0); }},
        {"queue", nullptr, [] { MZByteQueueAppendByte(nullptr, 0); }},
        {"queue", nullptr, [&] { MZByteQueuePrependBytes(nullptr, &byte, 1); }},
        {"queue", nullptr, [&] { MZByteQueueAppendBytes(nullptr, &byte, 1); }},
        {"queue", nullptr, [] { MZByteQueueRemoveFirstByte(nullptr); }},
        {"queue", nullptr, [] { MZByteQueueRemoveLastByte(nullptr); }},
        {"queue", nullptr, [] { MZByteQueueRemoveAllBytes(nullptr); }},
        {"queue", nullptr, [&] { MZByteQueueRemainingContiguousBytes(nullptr, &index); }},
        {"queue", nullptr, [] { MZByteQueueDidAppendContiguousBytes(nullptr, 0); }},
        {"queue", nullptr, [] { MZByteQueueFirstByte(nullptr); }},
        {"queue", nullptr, [] { MZByteQueueLastByte(nullptr); }},
        {"queue", nullptr, [] { MZByteQueuePushByte(nullptr, 0); }},
        {"queue", nullptr, [] { MZByteQueueTopByte(nullptr); }},
        {"queue", nullptr, [] { MZByteQueuePopByte(nullptr); }},
        {"bytes", nullptr, [&] { MZByteQueuePrependBytes(queue, nullptr, 1); }},
        {"bytes", nullptr, [&] { MZByteQueueAppendBytes(queue, nullptr, 1); }},
        {"size", nullptr, [&] { MZByteQueueRemainingContiguousBytes(queue, nullptr); }},
        {"size <= remaining", nullptr, [&] { MZByteQueueDidAppendContiguousBytes(queue, 4); }},
        {"index < queue->length", nullptr, [&] { MZByteQueueByteAtIndex(queue, 1); }},
        {"index < queue->length", nullptr, [&] { MZByteQueueSetByteAtIndex(queue, 0, 1); }},
        {"index <= queue->length", nullptr, [&] { MZByteQueueInsertByteAtIndex(queue, 0, 2); }},
        {"0", nullptr, [&] { MZByteQueueRemoveByteAtIndex(queue, 0); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.condition);
        try {
            row.misuse();
            ADD_FAILURE() << "nothing was raised";
        } catch (const velto::Exception& exception) {
            EXPECT_EQ(exception.name(), velto::InternalInconsistencyException);
            EXPECT_EQ(exception.reason(),
                      std::string("Invalid parameter not satisfying: ") + row.condition);
            const velto::Dictionary& place = exception.userInfo();
            EXPECT_EQ(place[velto::AssertionFileKey].string(), "MZSimpleCByteQueue.m");
            if (row.function != nullptr) {
                EXPECT_EQ(place[velto::AssertionFunctionKey].string(), row.function);
            }
        }
        EXPECT_EQ(content(queue), "a");
    }
}

TEST(MZByteQueue, TheTwoTailConventionsDiffer) {
    const QueueOwner single = makeQueue(4);
    const std::uint8_t* start = single->storage();
    MZByteQueueAppendByte(single.get(), 'a');
    // The first byte lands in the second place, and the tail is on the last one held.
    EXPECT_EQ(single->head, start + 1);
    EXPECT_EQ(single->tail, start + 1);
    MZByteQueueAppendByte(single.get(), 'b');
    EXPECT_EQ(single->tail, start + 2);
    EXPECT_EQ(*MZByteQueueLastByte(single.get()), 'b');

    const QueueOwner runs = makeQueue(4);
    start = runs->storage();
    appendRun(runs.get(), "ab");
    EXPECT_EQ(runs->head, start);
    EXPECT_EQ(runs->tail, start + 2);
    appendRun(runs.get(), "cd");
    EXPECT_EQ(runs->tail, start);
    EXPECT_EQ(content(runs.get()), "abcd");
}

TEST(MZByteQueue, AFullQueueOverwritesOrClamps) {
    const QueueOwner single = makeQueue(3);
    for (const char byte : std::string("abcde")) {
        MZByteQueueAppendByte(single.get(), static_cast<std::uint8_t>(byte));
    }
    EXPECT_EQ(content(single.get()), "cde");
    MZByteQueuePrependByte(single.get(), 'x');
    EXPECT_EQ(content(single.get()), "xcd");

    const QueueOwner one = makeQueue(1);
    MZByteQueueAppendByte(one.get(), 'a');
    MZByteQueueAppendByte(one.get(), 'b');
    EXPECT_EQ(content(one.get()), "b");
    MZByteQueuePrependByte(one.get(), 'c');
    EXPECT_EQ(content(one.get()), "c");

    const QueueOwner runs = makeQueue(4);
    appendRun(runs.get(), "abc");
    const std::uint8_t* head = runs->head;
    appendRun(runs.get(), "defgh");
    EXPECT_EQ(runs->length, 4U);
    EXPECT_EQ(runs->head, head);
    EXPECT_EQ(content(runs.get()), "efgh");
    prependRun(runs.get(), "12345");
    EXPECT_EQ(content(runs.get()), "1234");
}

TEST(MZByteQueue, ConsumingEverythingGoesBackToTheStart) {
    const QueueOwner queue = makeQueue(4);
    std::uint8_t buffer[8] = {};
    EXPECT_EQ(MZByteQueueConsumeBytes(queue.get(), buffer, 8), 0U);
    appendRun(queue.get(), "abc");
    EXPECT_EQ(MZByteQueueConsumeBytes(queue.get(), buffer, 2), 2U);
    EXPECT_EQ(queue->head, queue->storage() + 2);
    EXPECT_EQ(MZByteQueueConsumeBytes(queue.get(), buffer + 2, 5), 1U);
    EXPECT_EQ(std::string(buffer, buffer + 3), "abc");
    EXPECT_EQ(queue->head, queue->storage());
    EXPECT_EQ(queue->tail, queue->storage());
    EXPECT_EQ(queue->length, 0U);
    appendRun(queue.get(), "");
    EXPECT_EQ(MZByteQueueFirstByte(queue.get()), nullptr);
    EXPECT_EQ(MZByteQueueLastByte(queue.get()), nullptr);
}

TEST(MZByteQueue, AContiguousCommitUpToTheLastByteWraps) {
    struct Row {
        std::size_t committed;
        std::ptrdiff_t tail;
    };
    for (const Row& row : {Row{0, 0}, {2, 2}, {3, 0}, {4, 0}}) {
        SCOPED_TRACE(row.committed);
        const QueueOwner queue = makeQueue(4);
        std::size_t room = 0;
        std::uint8_t* place = MZByteQueueRemainingContiguousBytes(queue.get(), &room);
        ASSERT_EQ(place, queue->storage());
        ASSERT_EQ(room, 4U);
        std::memcpy(place, "abcd", row.committed);
        MZByteQueueDidAppendContiguousBytes(queue.get(), row.committed);
        EXPECT_EQ(queue->tail - queue->storage(), row.tail);
        EXPECT_EQ(content(queue.get()), std::string("abcd").substr(0, row.committed));
    }
}

TEST(MZByteQueue, InsertingRipplesTowardTheTail) {
    const QueueOwner queue = makeQueue(4);
    MZByteQueueInsertByteAtIndex(queue.get(), 'c', 0);
    MZByteQueueInsertByteAtIndex(queue.get(), 'a', 0);
    MZByteQueueInsertByteAtIndex(queue.get(), 'b', 1);
    MZByteQueueInsertByteAtIndex(queue.get(), 'd', 3);
    EXPECT_EQ(content(queue.get()), "abcd");
    EXPECT_EQ(*MZByteQueueLastByte(queue.get()), 'd');
    MZByteQueueInsertByteAtIndex(queue.get(), 'x', 1);
    EXPECT_EQ(content(queue.get()), "axbc");
    EXPECT_EQ(*MZByteQueueLastByte(queue.get()), 'c');
}

TEST(MZByteQueue, TheFrontIsAStack) {
    const QueueOwner queue = makeQueue(4);
    EXPECT_EQ(MZByteQueuePopByte(queue.get()), nullptr);
    EXPECT_EQ(queue->head, queue->storage());
    MZByteQueuePushByte(queue.get(), 'a');
    MZByteQueuePushByte(queue.get(), 'b');
    EXPECT_EQ(*MZByteQueueTopByte(queue.get()), 'b');
    EXPECT_EQ(*MZByteQueuePopByte(queue.get()), 'b');
    EXPECT_EQ(*MZByteQueuePopByte(queue.get()), 'a');
    EXPECT_EQ(queue->length, 0U);
}

/// Both families against a plain deque, as long as nothing overflows.
TEST(MZByteQueue, BehavesAsADeque) {
    std::mt19937_64 random(velto::testing::randomSeed());
    for (int round = 0; round < 200; ++round) {
        const std::size_t capacity = 1 + random() % 20;
        const bool byRuns = random() % 2 == 0;
        const QueueOwner queue = makeQueue(capacity);
        std::deque<char> model;
        for (int step = 0; step < 200; ++step) {
            const std::size_t room = capacity - model.size();
            const auto byte = static_cast<char>('a' + random() % 26);
            const std::string run(room != 0 ? random() % (room + 1) : 0, byte);
            std::uint8_t taken[20];
            switch (random() % 4) {
                case 0:
                    if (byRuns) {
                        appendRun(queue.get(), run);
                        model.insert(model.end(), run.begin(), run.end());
                    } else {
                        MZByteQueueAppendByte(queue.get(), static_cast<std::uint8_t>(byte));
                        model.push_back(byte);
                        if (model.size() > capacity) {
                            model.pop_front();
                        }
                    }
                    break;
                case 1:
                    if (byRuns) {
                        prependRun(queue.get(), run);
                        model.insert(model.begin(), run.begin(), run.end());
                    } else {
                        MZByteQueuePrependByte(queue.get(), static_cast<std::uint8_t>(byte));
                        model.push_front(byte);
                        if (model.size() > capacity) {
                            model.pop_back();
                        }
                    }
                    break;
                case 2:
                    if (byRuns) {
                        const std::size_t count =
                            MZByteQueueConsumeBytes(queue.get(), taken, random() % (capacity + 1));
                        ASSERT_EQ(
                            std::string(taken, taken + count),
                            std::string(model.begin(), model.begin() + static_cast<long>(count)));
                        model.erase(model.begin(), model.begin() + static_cast<long>(count));
                    } else {
                        MZByteQueueRemoveFirstByte(queue.get());
                        if (!model.empty()) {
                            model.pop_front();
                        }
                    }
                    break;
                default:
                    if (!byRuns) {
                        MZByteQueueRemoveLastByte(queue.get());
                        if (!model.empty()) {
                            model.pop_back();
                        }
                    } else if (!model.empty()) {
                        const std::size_t index = random() % model.size();
                        MZByteQueueSetByteAtIndex(queue.get(), 'Z', index);
                        model[index] = 'Z';
                        ASSERT_EQ(MZByteQueueByteAtIndex(queue.get(), index), 'Z');
                    }
            }
            ASSERT_EQ(content(queue.get()), std::string(model.begin(), model.end()));
        }
    }
}

}  // namespace
