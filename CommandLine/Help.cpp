#include <CommandLine/Help.h>

#include <CommandLine/Console.h>
#include <CommandLine/Text.h>

#include <algorithm>

namespace velto::cli {

namespace {

constexpr std::size_t indent = 2;
constexpr std::size_t helpColumn = 28;

class Writer {
public:
    explicit Writer(const Console& console) : console_(console) {}

    void paragraphs(std::string_view words) {
        while (!words.empty()) {
            const std::size_t end = std::min(words.find('\n'), words.size());
            text += wrapped(words.substr(0, end), 0, 0) + "\n";
            words.remove_prefix(std::min(end + 1, words.size()));
        }
    }

    void title(std::string_view words) {
        text += "\n" + console_.inked(Console::Stream::output, Ink::bold, words) + "\n";
    }

    void entry(std::string_view term, std::string_view meaning, std::size_t column = helpColumn) {
        text.append(indent, ' ').append(term);
        std::size_t used = indent + columnsOf(term);
        if (used + 2 > column) {
            text += '\n';
            used = 0;
        }
        text.append(column - used, ' ');
        text += wrapped(meaning, column, column) + "\n";
    }

    void options(const OptionGroup& group) {
        title(group.title);
        for (const Option* option : group.options) {
            entry((option->letter != 0 ? "" : "    ") + optionText(*option), option->help);
        }
    }

    void examples(const Command& command) {
        if (command.examples.empty()) {
            return;
        }
        title("Examples");
        for (const Example& example : command.examples) {
            text.append(indent, ' ').append(example.line).append("\n");
            text.append(indent + 4, ' ');
            text += console_.inked(Console::Stream::output, Ink::faint, example.meaning) + "\n";
        }
    }

    std::string text;

private:
    const Console& console_;
};

void writeCommands(Writer& writer, std::string_view family) {
    writer.title("Commands");
    for (const Command* command : membersOf(family)) {
        writer.entry(command->lastWord(), command->summary, 14);
    }
}

std::string overview(const Console& console) {
    Writer writer(console);
    writer.paragraphs("velto verifies content packages and delivers them to their stores.");
    writer.title("Usage");
    writer.text += "  velto COMMAND [ARGUMENTS] [OPTIONS]\n";
    writeCommands(writer, {});
    writer.options(commonOptions());
    writer.title("Exit codes");
    for (const ExitCodeMeaning& meaning : exitCodeMeanings()) {
        writer.entry(std::to_string(static_cast<int>(meaning.code)), meaning.meaning, 7);
    }
    writer.text += "\nvelto COMMAND --help tells more of a command, man velto all of it.\n";
    return writer.text;
}

}  // namespace

std::string usageOf(const Command& command) {
    std::string usage = "velto " + std::string(command.name);
    if (command.run == nullptr || !membersOf(command.name).empty()) {
        usage += command.run == nullptr ? " COMMAND" : " [COMMAND]";
    }
    for (const Operand& operand : command.operands) {
        std::string name(operand.name);
        name += operand.most == 0 ? "..." : "";
        usage += operand.least == 0 ? " [" + name + "]" : " " + name;
    }
    return usage + " [OPTIONS]";
}

std::string optionText(const Option& option) {
    std::string text;
    if (option.letter != 0) {
        text.append("-").append(1, option.letter).append(", ");
    }
    text.append("--").append(option.name);
    if (option.takesValue()) {
        text.append(" ").append(option.value);
    }
    return text;
}

std::string helpText(const Command* command, const Console& console) {
    if (command == nullptr) {
        return overview(console);
    }
    Writer writer(console);
    writer.paragraphs(command->description);
    writer.title("Usage");
    writer.text += "  " + usageOf(*command) + "\n";
    if (!membersOf(command->name).empty()) {
        writeCommands(writer, command->name);
    }
    for (const OptionGroup& group : command->groups) {
        writer.options(group);
    }
    writer.examples(*command);
    writer.options(commonOptions());
    return writer.text;
}

}  // namespace velto::cli
