#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using velto::Data;
using velto::Error;
using velto::testing::IsError;

const MZCompressionUtilities& utilities = MZCompressionUtilities::defaultUtilities();

/// The bare library at work, in one step each.
std::string bareDeflate(std::string_view bytes, int window = 31, int level = -1) {
    z_stream stream{};
    deflateInit2(&stream, level, Z_DEFLATED, window, 8, Z_DEFAULT_STRATEGY);
    std::string result(deflateBound(&stream, bytes.size()), '\0');
    std::string input(bytes);
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    result.resize(stream.total_out);
    deflateEnd(&stream);
    return result;
}

std::string bareInflate(const Data& data, std::size_t length) {
    z_stream stream{};
    inflateInit2(&stream, 31);
    std::string result(length + 1, '\0');
    std::string input(data.view());
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
    result.resize(stream.total_out);
    inflateEnd(&stream);
    return result;
}

/// Gzipped zeros, made without holding them.
std::string bomb(std::size_t length) {
    z_stream stream{};
    deflateInit2(&stream, 9, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    std::string zeros(std::size_t{1} << 20, '\0');
    std::string result(deflateBound(&stream, length / 100), '\0');
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    for (std::size_t done = 0; done < length; done += zeros.size()) {
        stream.next_in = reinterpret_cast<Bytef*>(zeros.data());
        stream.avail_in = static_cast<uInt>(zeros.size());
        EXPECT_EQ(deflate(&stream, Z_NO_FLUSH), Z_OK);
    }
    EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
    result.resize(stream.total_out);
    deflateEnd(&stream);
    return result;
}

std::int64_t residentPeak() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024;
}

TEST(MZCompressionUtilities, ReadsOneBlockOfEitherFormat) {
    const std::string text = "the same and the same and the same";
    const std::string gzip = bareDeflate(text);
    struct Row {
        const char* name;
        std::string bytes;
        std::string expected;
    };
    const Row rows[] = {
        {"gzip", gzip, text},
        {"zlib", bareDeflate(text, 15), text},
        {"nothing inside", bareDeflate(""), ""},
        {"one byte inside", bareDeflate("x"), "x"},
        {"trailing bytes", gzip + "trailing", text},
        {"a second member", gzip + gzip, text},
        {"a thousand times its length", bareDeflate(std::string(3000000, 'x')),
         std::string(3000000, 'x')},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto data = utilities.gzipInflate(Data(std::string_view(row.bytes)));
        ASSERT_TRUE(data);
        EXPECT_TRUE(data->view() == row.expected);
    }
    for (const std::string_view bytes : {"", "x"}) {
        const auto block = utilities.gzipDeflate(Data(bytes));
        ASSERT_TRUE(block);
        EXPECT_EQ(block->view().substr(0, 2), "\x1f\x8b");
        EXPECT_EQ(bareInflate(*block, bytes.size()), bytes);
    }
}

TEST(MZCompressionUtilities, WhatIsNoWholeBlockIsAnErrorThatSaysWhy) {
    const std::string gzip = bareDeflate("something to be cut short");
    std::string wrongSum = gzip;
    wrongSum[gzip.size() - 8] = static_cast<char>(wrongSum[gzip.size() - 8] ^ 1);
    std::string wrongSize = gzip;
    wrongSize[gzip.size() - 4] = static_cast<char>(wrongSize[gzip.size() - 4] + 1);
    std::string hugeSize = gzip;
    hugeSize.replace(gzip.size() - 4, 4, "\xff\xff\xff\xff");
    std::string dictionary = bareDeflate("x", 15);
    dictionary[1] = static_cast<char>(0xbb);
    struct Row {
        std::string bytes;
        std::int64_t code;
        std::string message;
    };
    const Row rows[] = {
        {"neither gzip nor zlib", -3, "incorrect header check"},
        {wrongSum, -3, "incorrect data check"},
        {wrongSize, -3, "incorrect length check"},
        {hugeSize, -3, "incorrect length check"},
        {"", -5, "General buffer error"},
        {"\x1f", -5, "General buffer error"},
        {gzip.substr(0, gzip.size() / 2), -5, "General buffer error"},
        {gzip.substr(0, gzip.size() - 1), -5, "General buffer error"},
        {dictionary, 2, "General error"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.message);
        Error error;
        EXPECT_FALSE(utilities.gzipInflate(Data(std::string_view(row.bytes)), &error));
        EXPECT_THAT(error, IsError("MZCompressionUtiltitiesErrorDomain", row.code));
        const std::string text = "Unable to perform compression action: " + row.message + " (" +
                                 std::to_string(row.code) + ")";
        EXPECT_EQ(error.localizedDescription(), text);
        EXPECT_EQ(error.localizedFailureReason(), text);
    }
}

TEST(MZCompressionUtilities, TheLimitIsExact) {
    const velto::testing::ScopedUserDefaults defaults;
    const Data block(bareDeflate(std::string(100000, 'x')));
    for (const auto& [limit, fits] :
         {std::pair{100000, true}, {100001, true}, {99999, false}, {1, false}, {0, false}}) {
        SCOPED_TRACE(limit);
        velto::UserDefaults::shared().setArguments({{MZInflatedSizeLimit, limit}});
        Error error;
        EXPECT_EQ(utilities.gzipInflate(block, &error).has_value(), fits);
        if (!fits) {
            EXPECT_THAT(error, IsError("MZCompressionUtiltitiesErrorDomain", -4));
            EXPECT_EQ(error.localizedDescription(),
                      "Unable to perform compression action: General memory error (-4)");
        }
    }
}

TEST(MZCompressionUtilities, ABombIsRefusedWithinTheLimitsMemory) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    constexpr std::int64_t limit = std::int64_t{64} << 20;
    const velto::testing::ScopedUserDefaults defaults;
    velto::UserDefaults::shared().setArguments({{MZInflatedSizeLimit, limit}});
    const Data block(bomb(std::size_t{256} << 20));
    const std::int64_t before = residentPeak();
    Error error;
    EXPECT_FALSE(utilities.gzipInflate(block, &error));
    EXPECT_THAT(error, IsError("MZCompressionUtiltitiesErrorDomain", -4));
    EXPECT_LE(residentPeak() - before, limit + (std::int64_t{64} << 20));
}

TEST(MZCompressionUtilities, MemoryThatRunsOutIsAnError) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's own memory does not fit the limit";
#else
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    const Data block(bomb(std::size_t{64} << 20));
    std::minstd_rand random(1);
    std::string noise(std::size_t{16} << 20, '\0');
    std::ranges::generate(noise, [&] { return static_cast<char>(random()); });
    const Data bytes{std::string_view(noise)};
    // Room for neither result, in a process that uses more than that already.
    const rlimit limit{std::size_t{64} << 20, std::size_t{64} << 20};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    for (const auto& result :
         {&MZCompressionUtilities::gzipInflate, &MZCompressionUtilities::gzipDeflate}) {
        Error error;
        EXPECT_FALSE((utilities.*result)(
            result == &MZCompressionUtilities::gzipInflate ? block : bytes, &error));
        EXPECT_THAT(error, IsError("MZCompressionUtiltitiesErrorDomain", -4));
    }
#endif
}

TEST(MZCompressionUtilities, AgreesWithTheBareLibrary) {
    std::mt19937_64 random(velto::testing::randomSeed());
    for (int round = 0; round < 10000; ++round) {
        std::string bytes;
        const std::size_t length = random() % (round % 100 == 0 ? 100000 : 600);
        const std::uint64_t letters = 1 + random() % 256;
        while (bytes.size() < length) {
            bytes.append(1 + random() % 20, static_cast<char>(random() % letters));
        }
        const auto block = utilities.gzipDeflate(Data(std::string_view(bytes)));
        ASSERT_TRUE(block);
        ASSERT_EQ(block->view(), bareDeflate(bytes));
        ASSERT_EQ(bareInflate(*block, bytes.size()), bytes);
        const std::string other =
            bareDeflate(bytes, random() % 2 == 0 ? 31 : 15, static_cast<int>(random() % 10));
        const auto back = utilities.gzipInflate(Data(std::string_view(other)));
        ASSERT_TRUE(back);
        ASSERT_EQ(back->view(), bytes);
    }
}

}  // namespace
