#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string>
#include <string_view>

/// What comes from outside, on its way to a terminal or a log.
namespace velto {

/// Stands for a byte that belongs to no character.
inline constexpr char32_t replacementCharacter = 0xFFFD;

/// The next character of strict UTF-8, which becomes shorter; replacementCharacter for each byte
/// that belongs to none. `text` is not empty.
VELTO_EXPORT char32_t takeCodePoint(std::string_view& text) noexcept;

/// Whether a character does something to what stands around it, or cannot be seen: the controls
/// (C0, DEL, C1), line and paragraph separators, the marks that turn the direction of writing, and
/// what has no width. The joiners of scripts and emoji are none of them.
VELTO_EXPORT bool isControlCharacter(char32_t character) noexcept;

/// A log line as one record that no text within can end, hide or imitate: what controls stands as
/// its escape ("\x1b", "\r", "\u202e"), a byte that is no UTF-8 as "\xE4". Tabs stay. A line feed
/// stays too, and what follows it begins with `margin`, so that no line of it looks like a record
/// of its own; those at the end are cut off.
VELTO_EXPORT std::string escapedLogLine(std::string_view line, std::string_view margin = "\t");

}  // namespace velto
