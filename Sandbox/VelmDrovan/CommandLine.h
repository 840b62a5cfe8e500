#pragma once

#include <VelmDrovan/Console.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sandbox {

/// What the arguments say, their quote characters taken off.
struct CommandLine {
    bool version = false;
    std::string mode;
    std::string package;
    std::string user;

    // As given: secrets are names of environment variables ("@env:NAME").
    std::optional<std::string> password, sessionID, sharedSecret, token, headers, apiKey, apiIssuer;

    std::string provider;  ///< "-vtc_provider" before "-s".
    std::string transport;
    std::string serviceAddress;
    std::string verifyFormat;
    std::uint64_t throttle = 0;  ///< kbit/s; 0 is none.
    bool checksums = true;
    bool indicator = false;
    Console::Verbosity verbosity = Console::Verbosity::Normal;

    std::map<std::string, std::string> properties;  ///< "-Dname=value"
    std::vector<std::string> warnings;              ///< Worded; to be printed.
};

/// Takes off the quote characters of an argument that begins with one, as a shell would:
/// 'it'\''s' is it's. None when a quote stays open.
std::optional<std::string> withoutQuotes(std::string_view argument);

/// Throws a usage Failure for what cannot be understood.
CommandLine parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace sandbox
