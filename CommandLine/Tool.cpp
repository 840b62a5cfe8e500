#include <CommandLine/Tool.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/PathTrust.h>

#include <algorithm>
#include <vector>

namespace velto::cli {

namespace {

std::string refusalText(const std::string& path, const std::string& reason) {
    return localizedFormat("%@ is not run, for it would be given your credentials: %@",
                           printable(path), reason);
}

/// Why the tool is not taken from there.
void addReason(const std::string& path, Failure& failure) {
    std::string why = localizedFormat("There is no program at %@.", printable(path));
    if (const std::string reason = reasonAgainstTool(path); !reason.empty()) {
        why = refusalText(path, reason);
        // Rather than what is missing: the first that is there can be mended.
        std::string unsafe = localized("The delivery tool VelmDrovan is not safe to run.");
        if (failure.what != unsafe) {
            failure.what = std::move(unsafe);
            failure.next = localizedFormat("%@ Or name another one with --tool PATH.",
                                           printable(PathTrust::of(path).remedy()));
        }
    }
    if (std::ranges::find(failure.why, why) == failure.why.end()) {
        failure.why.push_back(std::move(why));
    }
}

}  // namespace

std::optional<std::string> findTool(Frontend& frontend,
                                    const Invocation& invocation,
                                    Failure& failure) {
    failure = {.exitCode = ExitCode::toolNotFound,
               .what = localized("The delivery tool VelmDrovan was not found."),
               .next = localized("Install the tool, or name it with --tool PATH or with "
                                 "velto config set VeltoDrovanExecutablePath PATH.")};
    const std::string set = FileManager::expandingTilde(VeltoDrovan::drovanPath());
    if (invocation.has(toolOption)) {
        if (FileManager::isExecutable(set) && PathTrust::of(set)) {
            return set;
        }
        addReason(set, failure);
        return std::nullopt;
    }
    std::vector<std::string> places = VeltoDrovan::drovanPaths();
    if (!set.empty() && !set.starts_with('/')) {
        places.insert(places.begin(), set);
    }
    auto chosen = VeltoDrovan::overridenDrovanPath();
    for (const std::string& path : places) {
        if (!chosen) {
            addReason(path, failure);
        } else if (path == *chosen) {
            break;
        } else if (const std::string reason = reasonAgainstTool(path); !reason.empty()) {
            frontend.remark(Ink::warning, localized("warning"), refusalText(path, reason));
        }
    }
    return chosen;
}

std::string reasonAgainstTool(const std::string& path) {
    return path.starts_with('/') && !FileManager::isExecutable(path)
               ? std::string()
               : printable(PathTrust::of(path).reason());
}

}  // namespace velto::cli
