#include <VeltoConnectFoundation/Platform/IOThread.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/RunTogether.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace velto {
namespace {

using ::testing::ElementsAre;
using Token = IOThread::Token;

IOThread& io() {
    return IOThread::shared();
}

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(ends_[0]);
        closeWriter();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int reader() const { return ends_[0]; }
    int writer() const { return ends_[1]; }
    void write(char byte) const { EXPECT_EQ(::write(ends_[1], &byte, 1), 1); }
    void closeWriter() {
        if (ends_[1] >= 0) {
            close(std::exchange(ends_[1], -1));
        }
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

TEST(IOThread, CallsBackAsLongAsThereIsSomethingToReadAndAtTheEnd) {
    Pipe pipe;
    std::string text;
    std::promise<void> ended;
    const Token token = io().addReadable(pipe.reader(), [&] {
        EXPECT_TRUE(io().isCurrent());
        char byte;
        if (read(pipe.reader(), &byte, 1) == 1) {
            text += byte;
        } else {
            io().removeCurrent();
            ended.set_value();
        }
    });
    ASSERT_NE(token, 0U);
    EXPECT_FALSE(io().isCurrent());
    for (const char byte : {'a', 'b', 'c'}) {
        pipe.write(byte);
    }
    pipe.closeWriter();
    ended.get_future().get();
    EXPECT_EQ(text, "abc");
}

TEST(IOThread, CallsBackWhenThereIsRoomToWrite) {
    Pipe pipe;
    while (write(pipe.writer(), "0123456789abcdef", 16) > 0) {
    }
    std::promise<void> writable;
    io().addWritable(pipe.writer(), [&] {
        io().removeCurrent();
        writable.set_value();
    });
    std::array<char, 65536> block;
    while (read(pipe.reader(), block.data(), block.size()) > 0) {
    }
    writable.get_future().get();
}

TEST(IOThread, RefusesWhatCannotBeWatched) {
    errno = 0;
    EXPECT_EQ(io().addReadable(-1, [] {}), 0U);
    EXPECT_EQ(errno, EBADF);
    io().remove(0);
    io().remove(1'000'000'000);
}

TEST(IOThread, CallsTimersInTheOrderOfTheirTimesAndNotTooEarly) {
    const auto start = std::chrono::steady_clock::now();
    std::vector<int> order;
    std::promise<void> all;
    const Token never = io().addTimer(Seconds(0.002), [&] { order.push_back(0); });
    io().addTimer(Seconds(0.03), [&] {
        order.push_back(3);
        all.set_value();
    });
    io().addTimer(Seconds(0.015), [&] { order.push_back(2); });
    io().remove(never);
    order.reserve(8);
    io().addTimer(Seconds(0.005), [&] {
        order.push_back(1);
        throw std::runtime_error("a timer");
    });
    const testing::CapturedPlatformLog log;
    all.get_future().get();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    std::erase(order, 0);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    EXPECT_THAT(log.lines(), ElementsAre("5 Uncaught exception in the I/O thread: a timer"));
}

TEST(IOThread, RemovingWaitsForACallUnderWay) {
    testing::runTogether(4, [&](int) {
        for (int round = 0; round < 500; ++round) {
            Pipe pipe;
            pipe.write('x');
            auto alive = std::make_unique<int>(0);
            std::atomic<bool> called{false};
            const Token readable = io().addReadable(pipe.reader(), [&] {
                ++*alive;
                called = true;
                called.notify_one();
            });
            const Token timer = io().addTimer(Seconds(0), [&] { ++*alive; });
            if (round % 2 == 0) {
                called.wait(false);
            }
            io().remove(timer);
            io().remove(readable);
            alive.reset();  // A call still under way would be a use after free.
        }
    });
}

}  // namespace
}  // namespace velto
