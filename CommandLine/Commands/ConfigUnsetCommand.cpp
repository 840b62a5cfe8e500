#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const Setting* setting = declaredSetting(invocation.operands.front(), failure);
    if (setting == nullptr) {
        return frontend.fail(failure);
    }
    Error error;
    if (!UserDefaults::shared().setValue(setting->key(), {}, &error)) {
        return frontend.fail(
            failureOfErrors(localized("The setting could not be written."), {error}));
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result("done", ExitCode::done).add("key", setting->key()));
    }
    return ExitCode::done;
}

}  // namespace

const Command& configUnsetCommand() {
    static const Command command{
        .name = "config unset",
        .summary = "remove a setting from the user's file",
        .description = "Removes a setting from the user's file; one that is not there stays so.",
        .operands = {{.name = "KEY", .kind = ArgumentKind::setting}},
        .examples = {{"velto config unset VeltoDrovanProxyHost", "back to the default"}},
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
