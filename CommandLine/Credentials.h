#pragma once

#include <CommandLine/Failure.h>
#include <CommandLine/Secrets.h>

#include <memory>
#include <string>
#include <vector>

class VeltoAuthenticationContextImpl;

namespace velto::cli {

class Invocation;

/// The one form of signing in that was chosen.
struct Credentials {
    enum class Form { none, password, session, token, apiKey };

    Form form = Form::none;
    std::string user;
    Secret password;
    Secret sessionID;
    Secret sharedSecret;
    Secret token;  ///< The bytes of the token file.
    std::string apiKey;
    std::string issuer;
    std::vector<std::string> warnings;  ///< Files with secrets that others may read.

    /// From the options, else from the environment; the user also from the settings. `form` is none
    /// when nothing is given. False, with the reason, when what is given does not go together or
    /// cannot be read.
    bool read(const Invocation& invocation, EnvironmentSecrets& secrets, Failure& failure);

    /// Null for none and for a password. False, with the reasons, when the credentials are no good.
    bool makeContext(std::shared_ptr<VeltoAuthenticationContextImpl>& context,
                     Failure& failure) const;
};

}  // namespace velto::cli
