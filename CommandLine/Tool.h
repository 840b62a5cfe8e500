#pragma once

#include <CommandLine/Failure.h>

#include <optional>
#include <string>

namespace velto::cli {

class Invocation;

/// The delivery tool that would be run; none, with what was looked for, when there is none. A tool
/// that was named with --tool is that one or none.
std::optional<std::string> findTool(const Invocation& invocation, Failure& failure);

}  // namespace velto::cli
