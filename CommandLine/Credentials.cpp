#include <CommandLine/Credentials.h>

#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/PropertyList.h>
#include <VeltoConnectFoundation/Platform/TokenSigner.h>
#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace velto::cli {

namespace {

constexpr const char* ways = markLocalized(
    "Set VELTO_PASSWORD or give --password-stdin; or VELTO_SESSION_ID with VELTO_SHARED_SECRET; or "
    "--token-file FILE; or --api-key ID with --issuer ID.");
constexpr std::size_t longestPassword = std::size_t{64} * 1024;
constexpr std::size_t largestToken = std::size_t{1024} * 1024;

bool readPassword(Secret& password, Failure& failure) {
    if (::isatty(STDIN_FILENO) != 0) {
        failure = usageFailure(
            localized("--password-stdin does not read from a terminal, which would show it."),
            localized("Let another program write the password, or set VELTO_PASSWORD."));
        return false;
    }
    std::string line;
    line.reserve(longestPassword);  // so that no copy of it stays behind
    std::array<char, 4096> block;
    int problem = 0;
    while (line.find('\n') == std::string::npos && line.size() + block.size() <= longestPassword) {
        const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            problem = count < 0 ? errno : 0;
            break;
        }
        line.append(block.data(), static_cast<std::size_t>(count));
    }
    ::explicit_bzero(block.data(), block.size());
    const std::string_view text = std::string_view(line).substr(0, line.find('\n'));
    password = Secret(std::string(text.ends_with('\r') ? text.substr(0, text.size() - 1) : text));
    wipe(line);
    if (password.isEmpty()) {
        failure = usageFailure(localized("Standard input holds no password."), localized(ways));
        if (problem != 0) {
            failure.why.push_back(Error::posix(problem).localizedDescription());
        }
        return false;
    }
    return true;
}

Failure fileFailure(std::string what, std::string why, std::string next) {
    Failure failure{.exitCode = ExitCode::signIn, .what = std::move(what), .next = std::move(next)};
    failure.why.push_back(std::move(why));
    return failure;
}

/// Why a token file cannot be used; empty when it can.
std::string objectionTo(std::string_view token) {
    const auto plist = PropertyList::parse(token);
    if (!plist) {
        return localized("It is no property list.");
    }
    if (!(*plist)["rovquill"].string().empty()) {
        return {};
    }
    // The answer of a sign-in that failed says why.
    for (const std::string_view key : {"userString", "resultString"}) {
        if (const std::string_view text = (*plist)[key].string(); !text.empty()) {
            return localizedFormat("It holds no token but an answer: %@", printable(text));
        }
    }
    return localizedFormat("It has no text “%@”.", "rovquill");
}

bool readToken(const std::string& path, Secret& token, Failure& failure) {
    const std::string next = localized(
        "Give the property list that the store's sign-in answered; velto man says what "
        "it holds.");
    Error error;
    const auto data = FileManager::read(path, largestToken, &error);
    if (!data) {
        failure = fileFailure(localized("The token file cannot be read."),
                              printable(error.localizedDescription()), next);
        failure.errors = {error};
        return false;
    }
    token = Secret(std::string(data->view()));
    const std::string objection = objectionTo(token.text());
    if (!objection.empty()) {
        failure = fileFailure(localizedFormat("The token file %@ cannot be used.", printable(path)),
                              objection, next);
        return false;
    }
    return true;
}

bool checkKey(const std::string& key, const std::string& issuer, Failure& failure) {
    Error error;
    const auto signer = TokenSigner::signerWithKeyID(key, issuer, &error);
    if (signer != nullptr && signer->token(Clock::wallTime(), &error)) {
        return true;
    }
    failure = fileFailure(
        localized("The API key cannot be used."),
        printable(error.localizedFailureReason().value_or(error.localizedDescription())),
        localized("Put the key file ID.p8 that the store gave into a folder, and name it with "
                  "--key-folder FOLDER."));
    failure.errors = {error};
    return false;
}

/// Where the delivery tool looks for the key files of "-apiKey".
std::string keyFolderOfTool() {
    const char* const named = std::getenv("VELM_PRIVATE_KEYS");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    return std::filesystem::path(FileManager::configurationFolder()).parent_path() /
           "velm/private-keys";
}

/// Whether the tool finds the key file by itself, and no other one has been named for us.
bool toolHasKey(const std::string& keyID) {
    if (keyID.find('/') != std::string::npos) {
        return false;
    }
    const auto keyIn = [&keyID](const std::string& folder) {
        return FileManager::attributes(FileManager::expandingTilde(folder) + "/" + keyID + ".p8");
    };
    const auto its = keyIn(keyFolderOfTool());
    if (!its || its->kind != FileAttributes::Kind::regular) {
        return false;
    }
    const std::string named = VeltoPrivateKeysPath.stringValue();
    const auto ours = named.empty() ? std::nullopt : keyIn(named);
    return !ours || (ours->device == its->device && ours->inode == its->inode);
}

/// A sentence when users other than the file's owner may read it.
void warnOfReaders(const std::string& path, std::vector<std::string>& warnings) {
    constexpr std::uint32_t othersRead = 0044;
    const auto attributes = FileManager::attributes(path);
    if (attributes && attributes->kind == FileAttributes::Kind::regular &&
        (attributes->mode & othersRead) != 0) {
        warnings.push_back(localizedFormat(
            "Other users may read %@, which holds a secret; chmod 600 keeps them out.",
            printable(path)));
    }
}

}  // namespace

bool Credentials::read(const Invocation& invocation,
                       EnvironmentSecrets& secrets,
                       Failure& failure) {
    user = VeltoUsername.stringValue();
    const bool wantsPassword = invocation.has(passwordStdinOption);
    const bool wantsToken = invocation.has(tokenFileOption);
    const bool wantsKey = invocation.has(apiKeyOption) || invocation.has(issuerOption);
    if (wantsPassword + wantsToken + wantsKey > 1) {
        failure =
            usageFailure(localized("Several ways to sign in are given."),
                         localized("Give one of --password-stdin, --token-file and --api-key."));
        return false;
    }
    if (wantsToken) {
        form = Form::token;
        const std::string path = FileManager::expandingTilde(*invocation.value(tokenFileOption));
        warnOfReaders(path, warnings);
        return readToken(path, token, failure);
    }
    if (wantsKey) {
        form = Form::apiKey;
        apiKey = invocation.value(apiKeyOption).value_or(std::string());
        issuer = invocation.value(issuerOption).value_or(std::string());
        if (apiKey.empty() || issuer.empty()) {
            failure = usageFailure(localized("--api-key and --issuer go together."),
                                   localized("Give both."));
            return false;
        }
        if (!toolHasKey(apiKey) && !checkKey(apiKey, issuer, failure)) {
            return false;
        }
        warnOfReaders(TokenSigner::keyFile(apiKey).value_or(std::string()), warnings);
        return true;
    }
    const bool hasSession = !secrets.sessionID.isEmpty() || !secrets.sharedSecret.isEmpty();
    if (wantsPassword) {
        form = Form::password;
        if (!readPassword(password, failure)) {
            return false;
        }
    } else if (!secrets.password.isEmpty()) {
        if (hasSession) {
            failure = usageFailure(
                localized("VELTO_PASSWORD and a session are both set."),
                localized("Unset VELTO_PASSWORD, or VELTO_SESSION_ID and VELTO_SHARED_SECRET."));
            return false;
        }
        form = Form::password;
        password = std::move(secrets.password);
    } else if (hasSession) {
        form = Form::session;
        sessionID = std::move(secrets.sessionID);
        sharedSecret = std::move(secrets.sharedSecret);
        if (sessionID.isEmpty() || sharedSecret.isEmpty()) {
            failure =
                usageFailure(localized("VELTO_SESSION_ID and VELTO_SHARED_SECRET go together."),
                             localized("Set both."));
            return false;
        }
    }
    if (form == Form::password && user.empty()) {
        failure = usageFailure(localized("A password needs the user that it belongs to."),
                               localized("Give --user NAME."));
        return false;
    }
    hideInLogs({&password.text(), &sessionID.text(), &sharedSecret.text()});
    return true;
}

bool Credentials::makeContext(std::shared_ptr<VeltoAuthenticationContextImpl>& context,
                              Failure& failure) const {
    bool toolSigns = false;
    switch (form) {
        case Form::none:
        case Form::password:
            return true;
        case Form::session:
            context = VeltoAuthenticationContextImpl::contextWithHttpHeaders({}, user, {});
            context->setSessionID(sessionID.text());
            context->setSharedSecret(sharedSecret.text());
            break;
        case Form::token:
            context =
                VeltoAuthenticationContextImpl::contextWithToken(Data(token.text()), user, {});
            break;
        case Form::apiKey:
            toolSigns = toolHasKey(apiKey);
            if (toolSigns) {
                useKeyFolder(keyFolderOfTool());
            }
            // A key that is no good is told here, whoever signs in the end.
            context = VeltoAuthenticationContextImpl::contextWithApiKey(apiKey, issuer, {});
            break;
    }
    const std::string cookie = context->rovquill();
    constexpr std::string_view scheme = "Bearer ";
    std::string bearer(context->httpHeaders()["Authorization"].string());
    bearer.erase(0, bearer.starts_with(scheme) ? scheme.size() : 0);
    hideInLogs({&cookie, &bearer});
    if (context->hasError()) {
        failure = failureOfErrors(localized("The credentials cannot be used."), context->errors());
        return false;
    }
    if (toolSigns) {
        // A token among the tool's arguments would show to every user of the machine.
        context->setHttpHeaders({});
    }
    return true;
}

}  // namespace velto::cli
