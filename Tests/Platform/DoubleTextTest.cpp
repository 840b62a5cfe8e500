#include <Tests/Support/RandomSeed.h>
#include <VeltoConnectFoundation/Platform/DoubleText.h>

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace {

std::string ours(double number) {
    char text[velto::DoubleTextSize];
    return {text, velto::writeDouble(text, number)};
}

std::string standard(double number) {
    char text[64];
    return {text,
            std::to_chars(text, text + sizeof(text), number, std::chars_format::general, 16).ptr};
}

TEST(DoubleText, HasSixteenSignificantDigits) {
    struct Row {
        double number;
        const char* text;
    };
    const Row rows[] = {
        {0.0, "0"},
        {-0.0, "-0"},
        {0.1, "0.1"},
        {1.0 / 3, "0.3333333333333333"},
        {2.0 / 3, "0.6666666666666666"},
        {9.95, "9.949999999999999"},
        {-180.5, "-180.5"},
        {0.0001, "0.0001"},
        {0.00001, "1e-05"},
        {1.5e-10, "1.5e-10"},
        {0.9999999999999999, "0.9999999999999999"},
        {999999999999999.9, "999999999999999.9"},
        {9007199254740993.0, "9007199254740992"},
        {9999999999999998.0, "9999999999999998"},
        {1e16, "1e+16"},
        {1e300, "1e+300"},
        {5e-324, "4.940656458412465e-324"},
        {std::numeric_limits<double>::max(), "1.797693134862316e+308"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ours(row.number), row.text);
    }
}

/// The standard library's slower answer is the reference, also beside powers of ten and at ties.
TEST(DoubleText, EqualsTheStandardLibrarysText) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const auto below = [&random](std::uint64_t limit) { return random() % limit; };
    for (int round = 0; round < 200000; ++round) {
        const auto bits = std::bit_cast<double>(random());
        const double scaled = std::ldexp(static_cast<double>(below(std::uint64_t{1} << 53)),
                                         -static_cast<int>(below(110)));
        const double tie = std::ldexp(static_cast<double>(below(std::uint64_t{1} << below(54))),
                                      -static_cast<int>(below(60)));
        const double decimal = static_cast<double>(below(1000000000000000)) /
                               std::pow(10, static_cast<double>(below(25)));
        const double power = std::pow(10, static_cast<double>(below(40)) - 20);
        for (const double number : {bits, scaled, tie, decimal, power}) {
            for (const double near :
                 {number, -number, std::nextafter(number, 0), std::nextafter(number, 1e308)}) {
                ASSERT_EQ(ours(near), standard(near)) << std::hexfloat << near;
            }
        }
    }
}

}  // namespace
