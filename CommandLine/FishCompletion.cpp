#include <CommandLine/Completion.h>

namespace velto::cli {

namespace {

std::string inQuotes(std::string_view text) {
    std::string result = "'";
    for (const char character : text) {
        if (character == '\'' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result + "'";
}

/// What completes a value: nothing for a free text.
std::string valueArguments(ArgumentKind kind, std::span<const std::string_view> choices) {
    if (!choices.empty()) {
        return " -a " + inQuotes(joined(choices));
    }
    switch (kind) {
        case ArgumentKind::file:
            return " -F";
        case ArgumentKind::folder:
            return " -a '(__fish_complete_directories)'";
        case ArgumentKind::setting:
            return " -a " + inQuotes(settingKeys());
        case ArgumentKind::text:
            break;
    }
    return {};
}

}  // namespace

std::string fishCompletion() {
    std::string text = R"(# fish completion for velto; written by "velto completion fish"
function __velto_is
    set -l found
    for word in (commandline -opc)[2..-1]
        switch (string join ' ' $found $word)
)";
    for (const Command* command : allCommands()) {
        text += "            case " + inQuotes(command->name) +
                "\n                set -a found $word\n";
    }
    text += R"(        end
    end
    test (string join ' ' $found) = "$argv[1]"
end
complete -c velto -f
)";
    const auto writeCommand = [&](const Command* command) {
        const std::string_view name = command != nullptr ? command->name : std::string_view();
        const std::string start =
            "complete -c velto -n " + inQuotes("__velto_is " + inQuotes(name));
        for (const Command* member : membersOf(name)) {
            text += start + " -a " + inQuotes(member->lastWord()) + " -d " +
                    inQuotes(member->summary) + "\n";
        }
        if (command != nullptr) {
            for (const Operand& operand : command->operands) {
                const std::string values = valueArguments(operand.kind, operand.choices);
                text += values.empty() ? std::string() : start + values + "\n";
            }
        }
        for (const Option* option : completedOptions(command)) {
            text += start + " -l " + std::string(option->name);
            if (option->letter != 0) {
                text += " -s " + std::string(1, option->letter);
            }
            if (option->takesValue()) {
                text += " -x" + valueArguments(option->kind, option->choices);
            }
            text += " -d " + inQuotes(option->help) + "\n";
        }
    };
    writeCommand(nullptr);
    for (const Command* command : allCommands()) {
        writeCommand(command);
    }
    return text;
}

}  // namespace velto::cli
