#include <CommandLine/ExitCode.h>

namespace velto::cli {

namespace {

constexpr ExitCodeMeaning meanings[] = {
    {ExitCode::done, "done"},
    {ExitCode::failed, "failed"},
    {ExitCode::usage, "the command line or the settings cannot be understood"},
    {ExitCode::signIn, "the store refused the sign-in"},
    {ExitCode::tryAgain,
     "failed for a passing reason, or not confirmed by the tool: worth trying again"},
    {ExitCode::toolNotFound, "the delivery tool was not found, or is no program"},
    {ExitCode::stopped, "stopped by the user"},
};

}  // namespace

std::string_view outcomeOf(ExitCode code) {
    return code == ExitCode::done ? "done" : code == ExitCode::stopped ? "stopped" : "failed";
}

std::span<const ExitCodeMeaning> exitCodeMeanings() {
    return meanings;
}

}  // namespace velto::cli
