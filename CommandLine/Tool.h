#pragma once

#include <CommandLine/Failure.h>

#include <optional>
#include <string>

namespace velto::cli {

class Frontend;
class Invocation;

/// The delivery tool that would be run; none, with what was looked for, when there is none. A tool
/// that was named with --tool is that one or none. Warns of better ones that are not safe to run.
std::optional<std::string> findTool(Frontend& frontend,
                                    const Invocation& invocation,
                                    Failure& failure);

/// A sentence, safe to print: why the program that is at the path would not be run. Empty when it
/// would, and when there is none.
std::string reasonAgainstTool(const std::string& path);

}  // namespace velto::cli
