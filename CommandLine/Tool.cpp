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
#include <cerrno>
#include <filesystem>

namespace velto::cli {

namespace {

/// The start of a file, enough for what a program begins with; none when it cannot be read.
std::optional<std::string> startOf(const std::string& path) {
    constexpr std::size_t most = 256;
    std::string start;
    Error error;
    const bool isEmpty = FileManager::readBlocks(
        path, most,
        [&](std::string_view block) {
            start = block;
            return false;
        },
        &error);
    return isEmpty || !error ? std::optional(std::move(start)) : std::nullopt;
}

/// Why the system would not run it; empty for a program.
std::string objectionTo(const std::string& path) {
    Error error;
    const auto attributes = FileManager::attributes(path, &error);
    if (!attributes) {
        return error.code() == ENOENT || error.code() == ENOTDIR
                   ? localizedFormat("There is no program at %@.", printable(path))
                   : printable(error.localizedDescription()) + ".";
    }
    if (attributes->kind == FileAttributes::Kind::folder) {
        return localizedFormat("%@ is a folder.", printable(path));
    }
    if (!FileManager::isExecutable(path)) {
        return localizedFormat("%@ may not be executed.", printable(path));
    }
    const auto start = startOf(path);
    if (!start || start->starts_with("\x7f"
                                     "ELF")) {
        return {};  // Only running it tells more.
    }
    constexpr std::string_view script = "#!";
    if (!start->starts_with(script)) {
        return localizedFormat("%@ is no program.", printable(path));
    }
    std::string interpreter = start->substr(script.size(), start->find('\n') - script.size());
    interpreter.erase(0, interpreter.find_first_not_of(" \t"));
    interpreter.erase(std::min(interpreter.find_first_of(" \t\r"), interpreter.size()));
    return FileManager::isExecutable(interpreter)
               ? std::string()
               : localizedFormat("%@ needs the program %@, which is not there.", printable(path),
                                 printable(interpreter));
}

std::string normal(const std::string& path) {
    return std::filesystem::path(path).lexically_normal().string();
}

std::string refusalText(const std::string& path, const std::string& reason) {
    return localizedFormat("%@ is not run, for it would be given your credentials: %@",
                           printable(path), reason);
}

/// Why the tool is not taken from there.
void addReason(const std::string& path, Failure& failure) {
    std::string why = objectionTo(path);
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
    if (!why.empty() && std::ranges::find(failure.why, why) == failure.why.end()) {
        failure.why.push_back(std::move(why));
    }
}

}  // namespace

std::vector<std::string> searchedPlaces() {
    std::vector<std::string> paths = VeltoDrovan::drovanPaths();
    const std::string configured = FileManager::expandingTilde(VeltoDrovan::drovanPath());
    if (!configured.empty() && std::ranges::find(paths, configured) == paths.end()) {
        paths.insert(paths.begin(), configured);
    }
    std::vector<std::string> places;
    for (const std::string& path : paths) {
        std::string place = normal(path);
        // Bundles are another system's; here such a place is worth telling when there is something.
        const bool isElsewhere = place.find(".app/") != std::string::npos ||
                                 place.find(".framework/") != std::string::npos;
        if ((!isElsewhere || FileManager::exists(place)) &&
            std::ranges::find(places, place) == places.end()) {
            places.push_back(std::move(place));
        }
    }
    return places;
}

std::optional<std::string> findTool(Frontend& frontend,
                                    const Invocation& invocation,
                                    Failure& failure) {
    failure = {.exitCode = ExitCode::toolNotFound,
               .what = localized("The delivery tool VelmDrovan was not found."),
               .next = localized("Install the tool, or name it with --tool PATH or with "
                                 "velto config set VeltoDrovanExecutablePath PATH.")};
    const std::string set = FileManager::expandingTilde(VeltoDrovan::drovanPath());
    if (invocation.has(toolOption)) {
        if (objectionTo(set).empty() && PathTrust::of(set)) {
            return set;
        }
        addReason(set, failure);
        return std::nullopt;
    }
    auto chosen = VeltoDrovan::overridenDrovanPath();
    for (const std::string& path : searchedPlaces()) {
        if (!chosen) {
            addReason(path, failure);
        } else if (path == normal(*chosen)) {
            break;
        } else if (const std::string reason = reasonAgainstTool(path); !reason.empty()) {
            frontend.warn(refusalText(path, reason));
        }
    }
    if (chosen && !objectionTo(*chosen).empty()) {
        addReason(*chosen, failure);
        chosen.reset();
    }
    return chosen;
}

std::string reasonAgainstTool(const std::string& path) {
    return path.starts_with('/') && !FileManager::isExecutable(path)
               ? std::string()
               : printable(PathTrust::of(path).reason());
}

}  // namespace velto::cli
