#include <VeltoConnectFoundation/Platform/DateFormat.h>

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <unicode/udat.h>

#include <array>
#include <chrono>
#include <cmath>

namespace velto {

namespace {

/// Nearest, since most milliseconds are no doubles and may lie just below their own number.
double unixMilliseconds(Date date) {
    return std::floor(date.unixSeconds() * 1000 + 0.5);
}

struct CloseFormat {
    void operator()(UDateFormat* format) const noexcept { udat_close(format); }
};

}  // namespace

class DateFormat::Content {
public:
    Lock lock;
    std::unique_ptr<UDateFormat, CloseFormat> format VELTO_GUARDED_BY(lock);
};

DateFormat::DateFormat(std::string_view pattern, std::string_view locale, std::string_view timeZone)
    : content_(std::make_unique<Content>()) {
    const std::u16string patternUnits = utf16FromUTF8(pattern);
    const std::u16string zoneUnits = utf16FromUTF8(timeZone);
    UErrorCode status = U_ZERO_ERROR;
    const Guard guard(content_->lock);
    content_->format.reset(udat_open(
        UDAT_PATTERN, UDAT_PATTERN, std::string(locale).c_str(),
        zoneUnits.empty() ? nullptr : zoneUnits.data(), static_cast<std::int32_t>(zoneUnits.size()),
        patternUnits.data(), static_cast<std::int32_t>(patternUnits.size()), &status));
    if (U_FAILURE(status)) {
        content_->format.reset();
    }
}

DateFormat::~DateFormat() = default;
DateFormat::DateFormat(DateFormat&&) noexcept = default;
DateFormat& DateFormat::operator=(DateFormat&&) noexcept = default;

std::string DateFormat::stringFromDate(Date date) const {
    const Guard guard(content_->lock);
    if (content_->format == nullptr) {
        return {};
    }
    std::u16string units(64, u'\0');
    for (;;) {
        UErrorCode status = U_ZERO_ERROR;
        const std::int32_t length =
            udat_format(content_->format.get(), unixMilliseconds(date), units.data(),
                        static_cast<std::int32_t>(units.size()), nullptr, &status);
        const auto size = static_cast<std::size_t>(length);
        if (status == U_BUFFER_OVERFLOW_ERROR && size > units.size()) {
            units.resize(size);
        } else if (U_FAILURE(status)) {
            return {};
        } else {
            return utf8FromUTF16(std::u16string_view(units).substr(0, size));
        }
    }
}

std::optional<Date> DateFormat::dateFromString(std::string_view text) const {
    const Guard guard(content_->lock);
    if (content_->format == nullptr) {
        return std::nullopt;
    }
    const std::u16string units = utf16FromUTF8(text);
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t position = 0;
    const UDate milliseconds =
        udat_parse(content_->format.get(), units.data(), static_cast<std::int32_t>(units.size()),
                   &position, &status);
    if (U_FAILURE(status) || position == 0) {
        return std::nullopt;
    }
    return Date::fromUnixSeconds(milliseconds / 1000);
}

std::string isoStringFromDate(Date date) {
    // Between the reform of the calendar and the end of four-digit years the days simply count.
    constexpr double first = -12219292800000;
    constexpr double last = 253402300799999;
    const double milliseconds = unixMilliseconds(date);
    const bool isSimple = milliseconds >= first && milliseconds <= last;
    if (!isSimple) {
        static const auto* const format =
            new DateFormat("yyyy-MM-dd'T'HH:mm:ss.SSS'Z'", "en_US_POSIX", "GMT");
        return format->stringFromDate(date);
    }
    using std::chrono::days;
    using std::chrono::sys_time;
    const sys_time<std::chrono::milliseconds> time{
        std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds))};
    const auto midnight = std::chrono::floor<days>(time);
    const std::chrono::year_month_day day(midnight);
    auto rest = static_cast<unsigned>((time - midnight).count());

    std::string text = "0000-00-00T00:00:00.000Z";
    const auto put = [&](std::size_t lastPlace, std::size_t count, unsigned number) {
        for (; count > 0; --count, number /= 10) {
            text[lastPlace--] = static_cast<char>('0' + number % 10);
        }
    };
    const auto take = [&](unsigned base) {
        const unsigned part = rest % base;
        rest /= base;
        return part;
    };
    put(22, 3, take(1000));
    put(18, 2, take(60));
    put(15, 2, take(60));
    put(12, 2, rest);
    put(9, 2, static_cast<unsigned>(day.day()));
    put(6, 2, static_cast<unsigned>(day.month()));
    put(3, 4, static_cast<unsigned>(static_cast<int>(day.year())));
    return text;
}

}  // namespace velto
