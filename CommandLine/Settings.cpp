#include <CommandLine/Settings.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/JSONLine.h>
#include <CommandLine/Paths.h>
#include <CommandLine/SettingValues.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>
#include <VeltoConnectFoundation/Platform/ArgumentMask.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/SecretRegistry.h>
#include <VeltoConnectFoundation/Platform/TokenSigner.h>
#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace velto::cli {

namespace {

/// What stands on the command line, kept to be added to.
Dictionary& argumentsLayer() {
    static Dictionary layer;
    return layer;
}

/// A person who presses Ctrl-C does not wait the library's ten seconds.
constexpr double graceOfFrontEnd = 1;

constexpr const char* passwordWays =
    markLocalized("Set VELTO_PASSWORD, or give --password-stdin, when you verify or upload.");

Dictionary defaultsOfFrontEnd() {
    return {{"VeltoProcessTerminationGrace", graceOfFrontEnd}};
}

/// Puts what was given for a setting into a layer. `name` says where it was given.
bool assign(Dictionary& layer,
            const Setting& setting,
            const std::string& text,
            std::string_view name,
            Failure& failure) {
    auto value = typedValue(setting, text);
    if (!value) {
        failure = usageFailure(localizedFormat("%@ cannot be ‘%@’.", name, printable(text)),
                               wordsForValues(setting));
        return false;
    }
    layer.set(setting.key(), std::move(*value));
    return true;
}

const Setting* settingNamed(std::string_view key) {
    const std::vector<const Setting*> settings = UserDefaults::declaredSettings();
    const auto found = std::ranges::find(settings, key, &Setting::key);
    return found == settings.end() ? nullptr : *found;
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
        const Setting* setting = declaredSetting(key, failure);
        if (setting == nullptr || !mayBeTyped(*setting, failure) ||
            !assign(layer, *setting, assignment.substr(equals + 1), "--set " + key, failure)) {
            return false;
        }
    }
    return true;
}

/// The options that are settings for one run.
bool readOptions(const Invocation& invocation, Dictionary& layer, Failure& failure) {
    struct Shortcut {
        const Option& option;
        std::string_view key;
    };
    const Shortcut shortcuts[] = {
        {toolOption, "VeltoDrovanExecutablePath"},
        {userOption, "VeltoUsername"},
        {providerOption, "VeltoProviderShortname"},
        {vtcProviderOption, "VeltoVTCProviderShortname"},
        {transportOption, "VeltoTransport"},
        {throttleOption, "DefaultTransportThrottle"},
        {keyFolderOption, "VeltoPrivateKeysPath"},
        {graceOption, "VeltoProcessTerminationGrace"},
    };
    if (invocation.has(providerOption)) {
        // Who names a provider means that one, not another of the file, which would go before it.
        layer.set("VeltoVTCProviderShortname", "");
    }
    for (const Shortcut& shortcut : shortcuts) {
        auto value = invocation.value(shortcut.option);
        if (value && shortcut.option.kind != ArgumentKind::text) {
            // What is typed begins where one stands, a setting nowhere.
            value = absolutePath(FileManager::expandingTilde(*value));
        }
        if (value && !assign(layer, *settingNamed(shortcut.key), *value,
                             "--" + std::string(shortcut.option.name), failure)) {
            return false;
        }
    }
    if (invocation.has(verboseOption) || invocation.has(logFileOption)) {
        layer.set("VeltoConnectDebugLoggingEnabled", true);
    }
    return true;
}

bool readEnvironment(const Dictionary& texts, Dictionary& layer, Failure& failure) {
    for (const DictionaryEntry& entry : texts) {
        const Setting& setting = *settingNamed(entry.key.string());
        const std::string text(entry.value.string());
        // An empty variable is as good as none, where it is no text.
        if (text.empty() && !isAllowed(setting, text)) {
            continue;
        }
        if (!assign(layer, setting, text, UserDefaults::environmentName(setting), failure)) {
            return false;
        }
    }
    return true;
}

Failure failureOfFile(const Error& error) {
    Failure failure = usageFailure(
        localizedFormat("The settings file %@ cannot be used.",
                        printable(UserDefaults::shared().userFilePath())),
        error.domain() == POSIXErrorDomain
            ? localized("Check the file and its folder, or name another one with --config.")
        : error.code() == SettingsErrorUnsafeFile
            ? error.localizedRecoverySuggestion().value_or(std::string()) + " " +
                  localized("Look at what the file holds.")
            : localized("Correct the file, or move it away."));
    // The error of the system names the file once more.
    failure.why.push_back(printable(error.localizedFailureReason().value_or(
        error.domain() == POSIXErrorDomain
            ? Error::posix(static_cast<int>(error.code())).localizedDescription()
            : error.localizedDescription())));
    return failure;
}

constexpr std::size_t mostUnknownKeys = 20;  // That are told one by one.

/// Looks at each key of the user's file; false for one whose value cannot be.
bool checkFile(SettingsFileUse use, std::vector<std::string>& warnings, Failure& failure) {
    UserDefaults& defaults = UserDefaults::shared();
    std::size_t unknownKeys = 0;
    for (const UserDefaults::UserFileKey& key : defaults.userFileKeys()) {
        if (key.setting == nullptr && ++unknownKeys > mostUnknownKeys) {
            continue;
        }
        const std::string place =
            localizedFormat("%@, line %lu:", printable(defaults.userFilePath()), key.line) + " ";
        if (key.setting == nullptr) {
            Failure unknown;
            declaredSetting(key.key, unknown);
            warnings.push_back(place + unknown.what + " " + unknown.next);
        } else if (key.setting->key() == VeltoPassword.key()) {
            warnings.push_back(place + localized("velto takes no password from a file.") + " " +
                               localized(passwordWays));
        } else if (!isAllowed(*key.setting, defaults.userFileValue(key.key))) {
            const std::string why =
                place + localizedFormat("%@ has a value that it cannot have.", key.key) + " " +
                wordsForValues(*key.setting);
            if (use == SettingsFileUse::whole) {
                failure = usageFailure(localized("The settings file holds a wrong value."),
                                       localizedFormat("Correct it, or remove it with %@.",
                                                       "velto config unset " + key.key));
                failure.why.push_back(why);
                return false;
            }
            warnings.push_back(why);
        }
    }
    if (unknownKeys > mostUnknownKeys) {
        warnings.push_back(localizedFormat("%@: there are %lu more keys that are no settings.",
                                           printable(defaults.userFilePath()),
                                           unknownKeys - mostUnknownKeys));
    }
    return true;
}

bool useFile(const Invocation& invocation, std::vector<std::string>& warnings, Failure& failure) {
    UserDefaults& defaults = UserDefaults::shared();
    const Command& command = *invocation.command;
    Error error;
    if (const auto given = invocation.value(configOption)) {
        const std::string path = FileManager::expandingTilde(*given);
        if (command.settingsFile != SettingsFileUse::none && command.name != "config set" &&
            !FileManager::linkAttributes(path, &error) && error.code() == ENOENT) {
            failure =
                usageFailure(localizedFormat("There is no settings file %@.", printable(path)),
                             localized("velto config set --config FILE KEY VALUE makes one."));
            return false;
        }
        error = defaults.loadUserFile(path) ? Error() : defaults.loadError();
    } else {
        error = defaults.loadError();
    }
    if (command.settingsFile == SettingsFileUse::none) {
        return true;
    }
    if (error) {
        failure = failureOfFile(error);
        return false;
    }
    return checkFile(command.settingsFile, warnings, failure);
}

}  // namespace

bool applySettings(const Invocation& invocation,
                   const Dictionary& variables,
                   std::vector<std::string>& warnings,
                   Failure& failure) {
    UserDefaults& defaults = UserDefaults::shared();
    defaults.registerDefaults(defaultsOfFrontEnd());
    Dictionary environment;
    Dictionary arguments;
    if (!useFile(invocation, warnings, failure) ||
        !readEnvironment(variables, environment, failure) ||
        !readAssignments(invocation, arguments, failure) ||
        !readOptions(invocation, arguments, failure)) {
        return false;
    }
    defaults.setEnvironment(environment);
    defaults.setArguments(arguments);
    argumentsLayer() = arguments;
    for (const Value& password : defaults.arrayValue("VeltoPasswords")) {
        const std::string text(password.string());
        hideInLogs({&text});
    }
    return true;
}

bool mayBeTyped(const Setting& setting, Failure& failure) {
    if (!isSecret(setting)) {
        return true;
    }
    const bool isPassword = setting.key() == VeltoPassword.key();
    failure = usageFailure(
        isPassword
            ? localized("velto keeps no password in its settings.")
            : localizedFormat("The values of %@ do not belong on a command line.", setting.key()),
        isPassword ? localized(passwordWays)
                   : localized("Write them with an editor; velto config path names the file."));
    failure.why.push_back(
        localized("Other users of the machine see command lines, and a shell keeps them."));
    return false;
}

Failure failureOfWriting(const Error& error) {
    Failure failure = failureOfErrors(localized("The setting could not be written."), {error});
    if (error.domain() == SettingsErrorDomain) {
        failure.why = {
            printable(error.localizedFailureReason().value_or(error.localizedDescription()))};
        failure.next = localizedFormat("Change the file with an editor: %@",
                                       printable(UserDefaults::shared().userFilePath()));
    } else if (error.code() == EWOULDBLOCK) {
        failure.why = {localized("Another program is changing the file.")};
    } else if (error.code() == EEXIST || error.code() == ENOTDIR) {
        failure.next = localized("Move away what stands where the folder of the settings should.");
    }
    return failure;
}

Value defaultOf(const Setting& setting) {
    const Value own = defaultsOfFrontEnd()[setting.key()];
    return own.isNone() ? setting.registeredDefault() : own;
}

void hideInLogs(const std::vector<const std::string*>& secrets) {
    static auto& hidden = *new std::vector<RegisteredSecret>;  // threads may log to the very end
    for (const std::string* secret : secrets) {
        hidden.emplace_back(*secret);
    }
}

void useKeyFolder(const std::string& folder) {
    argumentsLayer().set(VeltoPrivateKeysPath.key(), folder);
    UserDefaults::shared().setArguments(argumentsLayer());
}

const Setting* declaredSetting(std::string_view key, Failure& failure) {
    if (const Setting* setting = settingNamed(key)) {
        return setting;
    }
    std::vector<std::string_view> keys;
    for (const Setting* setting : UserDefaults::declaredSettings()) {
        keys.push_back(setting->key());
    }
    const std::string_view near = nearest(key, keys);
    failure = usageFailure(
        localizedFormat("There is no setting ‘%@’.", printable(key)),
        (near.empty() ? std::string() : localizedFormat("Did you mean %@?", near) + " ") +
            localizedFormat("See %@.", "velto config list"));
    return nullptr;
}

bool isSecret(const Setting& setting) {
    constexpr std::array<std::string_view, 3> secretWords{"Password", "Secret", "Token"};
    return std::ranges::any_of(secretWords, [&](std::string_view word) {
        return setting.key().find(word) != std::string_view::npos;
    });
}

Value shownSetting(const Setting& setting, const Value& value) {
    if (value.isNone()) {
        return Null{};
    }
    if (isSecret(setting)) {
        return hiddenText;
    }
    if (setting.kind() == SettingKind::boolean) {
        return value.boolValue();
    }
    // Arguments of the tool among them may be secrets; the mask knows which.
    if (value.isArray()) {
        std::vector<std::string> parts;
        for (const Value& part : value.array()) {
            parts.push_back(part.description());
        }
        Array shown;
        for (const std::string& part : maskedArgumentList(parts)) {
            shown.append(part);
        }
        return shown;
    }
    if (setting.kind() == SettingKind::stringOrArray) {
        return maskedArguments(VeltoDrovan::parseExtraArgumentsString(value.description()));
    }
    return value.isString() ? Value(maskedArguments(std::vector{std::string(value.string())}))
                            : value;
}

std::string settingBytes(const Setting& setting, const Value& value) {
    const Value shown = shownSetting(setting, value);
    std::string text;
    if (shown.isArray()) {
        for (const Value& part : shown.array()) {
            text.append(text.empty() ? "" : ", ").append(part.string());
        }
    } else if (shown.isDictionary()) {
        appendJSON(text, shown);
    } else if (setting.kind() == SettingKind::boolean && !value.isNone()) {
        text = shown.boolValue() ? "yes" : "no";
    } else if (!value.isNone()) {
        text = shown.description();
    }
    return withoutSecrets(text);
}

std::string settingText(const Setting& setting, const Value& value) {
    return printable(settingBytes(setting, value));
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
