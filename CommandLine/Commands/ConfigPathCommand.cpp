#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation&) {
    const std::string path = UserDefaults::shared().userFilePath();
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).add("path", path));
    } else {
        frontend.answerName(path);
    }
    return ExitCode::done;
}

}  // namespace

const Command& configPathCommand() {
    static const Command command{
        .name = "config path",
        .summary = "print the path of the user's file",
        .description = "Prints the path of the user's settings file, whether it exists or not.",
        .examples = {{"$EDITOR \"$(velto config path)\"", "edits the settings"}},
        .settingsFile = SettingsFileUse::none,
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
