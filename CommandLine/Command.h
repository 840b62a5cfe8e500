#pragma once

#include <CommandLine/ExitCode.h>

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

/// The one description of what can be typed: parsing, help, completion and manual page come from
/// it.
namespace velto::cli {

class Frontend;
class Invocation;

enum class ArgumentKind {
    text,
    file,
    folder,
    setting,
    typedSetting  ///< One whose value may be typed.
};

struct Option {
    std::string_view name;        ///< Without the dashes.
    char letter = 0;              ///< 0 without a short form.
    std::string_view value = {};  ///< What stands for the value; empty for a switch.
    std::string_view help = {};
    std::span<const std::string_view> choices = {};
    ArgumentKind kind = ArgumentKind::text;

    bool takesValue() const { return !value.empty(); }
};

struct OptionGroup {
    std::string_view title;
    std::vector<const Option*> options;
};

struct Operand {
    std::string_view name;
    ArgumentKind kind = ArgumentKind::text;
    std::span<const std::string_view> choices = {};
    std::size_t least = 1;
    std::size_t most = 1;  ///< 0 for any number.
};

struct Example {
    std::string_view line;
    std::string_view meaning;
};

/// What a command needs of the user's settings file.
enum class SettingsFileUse {
    whole,     ///< It runs only when all of it is right.
    editable,  ///< It runs while single values are wrong, which it may correct.
    none       ///< It runs whatever is in the file.
};

struct Command {
    std::string_view name;  ///< All words: "tool locate".
    std::string_view summary;
    std::string_view description;  ///< Paragraphs, with line feeds between them.
    std::vector<Operand> operands = {};
    std::vector<OptionGroup> groups = {};  ///< Beside the common options.
    std::vector<Example> examples = {};
    SettingsFileUse settingsFile = SettingsFileUse::whole;
    ExitCode (*run)(Frontend&,
                    const Invocation&) = nullptr;  ///< Null for a mere family of commands.
    /// What it does counts, and not what it prints of that: it is done also when nobody could be
    /// told.
    bool acts = false;

    std::string_view lastWord() const { return name.substr(name.rfind(' ') + 1); }
    /// The family's name; empty for a command of the first level.
    std::string_view family() const {
        const std::size_t blank = name.rfind(' ');
        return blank == std::string_view::npos ? std::string_view() : name.substr(0, blank);
    }
};

/// In the order of the help; families stand before their members.
std::span<const Command* const> allCommands();
const Command* findCommand(std::string_view name);  ///< Null when there is none.
std::vector<const Command*> membersOf(std::string_view family);
/// Options that every command has.
const OptionGroup& commonOptions();

// One for each source in Commands.
const Command& packageCommand();
const Command& packageCreateCommand();
const Command& packageInspectCommand();
const Command& verifyCommand();
const Command& uploadCommand();
const Command& digestCommand();
const Command& toolCommand();
const Command& toolLocateCommand();
const Command& toolVersionCommand();
const Command& toolCommandCommand();
const Command& configCommand();
const Command& configListCommand();
const Command& configGetCommand();
const Command& configSetCommand();
const Command& configUnsetCommand();
const Command& configPathCommand();
const Command& completionCommand();
const Command& manCommand();

}  // namespace velto::cli
