#include <CommandLine/Command.h>

namespace velto::cli {

const Command& toolCommand() {
    static const Command command{
        .name = "tool",
        .summary = "find and ask the delivery tool",
        .description =
            "velto drives a delivery tool, the program VelmDrovan. These commands say which "
            "one, and how.",
    };
    return command;
}

}  // namespace velto::cli
