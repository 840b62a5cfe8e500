#include <VeltoConnectFoundation/Platform/Format.h>

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using velto::format;
using velto::FormatArgument;
using velto::formatArguments;
using velto::detail::FormatClass;
using velto::detail::parseFormatSignature;

// What the compile-time check stands on.
static_assert(!parseFormatSignature("%y").isWellFormed);
static_assert(!parseFormatSignature("100%").isWellFormed);
static_assert(!parseFormatSignature("%5").isWellFormed);
static_assert(!parseFormatSignature("%*d").isWellFormed);
static_assert(!parseFormatSignature("%0$d").isWellFormed);
static_assert(!parseFormatSignature("%17$d").isWellFormed);
static_assert(!parseFormatSignature("%1001d").isWellFormed);
static_assert(!parseFormatSignature("%1$@ %@").isWellFormed);
static_assert(!parseFormatSignature("%@ %1$@").isWellFormed);
static_assert(!parseFormatSignature("%1$@ %1$d").isWellFormed);
static_assert(parseFormatSignature("%1$@ %1$@ %%").count == 1);
static_assert(parseFormatSignature("%2$ld").classes[0] == FormatClass::none);
static_assert(parseFormatSignature("%2$@ of %1$lu") == parseFormatSignature("%lu: %@"));
static_assert(parseFormatSignature("%d") != parseFormatSignature("%ld"));

static_assert(velto::detail::formatAccepts<std::int32_t>(FormatClass::integer));
static_assert(!velto::detail::formatAccepts<std::int64_t>(FormatClass::integer));
static_assert(velto::detail::formatAccepts<bool>(FormatClass::integer));
static_assert(velto::detail::formatAccepts<char16_t>(FormatClass::integer));
static_assert(!velto::detail::formatAccepts<int>(FormatClass::object));
static_assert(!velto::detail::formatAccepts<double>(FormatClass::wideInteger));
static_assert(!velto::detail::formatAccepts<int>(FormatClass::floating));
static_assert(velto::detail::formatAccepts<char[4]>(FormatClass::object));
static_assert(!velto::detail::formatAccepts<std::string>(FormatClass::pointer));
static_assert(!velto::detail::formatAccepts<const void*>(FormatClass::object));
static_assert(velto::detail::formatAccepts<const void*>(FormatClass::pointer));
static_assert(velto::detail::formatAccepts<velto::Value>(FormatClass::object));
static_assert(!velto::detail::formatAccepts<velto::Value>(FormatClass::text));
static_assert(!velto::detail::formatAccepts<std::vector<int>>(FormatClass::object));

struct Shape {
    std::string sides;
    std::string description() const { return sides + " sides"; }
};

enum class Colour : std::int64_t { green = 7 };

TEST(Format, PlacesEveryKindOfArgument) {
    const std::string text = "text";
    const std::string_view view = "view";
    const std::optional<std::string> absent;
    const std::optional<std::string> present = "there";
    const Shape shape{"3"};
    const auto shared = std::make_shared<Shape>(Shape{"5"});
    EXPECT_EQ(format("plain"), "plain");
    EXPECT_EQ(format(""), "");
    EXPECT_EQ(format("%@ %@ %@ %s", text, view, "literal", text), "text view literal text");
    EXPECT_EQ(format("%@|%@|%@", absent, present, nullptr), "(null)|there|(null)");
    EXPECT_EQ(format("%@", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(format("%@, %@, %@, %@", shape, &shape, shared, std::shared_ptr<Shape>()),
              "3 sides, 3 sides, 5 sides, (null)");
    EXPECT_EQ(format("%ld", Colour::green), "7");
    EXPECT_EQ(format("%d%%", true), "1%");
    EXPECT_EQ(format("%2$@ before %1$@, %2$@", "a", "b"), "b before a, b");
    EXPECT_EQ(format("%2$5.1f %1$C", u'€', 1.25), "  1.2 €");
    EXPECT_EQ(format("%p", static_cast<const void*>(nullptr)), "0x0");
    EXPECT_EQ(format("%p", reinterpret_cast<const void*>(std::uintptr_t{0xBEEF})), "0xbeef");
}

TEST(Format, CutsIntegersToTheStatedLength) {
    EXPECT_EQ(format("%02.2hhX", 0x1FA), "FA");
    EXPECT_EQ(format("%hhd %hd %d", 255, 65535, std::uint32_t{0xFFFFFFFF}), "-1 -1 -1");
    EXPECT_EQ(format("%lu", -1), "18446744073709551615");
    EXPECT_EQ(format("%u %hhu", -1, -1), "4294967295 255");
    EXPECT_EQ(format("%lld", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(format("%C", 0x120041), "A");
}

TEST(Format, WritesCharactersAsTheyCountInUTF16) {
    const std::string high = format("%C", char16_t{0xD83D});
    EXPECT_EQ(high, "\xED\xA0\xBD");
    EXPECT_EQ(format("%C%C", char16_t{0xD83D}, char16_t{0xDE00}), "😀");
    EXPECT_EQ(format("%C", char16_t{0xDE00}), "\xED\xB8\x80");
    EXPECT_EQ(format("%c%c", 'A', 0xE9), "Aé");
    EXPECT_EQ(format("[%4@|%-4@|%.2@]", "äö", "äö", "äöü"), "[  äö|äö  |äö]");
    EXPECT_EQ(format("[%3@|%.1@|%.3@]", "😀", "😀", "a😀b"), "[ 😀||a😀]");
}

TEST(Format, AtRunTimeNothingIsUndefined) {
    struct Row {
        const char* format;
        std::vector<FormatArgument> arguments;
        const char* expected;
    };
    const std::vector<Row> rows{
        {"%@ and %@", {"one"}, "one and (null)"},
        {"%@", {}, "(null)"},
        {"%d %@ %f %s", {"x", 1, 2, 3}, "(null) (null) (null) (null)"},
        {"%ld", {1.5}, "(null)"},
        {"%@", {"used", "surplus"}, "used"},
        {"%3$@", {"a", "b"}, "(null)"},
        {"%8.3d|", {"x"}, "  (null)|"},
        {"100% y %, %@%", {"x"}, "100% y %, x%"},
        {"%*d %@", {1}, "%*d (null)"},
        {"%99999999d", {1}, "%99999999d"},
        {"%.99999999999999999999f", {1.0}, "%.99999999999999999999f"},
        {"%1$@ %@", {"a"}, "a a"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(formatArguments(row.format, row.arguments), row.expected);
    }
}

// The formats are made at run time here, which is the point of comparing.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class T>
std::string printed(const std::string& text, T number) {
    std::vector<char> buffer(2000);
    const int length = std::snprintf(buffer.data(), buffer.size(), text.c_str(), number);
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}
#pragma GCC diagnostic pop

class Generator {
public:
    explicit Generator(std::uint64_t seed) : engine_(seed) {}

    std::uint64_t bits() { return engine_(); }
    std::size_t below(std::size_t limit) { return engine_() % limit; }
    template <class Range>
    auto oneOf(const Range& range) {
        return range[below(std::size(range))];
    }
    std::string flagsAndWidth(std::size_t maximumPrecision) {
        std::string text = "%";
        for (const char flag : {'-', '+', ' ', '0', '#'}) {
            if (below(4) == 0) {
                text += flag;
            }
        }
        if (below(2) == 0) {
            text += std::to_string(1 + below(30));
        }
        if (below(2) == 0) {
            text += '.';
            if (below(8) != 0) {
                text += std::to_string(below(maximumPrecision));
            }
        }
        return text;
    }

private:
    std::mt19937_64 engine_;
};

TEST(Format, IntegersReadAsTheCLibraryPrintsThem) {
    const std::uint64_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Generator generator(seed);
    const std::vector<std::string> lengths{"hh", "h", "", "l", "ll", "j", "z", "t"};
    for (int round = 0; round < 20000; ++round) {
        const std::string length = generator.oneOf(lengths);
        const std::string text =
            generator.flagsAndWidth(25) + length + generator.oneOf(std::string_view("diuxXo"));
        const auto number = static_cast<std::int64_t>(generator.bits()) >> generator.below(64);
        const bool isWide = !length.empty() && length[0] != 'h';
        const std::string expected =
            isWide ? printed(text, number) : printed(text, static_cast<int>(number));
        ASSERT_EQ(formatArguments(text, std::vector<FormatArgument>{number}), expected)
            << text << " of " << number;
    }
}

TEST(Format, FloatingNumbersReadAsTheCLibraryPrintsThem) {
    const std::uint64_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Generator generator(seed);
    using Limits = std::numeric_limits<double>;
    const double infinity = Limits::infinity();
    const double most = Limits::max();
    const double least = Limits::min();
    const double none = Limits::quiet_NaN();
    const std::vector<double> special{0.0,  -0.0, 1.0,  0.5,   2.5,      0.125,     9.995, 999999.5,
                                      1e15, 1e23, most, least, infinity, -infinity, none};
    for (int round = 0; round < 20000; ++round) {
        double number = 0;
        switch (generator.below(3)) {
            case 0:
                number = generator.oneOf(special);
                break;
            case 1:
                number = std::bit_cast<double>(generator.bits());
                break;
            default:
                number = static_cast<double>(static_cast<std::int64_t>(generator.bits()) >>
                                             generator.below(64)) /
                         1000;
                break;
        }
        std::string text =
            generator.flagsAndWidth(40) + generator.oneOf(std::string_view("fFeEgGaA"));
        if ((text.back() | ' ') == 'g') {
            // The C library loses the zeros of "%#g" when rounding makes a power of ten.
            std::erase(text, '#');
        }
        ASSERT_EQ(formatArguments(text, std::vector<FormatArgument>{number}), printed(text, number))
            << text << " of " << printed("%.17g", number);
    }
}

TEST(Format, TheAlternateGeneralFormKeepsItsZeros) {
    EXPECT_EQ(format("%#g %#g %#.3G %#.0g", 999999.5, 1.5, 1e-5, 7.0),
              "1.00000e+06 1.50000 1.00E-05 7.");
    EXPECT_EQ(format("%#.3g %#.3g %#g", 0.0001, 99.96, 0.0), "0.000100 100. 0.00000");
}

TEST(Format, AnotherDecimalSeparatorCountsAsOneCharacter) {
    const auto german = [](std::string_view text, double number) {
        return velto::detail::formatArguments(text, std::vector<FormatArgument>{number}, ",");
    };
    EXPECT_EQ(german("%0.02f", 1234.5), "1234,50");
    EXPECT_EQ(german("%8.1f|", -1.25), "    -1,2|");
    EXPECT_EQ(german("%.0f", 3.0), "3");
    EXPECT_EQ(velto::detail::formatArguments("%6.1f|", std::vector<FormatArgument>{1.5}, "٫"),
              "   1٫5|");
}

}  // namespace
