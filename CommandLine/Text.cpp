#include <CommandLine/Text.h>

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <vector>

namespace velto::cli {

namespace {

struct Range {
    char32_t first, last;
};
/// Marks that stand on the character before them, and what is not seen at all.
constexpr Range zeroWidth[] = {
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x064B, 0x065F},  {0x1AB0, 0x1AFF},
    {0x1DC0, 0x1DFF}, {0x200B, 0x200F}, {0x202A, 0x202E}, {0x2060, 0x2064},  {0x20D0, 0x20FF},
    {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF}, {0xE0100, 0xE01EF}};
constexpr Range doubleWidth[] = {
    {0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},
    {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xA960, 0xA97F},   {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},
    {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t codePoint) {
    return std::ranges::any_of(
        ranges, [&](Range range) { return codePoint >= range.first && codePoint <= range.last; });
}

std::size_t columnsOf(char32_t codePoint) {
    if (codePoint < 0x300) {
        return 1;
    }
    return isIn(zeroWidth, codePoint) ? 0 : isIn(doubleWidth, codePoint) ? 2 : 1;
}

}  // namespace

void appendUTF8(std::string& text, char32_t codePoint) {
    const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xC0 | (codePoint >> 6));
        put(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        put(0xE0 | (codePoint >> 12));
        put(0x80 | ((codePoint >> 6) & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    } else {
        put(0xF0 | (codePoint >> 18));
        put(0x80 | ((codePoint >> 12) & 0x3F));
        put(0x80 | ((codePoint >> 6) & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    }
}

std::string withoutSecrets(std::string_view text) {
    const std::array<FormatArgument, 1> argument{FormatArgument(text)};
    return MZLogMaskedMessage("%@", argument);
}

std::string printable(std::string_view text) {
    const std::string masked = withoutSecrets(text);
    std::string result;
    result.reserve(masked.size());
    for (std::string_view rest = masked; !rest.empty();) {
        const char32_t codePoint = takeCodePoint(rest);
        if (codePoint == '\n' || codePoint == '\r' || codePoint == '\t') {
            result += ' ';
        } else {
            appendUTF8(result, isControlCharacter(codePoint) ? replacementCharacter : codePoint);
        }
    }
    result.erase(result.find_last_not_of(' ') + 1);
    return result;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        columns += columnsOf(takeCodePoint(text));
    }
    return columns;
}

std::string truncated(std::string_view text, std::size_t columns) {
    // Marks take no column of their own, however many there are.
    constexpr std::size_t mostBytesOfColumn = 32;
    const bool isShort = text.size() <= columns * mostBytesOfColumn;
    if (isShort && columnsOf(text) <= columns) {
        return std::string(text);
    }
    if (columns == 0) {
        return {};
    }
    std::string result;
    std::size_t used = 1;  // the mark's own
    while (!text.empty()) {
        const char32_t codePoint = takeCodePoint(text);
        used += columnsOf(codePoint);
        if (used > columns || result.size() >= columns * mostBytesOfColumn) {
            break;
        }
        appendUTF8(result, codePoint);
    }
    result.erase(result.find_last_not_of(" …") + 1);
    return result + "…";
}

std::string timeStamp() {
    using namespace std::chrono;
    const auto milli = milliseconds(std::llround(Clock::wallTime().unixSeconds() * 1000));
    const sys_time<milliseconds> time(milli);
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    return format("%04d-%02u-%02uT%02ld:%02ld:%02ld.%03ldZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<std::int64_t>(clock.hours().count()),
                  static_cast<std::int64_t>(clock.minutes().count()),
                  static_cast<std::int64_t>(clock.seconds().count()),
                  static_cast<std::int64_t>(clock.subseconds().count()));
}

std::string durationText(double seconds) {
    if (!(seconds >= 0) || seconds >= 1000.0 * 3600) {
        return {};
    }
    const auto whole = static_cast<std::int64_t>(std::llround(seconds));
    const std::int64_t hours = whole / 3600;
    return hours > 0 ? format("%ld:%02ld:%02ld", hours, whole / 60 % 60, whole % 60)
                     : format("%ld:%02ld", whole / 60, whole % 60);
}

std::string wrapped(std::string_view text, std::size_t indent, std::size_t first) {
    constexpr std::size_t width = 79;
    std::string result;
    std::size_t column = first;
    bool isLineStart = true;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t columns = columnsOf(word);
        if (!isLineStart && column + 1 + columns > width) {
            result += '\n';
            result.append(indent, ' ');
            column = indent;
            isLineStart = true;
        }
        if (!isLineStart) {
            result += ' ';
            ++column;
        }
        result += word;
        column += columns;
        isLineStart = false;
    }
    return result;
}

std::string shellQuoted(std::string_view text) {
    constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:=@%+,";
    if (!text.empty() && text.find_first_not_of(plain) == std::string_view::npos) {
        return std::string(text);
    }
    std::string quoted = "'";
    for (const char character : text) {
        character == '\'' ? quoted += "'\\''" : quoted += character;
    }
    return quoted + "'";
}

std::size_t editDistance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t index = 0; index < row.size(); ++index) {
        row[index] = index;
    }
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min(
                {above + 1, row[j - 1] + 1, diagonal + (left[i - 1] == right[j - 1] ? 0U : 1U)});
            diagonal = above;
        }
    }
    return row[right.size()];
}

}  // namespace velto::cli
