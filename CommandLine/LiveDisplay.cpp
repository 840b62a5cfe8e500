#include <CommandLine/LiveDisplay.h>

#include <CommandLine/Text.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace velto::cli {

namespace {

constexpr std::size_t widestBar = 28;
constexpr std::size_t narrowestBar = 10;
constexpr std::size_t narrowestPhase = 24;
constexpr std::string_view gap = "  ";

std::string repeated(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t index = 0; index < count; ++index) {
        result += text;
    }
    return result;
}

std::string bar(double percent, std::size_t width, const Console& console) {
    const auto output = Console::Stream::output;
    const auto halves = static_cast<std::size_t>(
        std::floor(std::clamp(percent, 0.0, 100.0) / 100 * static_cast<double>(2 * width)));
    if (!console.speaksUTF8()) {
        return "[" + repeated("#", halves / 2) + repeated("-", width - halves / 2) + "]";
    }
    std::string done = repeated("━", halves / 2);
    std::size_t used = halves / 2;
    if (halves % 2 != 0) {
        done += "╸";
        ++used;
    }
    // Without colours the rest is thinner, with them only fainter.
    const std::string_view rest = console.hasColours(output) ? "━" : "─";
    return console.inked(output, Ink::good, done) +
           console.inked(output, Ink::faint, repeated(rest, width - used));
}

/// Truncated, where "…" may take more than its one column.
std::string cut(const std::string& text, std::size_t columns, const Console& console) {
    if (columnsOf(text) <= columns) {
        return text;
    }
    const std::size_t more = columnsOf(console.shown("…")) - 1;
    return console.shown(truncated(text, columns - std::min(columns, more)));
}

/// A column that keeps its place while the text changes.
std::string padded(const std::string& text, std::size_t width) {
    const std::size_t columns = columnsOf(text);
    return columns >= width ? text : std::string(width - columns, ' ') + text;
}

}  // namespace

std::string LiveDisplay::line(const Progress& progress, std::size_t width, const Console& console) {
    struct Field {
        std::string text;
        std::size_t columns;
    };
    // While something is transferred, a field has its place before it has its text.
    const bool isTransfer = progress.size != 0;
    const auto field = [&](std::string text, std::size_t least) {
        text = text.empty() && !isTransfer ? text : padded(console.shown(text), least);
        const std::size_t columns = columnsOf(text);
        return Field{std::move(text), columns};
    };
    std::string time = remainingText(progress);
    if (time.empty()) {
        time = durationText(progress.elapsed);
    }
    const Field percent = field(percentText(progress), 4);
    const Field bytes = field(bytesText(progress), 17);
    const Field rate = field(rateText(progress), 9);
    const Field clock = field(time, 9);

    const std::string wholePhase = console.shown(progress.phase);
    const std::size_t phaseLeast = std::min(columnsOf(wholePhase), narrowestPhase);
    const std::size_t frame = console.speaksUTF8() ? 0 : 2;
    std::vector<const Field*> fields{&percent, &bytes, &rate, &clock};
    const auto columnsOfFields = [&] {
        std::size_t sum = 0;
        for (const Field* each : fields) {
            sum += each->columns == 0 ? 0 : each->columns + gap.size();
        }
        return sum;
    };
    std::size_t barColumns = progress.percent ? narrowestBar + frame + gap.size() : 0;
    const auto isTooWide = [&] { return columnsOfFields() + barColumns + phaseLeast > width; };
    // Left out in this order; then the phase becomes shorter, and last the percentage goes.
    for (const Field* const each : {&bytes, &rate, &clock}) {
        if (isTooWide()) {
            std::erase(fields, each);
        }
    }
    if (isTooWide()) {
        barColumns = 0;
    }
    if (columnsOfFields() > width) {
        fields.clear();
    }
    const std::size_t room = width - std::min(width, columnsOfFields() + barColumns);
    const std::string phase = cut(wholePhase, room, console);
    if (barColumns != 0) {
        const std::size_t spare = room - columnsOf(phase);
        barColumns += std::min(spare, widestBar - narrowestBar);
    }
    std::string text = phase;
    if (barColumns != 0) {
        text.append(gap).append(
            bar(progress.percent.value_or(0), barColumns - gap.size() - frame, console));
    }
    for (const Field* each : fields) {
        if (each->columns != 0) {
            text.append(gap).append(
                each == &percent ? each->text
                                 : console.inked(Console::Stream::output, Ink::faint, each->text));
        }
    }
    return text;
}

void LiveDisplay::progressed(const Progress& progress, Time now) {
    nextDraw_ = now + std::chrono::milliseconds(100);
    console_.setLiveLine(line(progress, console_.width(), console_));
}

}  // namespace velto::cli
