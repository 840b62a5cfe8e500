#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const Setting* setting = declaredSetting(invocation.operands.front(), failure);
    if (setting == nullptr) {
        return frontend.fail(failure);
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done)
                            .addWord("key", setting->key())
                            .add("value", shownSetting(*setting, setting->value()))
                            .addWord("layer", layerName(setting->layer())));
    } else {
        frontend.answerName(settingBytes(*setting, setting->value()));
    }
    return ExitCode::done;
}

}  // namespace

const Command& configGetCommand() {
    static const Command command{
        .name = "config get",
        .summary = "print the value of a setting",
        .description =
            "Prints the value of a setting, an empty line when it is not set. Secrets are hidden.",
        .operands = {{.name = "KEY", .kind = ArgumentKind::setting}},
        .examples = {{"velto config get VeltoDrovanExecutablePath",
                      "where the delivery tool is looked for first"}},
        .settingsFile = SettingsFileUse::editable,
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
