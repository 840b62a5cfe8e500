#include <CommandLine/Command.h>

#include <CommandLine/CommonOptions.h>

#include <algorithm>

namespace velto::cli {

std::span<const Command* const> allCommands() {
    static const std::vector<const Command*> commands{
        &packageCommand(),     &packageCreateCommand(), &packageInspectCommand(),
        &verifyCommand(),      &uploadCommand(),        &digestCommand(),
        &toolCommand(),        &toolLocateCommand(),    &toolVersionCommand(),
        &toolCommandCommand(), &configCommand(),        &configListCommand(),
        &configGetCommand(),   &configSetCommand(),     &configUnsetCommand(),
        &configPathCommand(),  &completionCommand(),    &manCommand()};
    return commands;
}

const Command* findCommand(std::string_view name) {
    const auto found = std::ranges::find_if(
        allCommands(), [&](const Command* command) { return command->name == name; });
    return found == allCommands().end() ? nullptr : *found;
}

std::vector<const Command*> membersOf(std::string_view family) {
    std::vector<const Command*> members;
    std::ranges::copy_if(allCommands(), std::back_inserter(members),
                         [&](const Command* command) { return command->family() == family; });
    return members;
}

const OptionGroup& commonOptions() {
    static const OptionGroup group{
        "Common options",
        {&configOption, &setOption, &quietOption, &verboseOption, &jsonOption, &logFileOption,
         &noColorOption, &helpOption, &versionOption}};
    return group;
}

}  // namespace velto::cli
