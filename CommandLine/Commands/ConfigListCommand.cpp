#include <CommandLine/CommonOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Text.h>

#include <algorithm>

namespace velto::cli {

namespace {

constexpr Option longOption{.name = "long", .letter = 'l', .help = "with what each setting means"};

std::string padded(std::string text, std::size_t width) {
    const std::size_t columns = columnsOf(text);
    return columns < width ? text.append(width - columns, ' ') : text;
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    const std::vector<const Setting*> settings = UserDefaults::declaredSettings();
    if (frontend.printsJSON()) {
        Array list;
        for (const Setting* setting : settings) {
            list.append(Dictionary{{"key", setting->key()},
                                   {"value", shownSetting(*setting, setting->value())},
                                   {"layer", layerName(setting->layer())},
                                   {"meaning", setting->meaning()}});
        }
        frontend.answer(frontend.result(ExitCode::done).add("settings", list));
        return ExitCode::done;
    }
    std::size_t keyWidth = 0;
    std::size_t layerWidth = 0;
    for (const Setting* setting : settings) {
        keyWidth = std::max(keyWidth, setting->key().size());
        layerWidth = std::max(layerWidth, layerName(setting->layer()).size());
    }
    const Console& console = frontend.console();
    const auto output = Console::Stream::output;
    for (const Setting* setting : settings) {
        const SettingLayer layer = setting->layer();
        const bool isOwn = layer != SettingLayer::registered && layer != SettingLayer::none;
        std::string line = console.inked(output, isOwn ? Ink::bold : Ink::plain,
                                         padded(std::string(setting->key()), keyWidth));
        line += "  " + console.inked(output, isOwn ? Ink::good : Ink::faint,
                                     padded(std::string(layerName(layer)), layerWidth));
        line += "  " + settingText(*setting, setting->value());
        line.erase(line.find_last_not_of(' ') + 1);
        frontend.answer(line);
        if (invocation.has(longOption)) {
            frontend.answer("    " + console.inked(output, Ink::faint, setting->meaning()));
        }
    }
    return ExitCode::done;
}

}  // namespace

const Command& configListCommand() {
    static const Command command{
        .name = "config list",
        .summary = "every setting, its value and where it comes from",
        .description =
            "Prints every setting with the layer that won and its value. Secrets are hidden.",
        .groups = {{"Options", {&longOption}}},
        .examples = {{"velto config list --long", "with what each setting means"}},
        .settingsFile = SettingsFileUse::editable,
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
