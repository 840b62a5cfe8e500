#pragma once

#include <span>
#include <string_view>

namespace velto::cli {

/// How `velto` ends: a promise to scripts, listed by its help and its manual page.
enum class ExitCode : int {
    done = 0,
    failed = 1,
    usage = 2,
    signIn = 4,
    tryAgain = 5,
    toolNotFound = 6,
    stopped = 130,
};

/// "done", "failed" or "stopped": the outcome that JSON and the log tell.
std::string_view outcomeOf(ExitCode code);

struct ExitCodeMeaning {
    ExitCode code;
    std::string_view meaning;
};

/// In the order of the codes.
std::span<const ExitCodeMeaning> exitCodeMeanings();

}  // namespace velto::cli
