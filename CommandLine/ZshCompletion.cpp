#include <CommandLine/Completion.h>

#include <algorithm>

namespace velto::cli {

namespace {

std::string functionName(std::string_view command) {
    std::string name = command.empty() ? "_velto" : "_velto_" + std::string(command);
    std::ranges::replace(name, ' ', '_');
    return name;
}

/// Inside of single quotes and of the brackets of a description.
std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        if (character == '\'') {
            result += "'\\''";
            continue;
        }
        if (character == '[' || character == ']' || character == ':' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result;
}

std::string action(ArgumentKind kind, std::span<const std::string_view> choices) {
    if (!choices.empty()) {
        return "(" + joined(choices) + ")";
    }
    switch (kind) {
        case ArgumentKind::file:
            return "_files";
        case ArgumentKind::folder:
            return "_files -/";
        case ArgumentKind::setting:
            return "(" + settingKeys() + ")";
        case ArgumentKind::text:
            break;
    }
    return " ";
}

std::string optionSpecifications(const Command* command) {
    std::string text;
    for (const Option* option : completedOptions(command)) {
        const std::string name = "--" + std::string(option->name);
        std::string rest = "[" + escaped(option->help) + "]";
        if (option->takesValue()) {
            rest += ":" + escaped(option->value) + ":" + action(option->kind, option->choices);
        }
        rest += "' \\\n";
        text.append("        '*").append(name).append(rest);
        if (option->letter != 0) {
            text.append("        '*-").append(1, option->letter).append(rest);
        }
    }
    return text;
}

std::string function(const Command* command) {
    const std::string_view name = command != nullptr ? command->name : std::string_view();
    const std::vector<const Command*> members = membersOf(name);
    std::string text = functionName(name) + "() {\n";
    if (members.empty()) {
        text += "    _arguments -s -S \\\n" + optionSpecifications(command);
        for (const Operand& operand : command->operands) {
            text += "        '" + std::string(operand.most == 0 ? "*" : "") + ":" +
                    escaped(operand.name) + ":" + action(operand.kind, operand.choices) + "' \\\n";
        }
        return text + "        && return 0\n}\n";
    }
    text += "    local state line\n    local -a commands\n    commands=(\n";
    for (const Command* member : members) {
        text += "        '" + escaped(member->lastWord()) + ":" + escaped(member->summary) + "'\n";
    }
    text += "    )\n    _arguments -C -s -S \\\n" + optionSpecifications(command) +
            "        '1: :->command' '*:: :->arguments' && return 0\n"
            "    case \"$state\" in\n        command) _describe command commands ;;\n"
            "        arguments)\n            case \"$line[1]\" in\n";
    for (const Command* member : members) {
        text += "                " + std::string(member->lastWord()) + ") " +
                functionName(member->name) + " ;;\n";
    }
    return text + "            esac\n            ;;\n    esac\n}\n";
}

}  // namespace

std::string zshCompletion() {
    std::string text =
        "#compdef velto\n# zsh completion for velto; written by \"velto completion zsh\"\n";
    for (const Command* command : allCommands()) {
        text += function(command);
    }
    return text + function(nullptr) +
           "if [ \"$funcstack[1]\" = \"_velto\" ]; then _velto \"$@\"; else compdef _velto velto; "
           "fi\n";
}

}  // namespace velto::cli
