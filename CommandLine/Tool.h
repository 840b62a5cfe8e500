#pragma once

#include <CommandLine/Failure.h>

#include <optional>
#include <string>
#include <vector>

namespace velto::cli {

class Frontend;
class Invocation;

/// The paths at which the tool is looked for on this system, in their order.
std::vector<std::string> searchedPlaces();

/// The delivery tool that would be run; none, with the reasons, when there is none or when it is no
/// program. A tool that was named with --tool is that one or none. Warns of better ones that are
/// not safe to run.
std::optional<std::string> findTool(Frontend& frontend,
                                    const Invocation& invocation,
                                    Failure& failure);

/// A sentence, safe to print: why the program that is at the path would not be run. Empty when it
/// would, and when there is none.
std::string reasonAgainstTool(const std::string& path);

}  // namespace velto::cli
