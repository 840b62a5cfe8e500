#pragma once

#include <span>
#include <string>
#include <string_view>

namespace velto::cli {

/// The word that makes `velto` answer a shell, in the place of a command; its help does not name
/// it.
inline constexpr std::string_view completionWord = "__complete";

/// What may stand in the place of the last of the words that follow "velto" on a command line: a
/// line with "files" or "folders", for the shell to list them, or with "words", and a line for each
/// word that begins like the last one: the word, a tabulator, and what it means. The value of
/// "--option=value" comes with its option.
std::string completions(std::span<const std::string> words);

}  // namespace velto::cli
