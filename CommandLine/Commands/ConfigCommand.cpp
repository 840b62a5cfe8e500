#include <CommandLine/Command.h>

namespace velto::cli {

const Command& configCommand() {
    static const Command command{
        .name = "config",
        .summary = "show and change the settings",
        .description =
            "Settings come in layers; the first that holds a key wins: the command line (--set), "
            "the "
            "environment (VELTO_ and the key in capitals), the user's file, what a server sent, "
            "and "
            "the defaults. Without a command: list.",
        .groups = configListCommand().groups,
        .examples = {{"velto config", "every setting, its value and the layer it comes from"},
                     {"velto config set VeltoDrovanProxyHost proxy.example",
                      "writes the user's file"},
                     {"velto config get VeltoDrovanExecutablePath", "one value"}},
        .settingsFile = SettingsFileUse::editable,
        .run = configListCommand().run,
    };
    return command;
}

}  // namespace velto::cli
