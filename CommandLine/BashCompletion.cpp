#include <CommandLine/Completion.h>

#include <map>

namespace velto::cli {

namespace {

std::string valueWords(ArgumentKind kind, std::span<const std::string_view> choices) {
    if (!choices.empty()) {
        return "_velto_words \"" + joined(choices) + "\"";
    }
    switch (kind) {
        case ArgumentKind::file:
            return "_velto_files -f";
        case ArgumentKind::folder:
            return "_velto_files -d";
        case ArgumentKind::setting:
            return "_velto_words \"" + settingKeys() + "\"";
        case ArgumentKind::text:
            break;
    }
    return ":";
}

std::string optionWords(const Command* command) {
    std::string words;
    for (const Option* option : completedOptions(command)) {
        words.append(words.empty() ? "--" : " --").append(option->name);
    }
    return words;
}

}  // namespace

std::string bashCompletion() {
    std::string text = R"(# bash completion for velto; written by "velto completion bash"
_velto_words() {
    local word
    while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -W "$1" -- "$cur")
}
_velto_files() {
    local word
    compopt -o filenames 2>/dev/null
    while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen "$1" -- "$cur")
}
_velto() {
    local cur="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD - 1]}"
    local command="" word index operands=0 skip=""
    COMPREPLY=()
    for ((index = 1; index < COMP_CWORD; index++)); do
        word="${COMP_WORDS[index]}"
        if [[ -n "$skip" ]]; then
            skip=""
            continue
        fi
        case "$word" in
)";
    // Options with a value take the next word; what they are is the same in every command.
    std::map<std::string_view, const Option*> withValue;
    const auto collect = [&](const Command* command) {
        for (const Option* option : completedOptions(command)) {
            if (option->takesValue()) {
                withValue.emplace(option->name, option);
            }
        }
    };
    collect(nullptr);
    for (const Command* command : allCommands()) {
        collect(command);
    }
    std::string names;
    std::string actions;
    for (const auto& [name, option] : withValue) {
        std::string pattern = "--" + std::string(name);
        if (option->letter != 0) {
            pattern += " | -" + std::string(1, option->letter);
        }
        names.append(names.empty() ? "" : " | ").append(pattern);
        actions += "        " + pattern + ") " + valueWords(option->kind, option->choices) +
                   "; return ;;\n";
    }
    text += "            " + names +
            ") skip=yes; continue ;;\n            -*) continue ;;\n        esac\n";
    text += "        case \"$command:$word\" in\n";
    for (const Command* command : allCommands()) {
        text += "            \"" + std::string(command->family()) + ":" +
                std::string(command->lastWord()) + "\") command=\"" + std::string(command->name) +
                "\" ;;\n";
    }
    text += "            *) operands=$((operands + 1)) ;;\n        esac\n    done\n";
    text += "    case \"$previous\" in\n" + actions + "    esac\n    case \"$command\" in\n";
    const auto writeCommand = [&](const Command* command) {
        const std::string_view name = command != nullptr ? command->name : std::string_view();
        text += "        \"" + std::string(name) + "\")\n";
        text += "            if [[ \"$cur\" == -* ]]; then _velto_words \"" + optionWords(command) +
                "\"; return; fi\n";
        std::vector<std::string_view> members;
        for (const Command* member : membersOf(name)) {
            members.push_back(member->lastWord());
        }
        if (!members.empty()) {
            text += "            _velto_words \"" + joined(members) + "\"\n";
        } else if (command != nullptr) {
            for (std::size_t index = 0; index < command->operands.size(); ++index) {
                const Operand& operand = command->operands[index];
                text += "            ((operands " + std::string(operand.most == 0 ? ">=" : "==") +
                        " " + std::to_string(index) + ")) && " +
                        valueWords(operand.kind, operand.choices) + "\n";
            }
        }
        text += "            ;;\n";
    };
    writeCommand(nullptr);
    for (const Command* command : allCommands()) {
        writeCommand(command);
    }
    return text + "    esac\n}\ncomplete -F _velto velto\n";
}

}  // namespace velto::cli
