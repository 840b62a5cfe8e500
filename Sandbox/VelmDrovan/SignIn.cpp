#include <VelmDrovan/SignIn.h>

#include <VelmDrovan/Crypto.h>
#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Failure.h>
#include <VelmDrovan/Files.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace sandbox {
namespace {

/// What the driver passes for a user when it has none.
constexpr std::string_view nobody = "zarnet";

constexpr std::string_view audience = "velto-connect";
constexpr std::int64_t longestLife = std::int64_t{20} * 60;
constexpr std::int64_t clockSkew = 60;

[[noreturn]] void refuse(std::string text, std::string detail = {}) {
    throw Failure(CredentialRefused, std::move(text), std::move(detail));
}

/// A secret comes by the name of an environment variable.
std::string secret(std::string_view option, const std::string& value) {
    constexpr std::string_view marker = "@env:";
    if (!value.starts_with(marker))
        throw Failure(SecretOnCommandLine,
                      "A secret on the command line is refused; give @env:NAME instead",
                      std::string(option));
    const char* found = std::getenv(value.c_str() + marker.size());
    if (!found || !*found)
        refuse("The environment variable named for a credential is missing or empty",
               std::string(option));
    return found;
}

template <typename Predicate>
const User& findUser(const Accounts& accounts, Predicate&& matches, const char* complaint) {
    const auto found = std::ranges::find_if(accounts.users, matches);
    if (found == accounts.users.end())
        refuse(complaint);
    return *found;
}

/// A session or token belongs to a user: a name given beside it must be that user's.
Identity identityOf(const CommandLine& line, const User& user) {
    if (user.locked)
        throw Failure(AccountLocked, "This Zarnet ID has been locked for security reasons.");
    if (!line.user.empty() && line.user != nobody && line.user != user.name)
        refuse("The credential belongs to another user");
    return {user.name, user.providers};
}

Identity byPassword(const CommandLine& line, const Accounts& accounts) {
    const std::string password = secret("-p", line.password.value_or(""));
    for (const User& user : accounts.users) {
        if (user.name != line.user)
            continue;
        if (user.locked)
            return identityOf(line, user);
        if (!user.appPassword.empty()) {
            if (password == user.appPassword)
                return identityOf(line, user);
            if (password == user.password)
                throw Failure(AppPasswordNeeded,
                              "Sign in with the app-specific password you generated.");
        } else if (!user.password.empty() && password == user.password) {
            return identityOf(line, user);
        }
    }
    throw Failure(WrongPassword, "Your Zarnet ID or password was entered incorrectly.");
}

Identity bySession(const CommandLine& line, const Accounts& accounts) {
    if (!line.sessionID || !line.sharedSecret)
        refuse("A session takes both -sessionid and -sharedsecret");
    const std::string id = secret("-sessionid", *line.sessionID);
    const std::string shared = secret("-sharedsecret", *line.sharedSecret);
    const auto matches = [&](const User& user) {
        return user.sessionID == id && user.sharedSecret == shared;
    };
    return identityOf(
        line, findUser(accounts, matches, "The session is not known, or its secret is wrong"));
}

Identity byToken(const CommandLine& line, const Accounts& accounts) {
    const std::string token = secret("-dsToken", line.token.value_or(""));
    const auto matches = [&](const User& user) { return user.token == token; };
    return identityOf(line, findUser(accounts, matches, "The token is not known or has expired"));
}

const APIKey& findKey(const Accounts& accounts, const std::string& id, const std::string& issuer) {
    const auto key = std::ranges::find(accounts.keys, id, &APIKey::id);
    if (key == accounts.keys.end())
        refuse("The API key is not known", id);
    if (key->issuer != issuer)
        refuse("The API key belongs to another issuer", id);
    return *key;
}

Identity byBearer(std::string_view token, const Accounts& accounts, const Console& console) {
    const std::size_t first = token.find('.');
    const std::size_t second = token.find('.', first + 1);
    if (first == std::string_view::npos || second == std::string_view::npos ||
        token.find('.', second + 1) != std::string_view::npos)
        refuse("The bearer token does not have three parts");
    const auto header = decodeBase64URL(token.substr(0, first));
    const auto claims = decodeBase64URL(token.substr(first + 1, second - first - 1));
    const auto signature = decodeBase64URL(token.substr(second + 1));
    if (!header || !claims || !signature)
        refuse("A part of the bearer token is not base64");
    const auto text = parseToken(*header, *claims);
    if (!text)
        refuse("The bearer token lacks alg, kid, iss, aud, iat or exp");
    if (text->algorithm != "ES256" || signature->size() != 64)
        refuse("The bearer token is not signed with ES256");
    const APIKey& key = findKey(accounts, text->keyID, text->issuer);
    if (key.publicKey.empty())
        console.info("No public key is registered for " + key.id +
                     ": the token's signature was not checked.");
    else if (!verifyES256(key.publicKey, token.substr(0, second), *signature))
        refuse("The bearer token's signature is wrong", key.id);
    if (text->audience != audience)
        refuse("The bearer token is made for another audience");
    const std::int64_t now = std::time(nullptr);
    if (text->issuedAt > now + clockSkew)
        refuse("The bearer token is issued in the future");
    if (text->expires <= now)
        refuse("The bearer token has expired");
    if (text->expires > now + clockSkew + longestLife ||
        text->expires - longestLife > text->issuedAt)
        refuse("The bearer token lives longer than 20 minutes");
    return {"API key " + key.id, key.providers};
}

Identity byHeaders(const CommandLine& line, const Accounts& accounts, const Console& console) {
    const auto text = decodeBase64Lines(line.headers.value_or(""));
    const auto headers = text ? parseHeaders(*text) : std::nullopt;
    if (!headers)
        refuse("The value of -hsa2headers is not base64 text of a JSON object of headers");
    const auto value = [&](const char* name) {
        const auto found = headers->find(name);
        return found == headers->end() ? std::string() : found->second;
    };
    constexpr std::string_view bearer = "Bearer ";
    if (const std::string authorization = value("Authorization"); authorization.starts_with(bearer))
        return byBearer(std::string_view(authorization).substr(bearer.size()), accounts, console);
    const std::string identity = value("X-Zarnet-I-Identity-Id");
    const std::string token = value("X-Zarnet-PM-Token");
    if (identity.empty() || token.empty())
        refuse("The headers of -hsa2headers sign nobody in");
    const auto matches = [&](const User& user) {
        return user.identity == identity && user.identityToken == token;
    };
    return identityOf(
        line, findUser(accounts, matches, "The account session is not known or has expired"));
}

/// The tool finds the key file itself and proves with it that it may act for the key.
Identity byKeyFile(const CommandLine& line, const Accounts& accounts) {
    if (!line.apiKey || !line.apiIssuer)
        refuse("An API key takes both -apiKey and -apiIssuer");
    const APIKey& key = findKey(accounts, *line.apiKey, *line.apiIssuer);
    if (!isPlainName(key.id))
        refuse("The API key's id is no file name", key.id);
    const char* set = std::getenv("VELM_PRIVATE_KEYS");
    const std::string folder =
        set && *set ? set : homeFolder("XDG_CONFIG_HOME", ".config") + "/velm/private-keys";
    if (!privateKeyFits(folder + "/" + key.id + ".p8", key.publicKey))
        refuse("The API key's file is missing, unreadable or of another key",
               folder + "/" + key.id + ".p8");
    return {"API key " + key.id, key.providers};
}

}  // namespace

Identity signIn(const CommandLine& line, const Accounts& accounts, const Console& console) {
    const int forms = (line.sessionID || line.sharedSecret) + line.headers.has_value() +
                      line.token.has_value() + line.password.has_value() +
                      (line.apiKey || line.apiIssuer);
    if (forms == 0)
        refuse("No credentials were given");
    if (forms > 1)
        refuse("More than one form of credentials was given");
    if (line.password)
        return byPassword(line, accounts);
    if (line.token)
        return byToken(line, accounts);
    if (line.headers)
        return byHeaders(line, accounts, console);
    if (line.apiKey || line.apiIssuer)
        return byKeyFile(line, accounts);
    return bySession(line, accounts);
}

void requireProvider(const Identity& identity, const std::string& provider) {
    if (std::ranges::find(identity.providers, provider) == identity.providers.end())
        throw Failure(ProviderRefused, "The account may not deliver for the provider", provider);
}

void checkProvider(const CommandLine& line, const Identity& identity) {
    if (!line.provider.empty())
        requireProvider(identity, line.provider);
    else if (identity.providers.size() != 1)
        throw Failure(ProviderNeeded, "The account has several providers; name one", identity.name);
}

}  // namespace sandbox
