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

/// The standard library's slower answer is the reference, also beside powers of ten and at ties.
TEST(DoubleText, EqualsTheStandardLibrarysText) {
    for (const double number : {0.0, -0.0, 0.1, 9.95, 1e-4, 1e-5, 9999999999999998.0, 1e16, 5e-324,
                                std::numeric_limits<double>::max()}) {
        EXPECT_EQ(ours(number), standard(number));
    }
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
