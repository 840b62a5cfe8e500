#pragma once

#include <VelmDrovan/Accounts.h>
#include <VelmDrovan/CommandLine.h>
#include <VelmDrovan/Console.h>

#include <string>
#include <vector>

namespace sandbox {

struct Identity {
    std::string name;                    ///< To show.
    std::vector<std::string> providers;  ///< Those that it may deliver for.
};

/// Checks the one form of credentials that the command line gives. Throws a Failure.
Identity signIn(const CommandLine& line, const Accounts& accounts, const Console& console);

/// Throws a Failure unless the identity may deliver for the provider.
void requireProvider(const Identity& identity, const std::string& provider);

/// The same for the command line's provider; without one the identity must have but one.
void checkProvider(const CommandLine& line, const Identity& identity);

}  // namespace sandbox
