#include <VeltoConnectFoundation/Platform/DateFormat.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using velto::Date;
using velto::DateFormat;

TEST(DateFormat, WritesAndReadsByPattern) {
    const Date newYear = Date::fromUnixSeconds(1735463100);  // 2024-12-29 09:05:00
    const DateFormat request("YYYYMMddHmmss", "en_US_POSIX", "GMT");
    EXPECT_EQ(request.stringFromDate(newYear), "2025122990500");
    EXPECT_EQ(
        DateFormat("EEEE, d. MMMM yyyy, HH:mm", "de_DE", "Europe/Berlin").stringFromDate(newYear),
        "Sonntag, 29. Dezember 2024, 10:05");
    EXPECT_EQ(DateFormat("", "en_US_POSIX", "GMT").stringFromDate(newYear), "");

    const DateFormat lenient("yyyyMMddHHmmssz", "en_US_POSIX", "GMT");
    EXPECT_EQ(lenient.dateFromString("20241229090500Z"), newYear);
    EXPECT_EQ(lenient.dateFromString("20241229090500GMT and more"), newYear);
    EXPECT_EQ(lenient.dateFromString("20241159086500Z"), newYear);
    EXPECT_EQ(lenient.dateFromString("yesterday"), std::nullopt);
    EXPECT_EQ(lenient.dateFromString(""), std::nullopt);
}

TEST(DateFormat, TheFastISOFormAgreesWithThePattern) {
    const DateFormat pattern("yyyy-MM-dd'T'HH:mm:ss.SSS'Z'", "en_US_POSIX", "GMT");
    EXPECT_EQ(velto::isoStringFromDate(Date{0}), "2001-01-01T00:00:00.000Z");
    EXPECT_EQ(velto::isoStringFromDate(Date{0.123}), "2001-01-01T00:00:00.123Z");
    EXPECT_EQ(velto::isoStringFromDate(Date{-0.0006}), "2000-12-31T23:59:59.999Z");
    for (const double unixSeconds :
         {0.0, -1.0, -0.001, 951782400.0, 4107542400.0, 1709164800.0, -12219292800.0,
          -12219292800.001, -12219292801.0, 253402300799.999, 253402300799.9996, 253402300800.0,
          -62135596800.0, -62135596801.0, 1e13}) {
        const Date date = Date::fromUnixSeconds(unixSeconds);
        EXPECT_EQ(velto::isoStringFromDate(date), pattern.stringFromDate(date)) << unixSeconds;
    }
    const std::uint64_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> seconds(-2e10, 3e11);  // years 1367 to 11507
    for (int round = 0; round < 5000; ++round) {
        const Date date{seconds(engine)};
        ASSERT_EQ(velto::isoStringFromDate(date), pattern.stringFromDate(date))
            << date.secondsSinceReference;
    }
    EXPECT_NO_THROW(velto::isoStringFromDate(Date{std::numeric_limits<double>::quiet_NaN()}));
    EXPECT_NO_THROW(velto::isoStringFromDate(Date{std::numeric_limits<double>::infinity()}));
}

TEST(DateFormat, ServesSeveralThreads) {
    const DateFormat format("yyyy-MM-dd HH:mm:ss", "en_US_POSIX", "GMT");
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            const Date date{number * 86400.0};
            const std::string expected = "2001-01-0" + std::to_string(number + 1) + " 00:00:00";
            for (int round = 0; round < 500; ++round) {
                EXPECT_EQ(format.stringFromDate(date), expected);
                EXPECT_EQ(format.dateFromString(expected), date);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
