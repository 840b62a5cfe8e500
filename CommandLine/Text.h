#pragma once

#include <VeltoConnectFoundation/Platform/DisplayText.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace velto::cli {

/// With secrets hidden, as in a log line; any bytes.
std::string withoutSecrets(std::string_view text);
/// Fit for a terminal: valid UTF-8 on one line, without control characters, secrets hidden.
std::string printable(std::string_view text);

void appendUTF8(std::string& text, char32_t codePoint);

/// Columns of a terminal that a printable text takes.
std::size_t columnsOf(std::string_view text);
/// At most `columns` wide, with "…" at the end of what was cut.
std::string truncated(std::string_view text, std::size_t columns);

/// Now, in UTC, as "2026-01-31T12:34:56.789Z".
std::string timeStamp();
/// "0:05", "1:02:03"; whole seconds, "" beyond 999 hours.
std::string durationText(double seconds);

/// Filled to 79 columns, each line after `indent` blanks but the first, which follows on text that
/// ends in column `first`. No line feed at the end.
std::string wrapped(std::string_view text, std::size_t indent, std::size_t first);

/// As a shell reads it.
std::string shellQuoted(std::string_view text);

/// What somebody may have meant by `word`: at most two letters off; empty when nothing is near.
template <class Words>
std::string_view nearest(std::string_view word, const Words& words);

std::size_t editDistance(std::string_view left, std::string_view right);

template <class Words>
std::string_view nearest(std::string_view word, const Words& words) {
    std::string_view best;
    std::size_t distance = 3;
    for (const std::string_view candidate : words) {
        if (const std::size_t own = editDistance(word, candidate); own < distance) {
            distance = own;
            best = candidate;
        }
    }
    return best;
}

}  // namespace velto::cli
