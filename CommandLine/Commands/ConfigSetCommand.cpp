#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/SettingValues.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <string>
#include <vector>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const Setting* setting = declaredSetting(invocation.operands.front(), failure);
    if (setting == nullptr || !mayBeTyped(*setting, failure)) {
        return frontend.fail(failure);
    }
    const auto value = typedValue(
        *setting,
        std::vector<std::string>(invocation.operands.begin() + 1, invocation.operands.end()));
    if (!value) {
        return frontend.fail(usageFailure(localizedFormat("%@ cannot be that.", setting->key()),
                                          wordsForValues(*setting)));
    }
    Error error;
    if (!UserDefaults::shared().setValue(setting->key(), *value, &error)) {
        return frontend.fail(failureOfWriting(error));
    }
    const SettingLayer layer = setting->layer();
    if (layer == SettingLayer::arguments || layer == SettingLayer::environment) {
        frontend.warn(
            localizedFormat("a value of the layer “%@” goes before it here.", layerName(layer)));
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done)
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
        .operands = {{.name = "KEY", .kind = ArgumentKind::typedSetting},
                     {.name = "VALUE", .most = 0}},
        .examples = {{"velto config set VeltoDrovanExecutablePath ~/velm/bin/VelmDrovan",
                      "where the delivery tool is"},
                     {"velto config set VeltoDrovanExtraArgs -- -v detailed",
                      "further arguments of the tool"}},
        .settingsFile = SettingsFileUse::editable,
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
