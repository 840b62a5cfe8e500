#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>

#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/PathTrust.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <algorithm>
#include <filesystem>

using velto::Array;
using velto::Bundle;
using velto::FileManager;
using velto::PathTrust;
using velto::Setting;
using velto::SettingKind;
using velto::Value;

// Where the delivery tool is, and which Java runtime it has.

namespace {

const Setting executablePath(VeltoDrovanExecutablePath,
                             SettingKind::string,
                             DROVAN_PATH,
                             "First place where the delivery tool is looked for");
const Setting additionalPaths(VeltoDrovanAdditionalPathsToVELMDrovan,
                              SettingKind::array,
                              Array{},
                              "Further places where the delivery tool is looked for");
const Setting javaExecutablePath(VeltoDrovanJavaExecutablePathRelativeToDrovanExecutable,
                                 SettingKind::string,
                                 "../java/bin/java",
                                 "The delivery tool's Java runtime, relative to the tool");
const Setting javaVersionSearchStrings(
    VeltoDrovanJavaVersionSearchStrings,
    SettingKind::array,
    Array{"java version \"", "openjdk version \""},
    "What stands before the version in a Java runtime's version output");

constexpr std::string_view parcelwrightIdentifier = "parcelwright.velto.invalid";
constexpr std::string_view kodriftIdentifier = "kodrift.velto.invalid";
constexpr std::string_view parcelwrightInKodrift =
    "Contents/SharedFrameworks/Parcelwright.framework";

/// Joined as path components, with one separator between.
std::string joined(std::string_view folder, std::string_view rest) {
    std::string path(folder);
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    if (!path.ends_with('/')) {
        path += '/';
    }
    return path += rest;
}

/// The folder and those above it, until it is empty or the root.
template <class Visit>
void walkUp(std::string folder, const Visit& visit) {
    while (!folder.empty() && folder != "/") {
        if (visit(folder)) {
            return;
        }
        folder = std::filesystem::path(folder).parent_path().string();
    }
}

/// Of the tool beside a bundle that the program lies in.
std::optional<std::string> pathInBundleAbove(const std::string& executableFolder) {
    std::optional<std::string> found;
    walkUp(executableFolder, [&](const std::string& folder) {
        const std::optional<Bundle> bundle = Bundle::atPath(folder);
        if (bundle && bundle->identifier() == parcelwrightIdentifier) {
            found = joined(folder, VeltoDrovanRelativeExecutablePath);
        } else if (bundle && bundle->identifier() == kodriftIdentifier) {
            found =
                joined(joined(folder, parcelwrightInKodrift), VeltoDrovanRelativeExecutablePath);
        }
        return found.has_value();
    });
    return found;
}

std::string configuredPath() {
    return FileManager::expandingTilde(executablePath.stringValue());
}

bool isRelative(std::string_view path) {
    return !path.empty() && !path.starts_with('/');
}

/// Whoever could put another program there would be given the credentials.
bool isTrusted(std::string_view path) {
    const PathTrust trust = PathTrust::of(path);
    if (!trust) {
        MZLogWarning("The delivery tool %@ is not used. %@", path, trust.reason());
    }
    return static_cast<bool>(trust);
}

/// The first place that passes `isUsable`, which is told of each, and that nobody else can change.
template <class Predicate>
std::optional<std::string> firstTrusted(const Predicate& isUsable) {
    if (const std::string path = configuredPath(); isRelative(path)) {
        static_cast<void>(isTrusted(path));
    }
    for (std::string& path : VeltoDrovan::drovanPaths()) {
        if (isUsable(path) && isTrusted(path)) {
            return std::move(path);
        }
    }
    return std::nullopt;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

bool VeltoDrovan::isExecutableAtPath(std::string_view path) {
    if (FileManager::isExecutable(path)) {
        return true;
    }
    if (FileManager::exists(path)) {
        MZLogWarning("%@ is not executable", path);
    }
    return false;
}

std::vector<std::string> VeltoDrovan::drovanPaths() {
    std::vector<std::string> paths;
    const std::string configured = configuredPath();
    if (!isRelative(configured) && isExecutableAtPath(configured)) {
        MZLogDebug("Found drovan at path specified by %@ in user defaults: %@",
                   VeltoDrovanExecutablePath, configured);
        paths.push_back(configured);
    }
    walkUp(Bundle::library().path(), [&](const std::string& folder) {
        const std::string path = joined(folder, VeltoDrovanRelativeExecutablePath);
        if (!FileManager::exists(path)) {
            return false;
        }
        MZLogDebug("Found drovan at class bundle relative path: %@", path);
        paths.push_back(path);
        return true;
    });
    const std::string executableFolder = Bundle::executableFolder();
    if (const std::optional<std::string> path = pathInBundleAbove(executableFolder)) {
        MZLogDebug("Will look for drovan at executable bundle relative path: %@", *path);
        paths.push_back(*path);
    }
    paths.push_back(joined(joined(executableFolder, "../SharedFrameworks/Parcelwright.framework"),
                           VeltoDrovanRelativeExecutablePath));
    paths.push_back(joined(joined(executableFolder, "../"), VeltoDrovanRelativeExecutablePath));
    paths.push_back(
        joined("/Applications/Sendrix.app/Contents", VeltoDrovanRelativeExecutablePath));
    for (const Value& path : additionalPaths.arrayValue()) {
        paths.push_back(FileManager::expandingTilde(path.string()));
    }
    if (std::ranges::find(paths, DROVAN_PATH) == paths.end()) {
        paths.emplace_back(DROVAN_PATH);
    }
    return paths;
}

std::optional<std::string> VeltoDrovan::overridenDrovanPath() {
    return firstTrusted([](const std::string& path) {
        MZLogDebug("Looking for Drovan at path: %@", path);
        return isExecutableAtPath(path);
    });
}

void VeltoDrovan::setupDrovanLocationIfAvailable() {
    std::string path(DROVAN_PATH);
    if (const std::optional<std::string> found = overridenDrovanPath()) {
        MZLogDebug("Overriding drovan location: %@", *found);
        path = *found;
    } else {
        MZLogDebug("Using default drovan location: %@", path);
    }
    velto::UserDefaults::shared().registerDefaults({{VeltoDrovanExecutablePath, path}});
}

std::string VeltoDrovan::drovanPath() {
    return executablePath.stringValue();
}

std::optional<std::string> VeltoDrovan::executableDrovanPath() {
    return firstTrusted([](const std::string& path) { return FileManager::isExecutable(path); });
}

bool VeltoDrovan::isVersionLessThanVersion(std::string_view version, std::string_view other) {
    if (version.empty() || other.empty()) {
        return version.empty() && !other.empty();
    }
    const std::vector<std::string_view> left = velto::split(version, ".");
    const std::vector<std::string_view> right = velto::split(other, ".");
    for (std::size_t index = 0; index < std::min(left.size(), right.size()); ++index) {
        const bool leftIsNumber = isNumber(left[index]);
        const bool rightIsNumber = isNumber(right[index]);
        if (leftIsNumber != rightIsNumber) {
            return rightIsNumber;
        }
        if (leftIsNumber) {
            const std::int64_t a = velto::leadingInteger(left[index]);
            const std::int64_t b = velto::leadingInteger(right[index]);
            if (a != b) {
                return a < b;
            }
        }
    }
    return left.size() < right.size();
}

std::optional<std::string> VeltoDrovan::extractJavaVersion(std::string_view output) {
    for (const Value& prefix : javaVersionSearchStrings.arrayValue()) {
        const std::size_t found = output.find(prefix.string());
        if (found != std::string_view::npos) {
            const std::string_view rest = output.substr(found + prefix.string().size());
            const std::size_t end = rest.find('"');
            return end == std::string_view::npos ? std::nullopt
                                                 : std::optional(std::string(rest.substr(0, end)));
        }
    }
    return std::nullopt;
}
