#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// Dates by pattern ("yyyy-MM-dd HH:mm:ss.SSS", in the syntax of Unicode's date patterns).
///
/// Making one is slow (tens of microseconds, the first of a process many milliseconds): keep it.
/// Any thread; the members take its lock.
class VELTO_EXPORT DateFormat {
public:
    /// `timeZone` is an IANA name; empty means the local one. The locale decides what "YYYY" (the
    /// week-based year) and the names of days and months are.
    explicit DateFormat(std::string_view pattern,
                        std::string_view locale = "en_US_POSIX",
                        std::string_view timeZone = {});
    ~DateFormat();
    DateFormat(DateFormat&&) noexcept;
    DateFormat& operator=(DateFormat&&) noexcept;

    /// To the nearest millisecond. Empty when the pattern or the date makes no sense.
    std::string stringFromDate(Date date) const;

    /// Lenient: fields may be out of range, and what follows them is ignored.
    std::optional<Date> dateFromString(std::string_view text) const;

private:
    class Content;
    std::unique_ptr<Content> content_;
};

/// As the pattern "yyyy-MM-dd'T'HH:mm:ss.SSS'Z'" in GMT, but fast. Any thread.
VELTO_EXPORT std::string isoStringFromDate(Date date);

}  // namespace velto
