#include <VeltoConnectFoundation/DeliveryTool/ToolTransferLedger.h>

#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <algorithm>
#include <charconv>

using Marker = ToolLineMarker;

namespace {

/// Longer names are told apart by their ends: the look-up of a line stays short.
constexpr std::size_t longestName = 1024;

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

void ToolTransferLedger::enter(const ToolLineMarkers& markers,
                               const std::optional<ToolLineCounts>& counts) {
    if (markers.has(Marker::computingTotalSize) || markers.has(Marker::diagnosticTest)) {
        *this = {};
    }
    if (markers.has(Marker::addingFile)) {
        announce(markers.after(Marker::addingFile));
    }
    if (transfer_.size == 0) {
        if (markers.has(Marker::settingTotalSize)) {
            transfer_.size = static_cast<std::uint64_t>(std::max<std::int64_t>(
                velto::leadingInteger(markers.after(Marker::settingTotalSize)), 0));
        }
    } else if (markers.has(Marker::skippedFile)) {
        constexpr std::string_view nameMarker = "The file named ";
        const std::string_view before = markers.before(Marker::skippedFile);
        if (const std::size_t start = before.find(nameMarker); start != std::string_view::npos) {
            skip(before.substr(start + nameMarker.size()));
        }
    } else if (counts) {
        send(*counts);
    } else if (markers.has(Marker::schedulingRestart)) {
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
    file = {static_cast<std::uint64_t>(std::max<std::int64_t>(size, 0)), 0, false};
}

void ToolTransferLedger::skip(std::string_view name) {
    const auto found = files_.find(name);
    if (found == files_.end()) {
        return;
    }
    // What this run has sent is skipped after a restart, and stays sent; so does an empty file.
    if (File& file = found->second; !file.isSkipped && !file.hasArrived()) {
        transfer_.sent -= file.sent;
        transfer_.skipped += file.size;
        file = {file.size, 0, true};
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
    const auto sent = static_cast<std::uint64_t>(counts.sent);
    file.size = static_cast<std::uint64_t>(counts.total);
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
