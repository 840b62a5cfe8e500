#pragma once

#include <CommandLine/Command.h>

#include <string>

namespace velto::cli {

class Console;

/// "velto upload PACKAGE [OPTIONS]"
std::string usageOf(const Command& command);
/// "-u, --user USER"; without a letter, "--user USER".
std::string optionText(const Option& option);

/// The help of a command or a family of them, of `velto` itself for null.
std::string helpText(const Command* command, const Console& console);

}  // namespace velto::cli
