#pragma once

#include <string>
#include <vector>

namespace sandbox {

/// A person. An empty credential is one that this account cannot sign in with.
struct User {
    std::string name;
    std::string password;
    std::string appPassword;  ///< When set, the account password alone is not enough.
    std::string token;
    std::string sessionID, sharedSecret;
    std::string identity, identityToken;  ///< The account session's headers.
    bool locked = false;
    std::vector<std::string> providers;
};

/// An API key.
struct APIKey {
    std::string id;
    std::string issuer;
    std::string publicKey;  ///< PEM; empty: signatures of this key cannot be checked.
    std::vector<std::string> providers;
};

struct Accounts {
    std::vector<User> users;
    std::vector<APIKey> keys;
};

/// The file named by VELM_SANDBOX_ACCOUNTS, else accounts.json beside the program.
Accounts readAccounts();

}  // namespace sandbox
