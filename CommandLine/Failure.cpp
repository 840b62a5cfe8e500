#include <CommandLine/Failure.h>

#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanMessages.h>
#include <VeltoConnectFoundation/Files/MZFileCopyOperation.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>
#include <utility>

namespace velto::cli {

namespace {

constexpr auto any = FailureKind::anyCode;

constexpr const char* correctIt = markLocalized("Correct what the message names, then try again.");
constexpr const char* tryLater = markLocalized("Try again later.");
constexpr const char* checkNetwork = markLocalized("Check the network, then try again.");
constexpr const char* makeRoom = markLocalized("Make room on the disk, then try again.");
constexpr const char* checkRights =
    markLocalized("Check the permissions of the file and its folder, then try again.");
constexpr const char* lookAtLog =
    markLocalized("Run it again with --verbose, or with --log-file FILE, to see more.");

constexpr const char* checkTool =
    markLocalized("Check the delivery tool: velto tool locate, velto tool version.");

constexpr FailureKind kinds[] = {
    // The store's own codes; what else a tool says bears its reason and its next step itself.
    {VeltoDrovanErrorDomain, -20101, ExitCode::signIn,
     markLocalized(
         "Check the user name, and the password in VELTO_PASSWORD or on standard input.")},
    {VeltoDrovanErrorDomain, -20283, ExitCode::signIn,
     markLocalized("Check the credentials that were given, or get a new session, token or key.")},
    {VeltoDrovanErrorDomain, -20209, ExitCode::signIn,
     markLocalized("Unlock the account with the store, then try again.")},
    {VeltoDrovanErrorDomain, -22938, ExitCode::signIn,
     markLocalized("Make an app-specific password for the account, and give that one.")},
    {VeltoDrovanErrorDomain, any, ExitCode::failed,
     markLocalized("Act on what the message says, then try again.")},
    {VeltoConnectionAuthenticationErrorDomain, any, ExitCode::signIn,
     markLocalized("Check the credentials; velto upload --help lists the ways to sign in.")},
    // A worker's error of its own: the tool ended without a message; or it could not be started.
    {WorkerErrorDomain, -10000, ExitCode::tryAgain,
     markLocalized("Try again; if it ends so once more, add --log-file FILE to see what it did.")},
    {WorkerErrorDomain, -10001, ExitCode::failed, checkTool},
    {POSIXErrorDomain, ECONNREFUSED, ExitCode::tryAgain, checkNetwork},
    {POSIXErrorDomain, ECONNRESET, ExitCode::tryAgain, checkNetwork},
    {POSIXErrorDomain, EHOSTUNREACH, ExitCode::tryAgain, checkNetwork},
    {POSIXErrorDomain, ENETUNREACH, ExitCode::tryAgain, checkNetwork},
    {POSIXErrorDomain, ETIMEDOUT, ExitCode::tryAgain, checkNetwork},
    {POSIXErrorDomain, EAGAIN, ExitCode::tryAgain, tryLater},
    {POSIXErrorDomain, EMFILE, ExitCode::tryAgain, tryLater},
    {POSIXErrorDomain, ENFILE, ExitCode::tryAgain, tryLater},
    {POSIXErrorDomain, ENOMEM, ExitCode::tryAgain, tryLater},
    {POSIXErrorDomain, ETXTBSY, ExitCode::tryAgain, tryLater},
    {POSIXErrorDomain, ENOEXEC, ExitCode::toolNotFound, checkTool},
    {POSIXErrorDomain, ENOSPC, ExitCode::failed, makeRoom},
    {POSIXErrorDomain, EDQUOT, ExitCode::failed, makeRoom},
    {POSIXErrorDomain, EACCES, ExitCode::failed, checkRights},
    {POSIXErrorDomain, EPERM, ExitCode::failed, checkRights},
    {POSIXErrorDomain, EROFS, ExitCode::failed, checkRights},
    {MZFileCopyErrorDomain, any, ExitCode::failed, correctIt},
    {MZMD5OperationErrorDomain, any, ExitCode::failed, correctIt},
    {"", any, ExitCode::failed, lookAtLog},
};

int weight(ExitCode code) {
    return code == ExitCode::signIn ? 2 : code == ExitCode::failed ? 1 : 0;
}

std::string reason(const Error& error) {
    std::string text = printable(error.localizedDescription());
    constexpr std::string_view marker = "ERROR: ";
    return text.starts_with(marker) ? text.substr(marker.size()) : text;
}

}  // namespace

std::span<const FailureKind> failureKinds() {
    return kinds;
}

const FailureKind& failureKind(const Error& error) {
    return *std::ranges::find_if(kinds, [&](const FailureKind& kind) {
        return kind.domain.empty() ||
               (kind.domain == error.domain() && (kind.code == any || kind.code == error.code()));
    });
}

Error systemReason(const Error& error) {
    const bool isLaunch = error.domain() == WorkerErrorDomain;
    const bool onlySaysThat = error.domain() == MZFileCopyErrorDomain ||
                              error.domain() == MZMD5OperationErrorDomain || isLaunch;
    const Error reason = onlySaysThat ? error.underlyingError() : Error();
    // Of a tool that could not be started more is known than to look at the log.
    return !reason || (isLaunch && failureKind(reason).domain.empty()) ? error : reason;
}

Failure failureOfErrors(std::string what, const std::vector<Error>& errors) {
    Failure failure{.what = std::move(what)};
    const FailureKind* chosen = nullptr;
    std::unordered_set<std::string> told{failure.what};
    for (const Error& error : errors) {
        const Error cause = systemReason(error);
        const FailureKind& kind = failureKind(cause);
        if (chosen == nullptr || weight(kind.exitCode) > weight(chosen->exitCode)) {
            chosen = &kind;
        }
        std::string why = reason(cause);
        if (told.insert(why).second) {
            failure.why.push_back(std::move(why));
        }
        if (cause != error) {
            failure.errors.push_back(cause);
        }
        failure.errors.push_back(error);
    }
    if (chosen != nullptr) {
        failure.exitCode = chosen->exitCode;
        failure.next = localized(chosen->next);
    }
    return failure;
}

std::string endOfTool(const ProcessExit& exit) {
    switch (exit.reason) {
        case ProcessExit::Reason::exit:
            return localizedFormat("The delivery tool ended with the exit status %d.", exit.status);
        case ProcessExit::Reason::uncaughtSignal: {
            const char* const name = ::sigabbrev_np(exit.status);
            return localizedFormat(
                "The delivery tool was ended by the signal %@.",
                name == nullptr ? std::to_string(exit.status) : std::string("SIG") + name);
        }
        case ProcessExit::Reason::unknown:
            break;
    }
    return localized("The delivery tool ended, but the system does not tell how.");
}

Failure usageFailure(std::string what, std::string next) {
    return {.exitCode = ExitCode::usage, .what = std::move(what), .next = std::move(next)};
}

}  // namespace velto::cli
