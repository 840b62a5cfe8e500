#pragma once

#include <CommandLine/ExitCode.h>
#include <VeltoConnectFoundation/Platform/Process.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velto::cli {

/// What a person is told of a failure: what happened, why, and what to do next.
struct Failure {
    ExitCode exitCode = ExitCode::failed;
    std::string what = {};
    std::vector<std::string> why = {};
    std::string next = {};
    std::vector<Error> errors = {};       ///< What it was made from, for programs that read along.
    std::string_view outcome = "failed";  ///< For programs, too; a stop is one by its exit code.
};

/// How the errors of one domain and code end the program, and what helps against them.
struct FailureKind {
    static constexpr std::int64_t anyCode = 0;

    std::string_view domain;
    std::int64_t code;
    ExitCode exitCode;
    const char* next;  ///< English; marked for translation.
};

/// The one table of failures; the first row that fits an error holds.
std::span<const FailureKind> failureKinds();
const FailureKind& failureKind(const Error& error);

/// What the system said, where an error only says that a copy or a digest failed; else the error.
Error systemReason(const Error& error);

/// A refused sign-in outweighs what is wrong with the package, and that what may pass by itself.
Failure failureOfErrors(std::string what, const std::vector<Error>& errors);
Failure usageFailure(std::string what, std::string next);

/// How the delivery tool ended, in a sentence.
std::string endOfTool(const ProcessExit& exit);

}  // namespace velto::cli
