#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const std::string& key = invocation.operands.front();
    UserDefaults& defaults = UserDefaults::shared();
    // What is no setting may go from the file all the same.
    if (defaults.userFileValue(key).isNone() && declaredSetting(key, failure) == nullptr) {
        return frontend.fail(failure);
    }
    Error error;
    if (!defaults.setValue(key, {}, &error)) {
        return frontend.fail(failureOfWriting(error));
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).add("key", key));
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
        .settingsFile = SettingsFileUse::editable,
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
