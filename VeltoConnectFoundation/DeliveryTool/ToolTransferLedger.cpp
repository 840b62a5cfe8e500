#include <VeltoConnectFoundation/DeliveryTool/ToolTransferLedger.h>

#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <algorithm>
#include <charconv>
#include <initializer_list>

using Marker = ToolLineMarker;

namespace {

/// Longer names are told apart by their ends: the look-up of a line stays short.
constexpr std::size_t longestName = 1024;

constexpr std::string_view fileNamed = "The file named ";

bool holds(std::string_view text, std::initializer_list<std::string_view> words) noexcept {
    return std::ranges::any_of(
        words, [&](std::string_view word) { return text.find(word) != std::string_view::npos; });
}

/// The one that begins a line's matter; "ERROR: … Scheduling automatic restart in" is a restart.
std::optional<Marker> firstMarker(const ToolLineMarkers& markers) noexcept {
    std::optional<Marker> first;
    for (std::size_t index = 0; index < static_cast<std::size_t>(Marker::count); ++index) {
        const auto marker = static_cast<Marker>(index);
        if (markers.has(marker) && marker != Marker::percentCompleted &&
            marker != Marker::skippedFile &&
            (!first || markers.before(marker).size() < markers.before(*first).size())) {
            first = marker;
        }
    }
    return first == Marker::error && markers.has(Marker::schedulingRestart)
               ? Marker::schedulingRestart
               : first;
}

/// Two whole numbers with a slash between them.
bool readCounts(std::string_view text, std::int64_t& sent, std::int64_t& total) {
    const char* const end = text.data() + text.size();
    const auto [slash, sentProblem] = std::from_chars(text.data(), end, sent);
    if (sentProblem != std::errc() || slash == end || *slash != '/') {
        return false;
    }
    return std::from_chars(slash + 1, end, total).ec == std::errc();
}

}  // namespace

std::optional<ToolLineCounts> ToolLineCounts::of(std::string_view line) noexcept {
    // The last word that ends with a comma holds the counts, the word before it names the file.
    std::size_t comma = line.rfind(',');
    while (comma != std::string_view::npos && comma + 1 < line.size() && line[comma + 1] != ' ') {
        comma = comma == 0 ? std::string_view::npos : line.rfind(',', comma - 1);
    }
    if (comma == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t space = line.rfind(' ', comma);
    ToolLineCounts counts;
    if (space == std::string_view::npos ||
        !readCounts(line.substr(space + 1, comma - space - 1), counts.sent, counts.total)) {
        return std::nullopt;
    }
    counts.before = line.substr(0, space);
    return counts;
}

std::string_view ToolLineCounts::lastWord() const noexcept {
    const std::size_t space = before.rfind(' ');
    return space == std::string_view::npos ? before : before.substr(space + 1);
}

ToolLineKind toolLineKind(const ToolLineMarkers& markers,
                          const std::optional<ToolLineCounts>& counts) noexcept {
    if (markers.has(Marker::addingFile)) {
        return ToolLineKind::addingFile;
    }
    if (counts) {
        return ToolLineKind::counts;
    }
    if (markers.has(Marker::skippedFile) &&
        holds(markers.before(Marker::skippedFile), {fileNamed})) {
        return ToolLineKind::skippedFile;
    }
    const std::optional<Marker> first = firstMarker(markers);
    if (!first || holds(markers.before(*first), {"JSON-START>>", "NewPackageName = "})) {
        return ToolLineKind::other;
    }
    switch (*first) {
        case Marker::settingTotalSize:
            return ToolLineKind::totalSize;
        case Marker::computingTotalSize:
        case Marker::diagnosticTest:
            return ToolLineKind::reset;
        case Marker::schedulingRestart:
            return ToolLineKind::restart;
        case Marker::error:
        case Marker::errorList: {
            const bool isOne =
                *first == Marker::error || velto::trimmed(markers.after(Marker::errorList)).empty();
            return isOne && !holds(markers.before(*first), {"DBG:", "WARN:", "INFO-X:"})
                       ? ToolLineKind::error
                       : ToolLineKind::other;
        }
        default:
            return ToolLineKind::other;
    }
}

void ToolTransferLedger::enter(ToolLineKind kind,
                               const ToolLineMarkers& markers,
                               const std::optional<ToolLineCounts>& counts) {
    if (kind == ToolLineKind::reset) {
        *this = {};
    } else if (kind == ToolLineKind::addingFile) {
        announce(markers.after(Marker::addingFile));
    } else if (transfer_.size == 0) {
        if (kind == ToolLineKind::totalSize) {
            transfer_.size = static_cast<std::uint64_t>(std::max<std::int64_t>(
                velto::leadingInteger(markers.after(Marker::settingTotalSize)), 0));
        }
    } else if (kind == ToolLineKind::skippedFile) {
        skip(markers.line());
    } else if (kind == ToolLineKind::counts) {
        send(*counts);
    } else if (kind == ToolLineKind::restart) {
        restart();
    }
}

/// "NAME size: SIZE" or "NAME SIZE"
void ToolTransferLedger::announce(std::string_view text) {
    constexpr std::string_view label = " size:";
    text = text.substr(0, text.find_last_not_of(" \r\n") + 1);
    const std::size_t space = text.rfind(' ');
    if (space == std::string_view::npos) {
        return;
    }
    const std::int64_t size = velto::leadingInteger(text.substr(space + 1));
    std::string_view name = text.substr(0, space);
    if (name.ends_with(label)) {
        name.remove_suffix(label.size());
    }
    File& file = files_.try_emplace(std::string(name)).first->second;
    transfer_.sent -= file.sent;
    transfer_.skipped -= file.isSkipped ? file.size : 0;
    const auto announced = static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0));
    file = {announced, announced, 0, false};
}

void ToolTransferLedger::skip(std::string_view line) {
    // The last of these words are the tool's: the name may hold them, too.
    line = line.substr(0, line.rfind(ToolLineMarkers::text(Marker::skippedFile)));
    const auto found = files_.find(line.substr(line.find(fileNamed) + fileNamed.size()));
    if (found == files_.end()) {
        return;
    }
    // What this run has sent is skipped after a restart, and stays sent; so does an empty file.
    if (File& file = found->second; !file.isSkipped && !file.hasArrived()) {
        transfer_.sent -= file.sent;
        transfer_.skipped += file.size;
        file = {file.announced, file.size, 0, true};
    }
}

void ToolTransferLedger::send(const ToolLineCounts& counts) {
    if (counts.sent < 0 || counts.total < 0) {
        return;
    }
    File& file = fileOf(counts);
    if (file.isSkipped) {
        transfer_.skipped -= file.size;
        file.isSkipped = false;
    }
    if (file.sent == 0) {
        begun_.push_back(&file);
    }
    // What is said beyond a file's size must not stand for what another file lacks.
    file.size = static_cast<std::uint64_t>(counts.total);
    if (file.announced != 0) {
        file.size = std::min(file.size, file.announced);
    }
    const std::uint64_t sent = std::min(static_cast<std::uint64_t>(counts.sent), file.size);
    transfer_.sent += sent - file.sent;
    file.sent = sent;
}

/// What had arrived as a whole is there; all else is sent again.
void ToolTransferLedger::restart() {
    for (File* const file : begun_) {
        if (!file->hasArrived()) {
            transfer_.sent -= file->sent;
            file->sent = 0;
        }
    }
    begun_.clear();
}

/// The file with the longest announced name that the text before the counts ends with; none was
/// announced: the last word is its name.
ToolTransferLedger::File& ToolTransferLedger::fileOf(const ToolLineCounts& counts) {
    const std::string_view before = counts.before;
    if (last_ != nullptr && before == lastBefore_) {
        return *last_;
    }
    lastBefore_ = before;
    std::size_t at = before.size() > longestName ? before.size() - longestName : 0;
    for (;;) {
        if (const auto found = files_.find(before.substr(at)); found != files_.end()) {
            last_ = &found->second;
            return *last_;
        }
        at = before.find(' ', at);
        if (at == std::string_view::npos) {
            last_ = &files_.try_emplace(std::string(counts.lastWord())).first->second;
            return *last_;
        }
        ++at;
    }
}
