#include <CommandLine/Command.h>

namespace velto::cli {

const Command& packageCommand() {
    static const Command command{
        .name = "package",
        .summary = "make a package of a video, and look into packages",
        .description =
            "A package is a folder NAME.velmp with a video and the file metadata.xml, which holds "
            "the video's names, size and checksum. These commands need neither a store nor a "
            "delivery tool.",
    };
    return command;
}

}  // namespace velto::cli
