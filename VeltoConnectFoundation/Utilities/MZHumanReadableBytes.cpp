#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr std::uint64_t defaultDivisor = 1024;
constexpr unsigned largestPower = 6;
constexpr std::array<unsigned, largestPower + 1> decimalsOfPower{0, 1, 1, 2, 2, 2, 2};

std::string nameOfByteCount(std::uint64_t count) {
    using velto::localizedWithKey;
    switch (count) {
        case 0:
            return localizedWithKey("HUMAN_READABLE_BYTES_ZERO_BYTES", "bytes");
        case 1:
            return localizedWithKey("HUMAN_READABLE_BYTES_ONE_BYTE", "byte");
        case 2:
            return localizedWithKey("HUMAN_READABLE_BYTES_TWO_BYTES", "bytes");
        case 3:
            return localizedWithKey("HUMAN_READABLE_BYTES_THREE_BYTES", "bytes");
        case 4:
            return localizedWithKey("HUMAN_READABLE_BYTES_FOUR_BYTES", "bytes");
        case 5:
            return localizedWithKey("HUMAN_READABLE_BYTES_FIVE_BYTES", "bytes");
        case 6:
            return localizedWithKey("HUMAN_READABLE_BYTES_SIX_BYTES", "bytes");
        case 7:
            return localizedWithKey("HUMAN_READABLE_BYTES_SEVEN_BYTES", "bytes");
        case 8:
            return localizedWithKey("HUMAN_READABLE_BYTES_EIGHT_BYTES", "bytes");
        case 9:
            return localizedWithKey("HUMAN_READABLE_BYTES_NINE_BYTES", "bytes");
        case 10:
            return localizedWithKey("HUMAN_READABLE_BYTES_TEN_BYTES", "bytes");
        default:
            return localizedWithKey("HUMAN_READABLE_BYTES_MORE_THAN_TEN_BYTES", "bytes");
    }
}

std::string nameOfPower(unsigned power) {
    using velto::localizedWithKey;
    switch (power) {
        case 1:
            return localizedWithKey("HUMAN_READABLE_BYTES_KILOBYTES", "kB");
        case 2:
            return localizedWithKey("HUMAN_READABLE_BYTES_MEGABYTES", "MB");
        case 3:
            return localizedWithKey("HUMAN_READABLE_BYTES_GIGABYTES", "GB");
        case 4:
            return localizedWithKey("HUMAN_READABLE_BYTES_TERABYTES", "TB");
        case 5:
            return localizedWithKey("HUMAN_READABLE_BYTES_PETABYTES", "PB");
        default:
            return localizedWithKey("HUMAN_READABLE_BYTES_EXEBYTES", "EB");
    }
}

std::string textOfNumber(double value, unsigned decimals, const std::string& unit) {
    using velto::localizedFormatInUserLocale;
    switch (decimals) {
        case 0:
            return localizedFormatInUserLocale("HUMAN_READABLE_BYTES_LOCALIZED_FORMAT_ZERO_DIGITS",
                                               "%1$0.0f %2$@", value, unit);
        case 1:
            return localizedFormatInUserLocale("HUMAN_READABLE_BYTES_LOCALIZED_FORMAT_ONE_DIGIT",
                                               "%1$0.01f %2$@", value, unit);
        default:
            return localizedFormatInUserLocale("HUMAN_READABLE_BYTES_LOCALIZED_FORMAT_TWO_DIGITS",
                                               "%1$0.02f %2$@", value, unit);
    }
}

}  // namespace

std::string MZHumanReadableStringFromBytes(std::uint64_t count) {
    return MZHumanReadableStringFromBytesUsingDivisor(count, defaultDivisor);
}

std::string MZHumanReadableStringFromBytesUsingDivisor(std::uint64_t count, std::uint64_t divisor) {
    // Required: by 0 or 1 every unit begins at that count, so the largest is named, undivided.
    unsigned power = divisor < 2 && count >= divisor ? largestPower : 0;
    std::uint64_t unit = 1;
    // A unit beyond 64 bits is one that no count reaches.
    while (divisor > 1 && power < largestPower &&
           unit <= std::numeric_limits<std::uint64_t>::max() / divisor && count >= unit * divisor) {
        unit *= divisor;
        ++power;
    }
    const std::string name = power == 0 ? nameOfByteCount(count) : nameOfPower(power);
    double value = static_cast<double>(count) / static_cast<double>(unit);

    constexpr std::array<double, 3> scales{1, 10, 100};
    const auto cut = [&](unsigned decimals) {
        return std::trunc(value * scales[decimals]) / scales[decimals];
    };
    unsigned decimals = decimalsOfPower[power];
    while (decimals > 0 && cut(decimals) == cut(decimals - 1)) {
        --decimals;
    }
    if (decimals > 0) {
        value = cut(decimals);
    }
    return textOfNumber(value, decimals, name);
}
