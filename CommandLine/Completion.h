#pragma once

#include <CommandLine/Command.h>

#include <string>
#include <vector>

namespace velto::cli {

/// The scripts that complete `velto` in the three shells, made from the description of the
/// commands.
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

/// The options of a command with the common ones; of `velto` itself for null.
std::vector<const Option*> completedOptions(const Command* command);
/// "KEY1 KEY2 …" of all settings.
std::string settingKeys();
std::string joined(std::span<const std::string_view> words);

}  // namespace velto::cli
