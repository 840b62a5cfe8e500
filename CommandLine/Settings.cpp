#include <CommandLine/Settings.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/JSONLine.h>
#include <CommandLine/Paths.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

namespace velto::cli {

namespace {

/// A person who presses Ctrl-C does not wait the library's ten seconds.
constexpr double graceOfFrontEnd = 1;

/// The arguments layer, kept to be added to.
Dictionary& argumentsLayer() {
    static Dictionary layer;
    return layer;
}

bool readSeconds(const std::string& text, double& seconds) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && seconds >= 0 &&
           seconds <= 3600;
}

bool readAssignments(const Invocation& invocation, Dictionary& layer, Failure& failure) {
    for (const std::string& assignment : invocation.values(setOption)) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            failure = usageFailure(localized("--set needs KEY=VALUE."),
                                   localizedFormat("See %@.", "velto config list"));
            return false;
        }
        const std::string key = assignment.substr(0, equals);
        if (declaredSetting(key, failure) == nullptr) {
            return false;
        }
        layer.set(key, assignment.substr(equals + 1));
    }
    return true;
}

bool useFile(const Invocation& invocation, Failure& failure) {
    UserDefaults& defaults = UserDefaults::shared();
    Error error;
    if (const auto path = invocation.value(configOption)) {
        const bool isMade =
            invocation.command != nullptr && invocation.command->name == "config set";
        if (!isMade && !FileManager::exists(*path)) {
            failure =
                usageFailure(localizedFormat("There is no settings file %@.", printable(*path)),
                             localized("velto config set --config FILE KEY VALUE makes one."));
            return false;
        }
        if (!defaults.loadUserFile(*path, &error) && !error) {
            error = Error::posix(EIO, *path);
        }
    } else {
        error = defaults.loadError();
    }
    if (!error) {
        return true;
    }
    failure = usageFailure(
        localizedFormat("The settings file %@ cannot be read.", printable(defaults.userFilePath())),
        localized("Correct the file, or move it away."));
    failure.why.push_back(
        printable(error.localizedFailureReason().value_or(error.localizedDescription())));
    return false;
}

}  // namespace

bool applySettings(const Invocation& invocation, Failure& failure) {
    UserDefaults& defaults = UserDefaults::shared();
    defaults.registerDefaults({{"VeltoProcessTerminationGrace", graceOfFrontEnd}});
    defaults.setEnvironment(UserDefaults::valuesFromEnvironment(ProcessInfo::environment()));
    Dictionary layer;
    if (!useFile(invocation, failure) || !readAssignments(invocation, layer, failure)) {
        return false;
    }
    struct Shortcut {
        const Option& option;
        std::string_view key;
        bool isPath = false;  ///< What is typed begins where one stands, a setting nowhere.
    };
    const Shortcut shortcuts[] = {
        {toolOption, "VeltoDrovanExecutablePath", true},
        {throttleOption, "DefaultTransportThrottle"},
        {keyFolderOption, "VeltoPrivateKeysPath", true},
    };
    for (const Shortcut& shortcut : shortcuts) {
        if (const auto value = invocation.value(shortcut.option)) {
            layer.set(shortcut.key,
                      shortcut.isPath ? absolutePath(FileManager::expandingTilde(*value)) : *value);
        }
    }
    if (const auto text = invocation.value(graceOption)) {
        double seconds = 0;
        if (!readSeconds(*text, seconds)) {
            failure = usageFailure(
                localizedFormat("--%@ cannot be ‘%@’.", graceOption.name, printable(*text)),
                localized("It is a number of seconds, such as 0.5."));
            return false;
        }
        layer.set("VeltoProcessTerminationGrace", seconds);
    }
    if (invocation.has(verboseOption) || invocation.has(logFileOption)) {
        layer.set("VeltoConnectDebugLoggingEnabled", true);
    }
    argumentsLayer() = layer;
    defaults.setArguments(layer);
    return true;
}

void hideInLogs(const std::vector<const std::string*>& secrets) {
    Array hidden = UserDefaults::shared().arrayValue("VeltoPasswords");
    for (const std::string* secret : secrets) {
        if (!secret->empty() && !hidden.contains(*secret)) {
            hidden.append(*secret);
        }
    }
    argumentsLayer().set("VeltoPasswords", hidden);
    UserDefaults::shared().setArguments(argumentsLayer());
}

const Setting* declaredSetting(std::string_view key, Failure& failure) {
    const std::vector<const Setting*> settings = UserDefaults::declaredSettings();
    const auto found = std::ranges::find(settings, key, &Setting::key);
    if (found != settings.end()) {
        return *found;
    }
    std::vector<std::string_view> keys;
    keys.reserve(settings.size());
    for (const Setting* setting : settings) {
        keys.push_back(setting->key());
    }
    const std::string_view near = nearest(key, keys);
    failure = usageFailure(
        localizedFormat("There is no setting ‘%@’.", printable(key)),
        (near.empty() ? std::string() : localizedFormat("Did you mean %@?", near) + " ") +
            localizedFormat("See %@.", "velto config list"));
    return nullptr;
}

std::string settingText(const Setting& setting, const Value& value) {
    constexpr std::array<std::string_view, 3> secretWords{"Password", "Secret", "Token"};
    if (value.isNone()) {
        return {};
    }
    if (std::ranges::any_of(secretWords, [&](std::string_view word) {
            return setting.key().find(word) != std::string_view::npos;
        })) {
        return std::string(hiddenText);
    }
    // Arguments of the tool among them may be secrets; the mask knows which.
    std::vector<std::string> parts;
    if (value.isArray()) {
        for (const Value& part : value.array()) {
            parts.push_back(part.description());
        }
    } else if (setting.kind() == SettingKind::boolean) {
        parts.emplace_back(value.boolValue() ? "yes" : "no");
    } else if (value.isDictionary()) {
        std::string text;
        appendJSON(text, value);
        parts.push_back(std::move(text));
    } else {
        parts.push_back(value.description());
    }
    std::string text;
    for (const std::string& part : maskedArgumentList(parts)) {
        text.append(text.empty() ? "" : ", ").append(part);
    }
    return printable(text);
}

std::string_view layerName(SettingLayer layer) {
    switch (layer) {
        case SettingLayer::arguments:
            return "arguments";
        case SettingLayer::environment:
            return "environment";
        case SettingLayer::user:
            return "user";
        case SettingLayer::priority:
            return "server";
        case SettingLayer::registered:
            return "default";
        case SettingLayer::none:
            break;
    }
    return "not set";
}

}  // namespace velto::cli
