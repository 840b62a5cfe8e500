#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kilo = 1024;
constexpr std::uint64_t mega = 1024 * kilo;
constexpr std::uint64_t giga = 1024 * mega;
constexpr std::uint64_t tera = 1024 * giga;
constexpr std::uint64_t peta = 1024 * tera;
constexpr std::uint64_t exa = 1024 * peta;
constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();

TEST(MZHumanReadableBytes, CutsToTheDecimalsOfTheUnit) {
    struct Row {
        std::uint64_t count;
        std::uint64_t divisor;
        const char* expected;
    };
    const std::vector<Row> rows{
        {0, 1024, "0 bytes"},
        {1, 1024, "1 byte"},
        {2, 1024, "2 bytes"},
        {11, 1024, "11 bytes"},
        {1023, 1024, "1023 bytes"},
        {1024, 1024, "1 kB"},
        {1065, 1024, "1 kB"},  // 1.04
        {1127, 1024, "1.1 kB"},
        {1536, 1024, "1.5 kB"},
        {mega - 1, 1024, "1023.9 kB"},
        {mega, 1024, "1 MB"},
        {mega + mega / 2, 1024, "1.5 MB"},
        {giga - 1, 1024, "1023.9 MB"},
        {giga * 1999 / 1000, 1024, "1.99 GB"},
        {giga + giga / 2, 1024, "1.5 GB"},
        {giga + giga / 20, 1024, "1.04 GB"},  // just below 1.05
        {tera + tera / 4, 1024, "1.25 TB"},
        {3 * peta, 1024, "3 PB"},
        {exa, 1024, "1 EB"},
        {exa - 1024, 1024, "1023.99 PB"},
        {most, 1024, "16 EB"},
        {999, 1000, "999 bytes"},
        {1'500'000, 1000, "1.5 MB"},
        {1'000'000'000'000'000'000, 1000, "1 EB"},
        {7, 2, "1.7 MB"},
        // No 64-bit count reaches a unit whose size does not fit 64 bits.
        {most, std::uint64_t{1} << 32U, "4294967296 kB"},
        {most, most, "1 kB"},
        {0, 0, "0 EB"},
        {5, 0, "5 EB"},
        {0, 1, "0 bytes"},
        {2048, 1, "2048 EB"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.count) + " by " + std::to_string(row.divisor));
        EXPECT_EQ(MZHumanReadableStringFromBytesUsingDivisor(row.count, row.divisor), row.expected);
    }
    EXPECT_EQ(MZHumanReadableStringFromBytes(1536), "1.5 kB");
}

TEST(MZHumanReadableBytesDeathTest, FollowsTheDecimalSeparatorOfTheUser) {
    // The locale is read once, so a fresh process.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto report = [] {
        setenv("LC_ALL", "de_DE.UTF-8", 1);
        std::cerr << MZHumanReadableStringFromBytes(1536) << ", "
                  << MZHumanReadableStringFromBytes(1024) << '\n';
        std::exit(0);
    };
    EXPECT_EXIT(report(), ::testing::ExitedWithCode(0), "^1,5 kB, 1 kB\n$");
}

}  // namespace
