#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <charconv>
#include <optional>

namespace velto::cli {

namespace {

template <class Number>
std::optional<Value> numberOf(const std::string& text) {
    Number number{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size()
               ? std::optional<Value>(number)
               : std::nullopt;
}

/// The typed words as the kind that the setting has; none when they cannot be.
std::optional<Value> valueOf(SettingKind kind, const std::vector<std::string>& words) {
    if (kind == SettingKind::array || (kind == SettingKind::stringOrArray && words.size() > 1)) {
        Array array;
        for (const std::string& word : words) {
            array.append(word);
        }
        return array;
    }
    if (words.size() != 1) {
        return std::nullopt;
    }
    const std::string& word = words.front();
    switch (kind) {
        case SettingKind::boolean:
            for (const std::string_view yes : {"yes", "YES", "true", "1", "on"}) {
                if (word == yes) {
                    return true;
                }
            }
            for (const std::string_view no : {"no", "NO", "false", "0", "off"}) {
                if (word == no) {
                    return false;
                }
            }
            return std::nullopt;
        case SettingKind::integer:
            return numberOf<std::int64_t>(word);
        case SettingKind::number:
            return numberOf<double>(word);
        case SettingKind::string:
        case SettingKind::stringOrArray:
            return word;
        default:
            return std::nullopt;
    }
}

const char* wordsFor(SettingKind kind) {
    switch (kind) {
        case SettingKind::boolean:
            return markLocalized("It is yes or no.");
        case SettingKind::integer:
            return markLocalized("It is a whole number.");
        case SettingKind::number:
            return markLocalized("It is a number.");
        case SettingKind::string:
            return markLocalized("It is one text: put it in quotes.");
        default:
            return markLocalized(
                "It is a table, which only an editor can write; velto config path names the "
                "file.");
    }
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const Setting* setting = declaredSetting(invocation.operands.front(), failure);
    if (setting == nullptr) {
        return frontend.fail(failure);
    }
    const auto value =
        valueOf(setting->kind(), {invocation.operands.begin() + 1, invocation.operands.end()});
    if (!value) {
        return frontend.fail(usageFailure(localizedFormat("%@ cannot be that.", setting->key()),
                                          localized(wordsFor(setting->kind()))));
    }
    Error error;
    if (!UserDefaults::shared().setValue(setting->key(), *value, &error)) {
        return frontend.fail(
            failureOfErrors(localized("The setting could not be written."), {error}));
    }
    const SettingLayer layer = setting->layer();
    if (layer == SettingLayer::arguments || layer == SettingLayer::environment) {
        frontend.remark(
            Ink::warning, localized("Warning:"),
            localizedFormat("a value of the layer “%@” goes before it here.", layerName(layer)));
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result("done", ExitCode::done)
                            .add("key", setting->key())
                            .add("file", UserDefaults::shared().userFilePath()));
    }
    return ExitCode::done;
}

}  // namespace

const Command& configSetCommand() {
    static const Command command{
        .name = "config set",
        .summary = "write a setting to the user's file",
        .description =
            "Writes a setting to the user's file, which only you can read. A list takes "
            "several values. After -- a value may begin with a dash.",
        .operands = {{.name = "KEY", .kind = ArgumentKind::setting}, {.name = "VALUE", .most = 0}},
        .examples = {{"velto config set VeltoDrovanExecutablePath ~/velm/bin/VelmDrovan",
                      "where the delivery tool is"},
                     {"velto config set VeltoDrovanExtraArgs -- -v detailed",
                      "further arguments of the tool"}},
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
