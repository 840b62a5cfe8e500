#include <CommandLine/Invocation.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <utility>

namespace velto::cli {

namespace {

/// A node of the parser for each command, and what its options and operands are there.
struct Node {
    CLI::App* app;
    const Command* command;
    std::vector<std::pair<const Option*, CLI::Option*>> options = {};
    CLI::Option* operands = nullptr;

    void add(const OptionGroup& group) {
        for (const Option* option : group.options) {
            std::string names;
            if (option->letter != 0) {
                names = {'-', option->letter, ','};
            }
            names.append("--").append(option->name);
            CLI::Option* parsed =
                option->takesValue() ? app->add_option(names) : app->add_flag(names);
            parsed->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
            options.emplace_back(option, parsed);
        }
    }

    void addOperands() {
        // How many there are is checked below, where it can be said better. An exact number, since
        // a list of any length would have its "[a,b]" taken apart.
        constexpr int plenty = 1'000'000;
        operands = app->add_option("operands");
        operands->expected(plenty)->allow_extra_args(false)->multi_option_policy(
            CLI::MultiOptionPolicy::TakeAll);
    }
};

/// What the parser did not understand, in words that help.
Failure unknownWord(const CLI::App& app, const Command* command, const std::string& word) {
    std::string what;
    std::string_view near;
    std::string dashes;
    if (word.starts_with("-")) {
        std::vector<std::string_view> names;
        for (const Option* option : commonOptions().options) {
            names.push_back(option->name);
        }
        for (const OptionGroup& group :
             command != nullptr ? command->groups : std::vector<OptionGroup>()) {
            for (const Option* option : group.options) {
                names.push_back(option->name);
            }
        }
        const std::size_t equals = word.find('=');
        // In a cluster of letters, "-=x" is what its reader leaves.
        const std::string name = word.substr(0, equals == 1 ? std::string::npos : equals);
        what = localizedFormat("There is no option ‘%@’.", printable(name));
        near = name.starts_with("--") ? nearest(std::string_view(name).substr(2), names)
                                      : std::string_view();
        dashes = "--";
    } else if (command == nullptr || command->run == nullptr || !app.get_subcommands({}).empty()) {
        const std::string_view family = command != nullptr ? command->name : std::string_view();
        std::vector<std::string_view> names;
        for (const Command* member : membersOf(family)) {
            names.push_back(member->lastWord());
        }
        what = localizedFormat("There is no command ‘%@’.", printable(word));
        near = nearest(word, names);
    } else {
        what = localizedFormat("The argument ‘%@’ is one too many.", printable(word));
    }
    std::string next = helpHint(command);
    if (!near.empty()) {
        next = localizedFormat("Did you mean %@?", dashes + std::string(near)) + " " + next;
    }
    return usageFailure(std::move(what), std::move(next));
}

/// The option that a word of the parser names, of whatever command.
const Option* optionNamed(std::string_view word) {
    const auto find = [&](const OptionGroup& group) -> const Option* {
        const auto found = std::ranges::find_if(group.options, [&](const Option* option) {
            return word == "--" + std::string(option->name);
        });
        return found == group.options.end() ? nullptr : *found;
    };
    const Option* found = find(commonOptions());
    for (const Command* command : allCommands()) {
        for (const OptionGroup& group : command->groups) {
            found = found != nullptr ? found : find(group);
        }
    }
    return found;
}

Failure needlessValue(const Option& option, const Command* command) {
    return usageFailure(localizedFormat("--%@ takes no value.", option.name), helpHint(command));
}

Failure missingValue(const Option& option, const Command* command) {
    return usageFailure(
        localizedFormat("--%@ needs a value: --%@ %@.", option.name, option.name, option.value),
        helpHint(command));
}

/// The parser's own complaint, in words that help. It begins with the option that it is about.
Failure unfitOption(const CLI::ParseError& error, const Command* command) {
    const std::string_view text = error.what();
    const Option* option = optionNamed(text.substr(0, text.find_first_of(": ")));
    if (option == nullptr) {
        Failure failure =
            usageFailure(localized("The command line cannot be understood."), helpHint(command));
        failure.why.push_back(printable(text));
        return failure;
    }
    return option->takesValue() ? missingValue(*option, command) : needlessValue(*option, command);
}

bool checkOperands(const Invocation& invocation, Failure& failure) {
    const Command& command = *invocation.command;
    std::size_t least = 0;
    bool isLimited = true;
    std::size_t most = 0;
    for (const Operand& operand : command.operands) {
        least += operand.least;
        most += operand.most;
        isLimited = isLimited && operand.most != 0;
    }
    const std::size_t count = invocation.operands.size();
    if (count < least) {
        std::size_t position = 0;
        for (const Operand& operand : command.operands) {
            position += operand.least;
            if (position > count) {
                failure =
                    usageFailure(localizedFormat("velto %@ needs %@.", command.name, operand.name),
                                 helpHint(&command));
                return false;
            }
        }
    }
    if (isLimited && count > most) {
        failure = usageFailure(localizedFormat("The argument ‘%@’ is one too many.",
                                               printable(invocation.operands[most])),
                               helpHint(&command));
        return false;
    }
    for (std::size_t index = 0; index < std::min(count, command.operands.size()); ++index) {
        const Operand& operand = command.operands[index];
        if (!operand.choices.empty() &&
            std::ranges::find(operand.choices, invocation.operands[index]) ==
                operand.choices.end()) {
            failure =
                usageFailure(localizedFormat("‘%@’ is not one of %@.",
                                             printable(invocation.operands[index]), operand.name),
                             helpHint(&command));
            return false;
        }
    }
    return true;
}

bool checkChoices(const Invocation& invocation, const Option& option, Failure& failure) {
    for (const std::string& value : invocation.values(option)) {
        if (!option.choices.empty() &&
            std::ranges::find(option.choices, value) == option.choices.end()) {
            std::string names;
            for (const std::string_view choice : option.choices) {
                names.append(names.empty() ? "" : ", ").append(choice);
            }
            failure =
                usageFailure(localizedFormat("--%@ cannot be ‘%@’.", option.name, printable(value)),
                             localizedFormat("It is one of %@.", names));
            return false;
        }
    }
    return true;
}

/// The last of the words that were understood; null without one.
const Command* chosenCommand(const CLI::App& root) {
    const Command* command = nullptr;
    for (const CLI::App* app = &root; !app->get_subcommands().empty();) {
        app = app->get_subcommands().front();
        command = findCommand((command != nullptr ? std::string(command->name) + " " : "") +
                              app->get_name());
    }
    return command;
}

}  // namespace

std::string helpHint(const Command* command) {
    std::string line = "velto ";
    if (command != nullptr) {
        line.append(command->name).append(" ");
    }
    return localizedFormat("See %@.", line + "--help");
}

std::optional<std::string> Invocation::value(const Option& option) const {
    const auto found = values_.find(option.name);
    return found == values_.end() ? std::nullopt : std::optional(found->second.back());
}

std::vector<std::string> Invocation::values(const Option& option) const {
    const auto found = values_.find(option.name);
    return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::optional<Invocation> Invocation::parse(const std::vector<std::string>& arguments,
                                            const Command*& command,
                                            Failure& failure) {
    CLI::App root("", "velto");
    std::map<std::string_view, Node> nodes;
    const auto prepare = [&](Node& node) {
        node.app->set_help_flag();
        node.app->require_subcommand(0, 1);
        node.app->allow_extras();
        node.add(commonOptions());
    };
    prepare(nodes.emplace("", Node{&root, nullptr}).first->second);
    for (const Command* known : allCommands()) {
        CLI::App* parent = nodes.at(known->family()).app;
        Node& node =
            nodes
                .emplace(known->name,
                         Node{parent->add_subcommand(std::string(known->lastWord())), known})
                .first->second;
        prepare(node);
        for (const OptionGroup& group : known->groups) {
            node.add(group);
        }
        if (!known->operands.empty()) {
            node.addOperands();
        }
    }

    Invocation invocation;
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        root.parse(std::move(reversed));
    } catch (const CLI::ParseError& error) {
        command = chosenCommand(root);
        failure = unfitOption(error, command);
        return std::nullopt;
    }
    command = chosenCommand(root);
    for (Node* node = &nodes.at("");;) {
        invocation.command = node->command;
        for (const auto& [option, parsed] : node->options) {
            for (const std::string& value : parsed->results()) {
                if (!option->takesValue() && value != "true") {
                    failure = needlessValue(*option, node->command);
                    return std::nullopt;
                }
                const bool isPath =
                    option->kind == ArgumentKind::file || option->kind == ArgumentKind::folder;
                if (isPath && value.empty()) {
                    failure = missingValue(*option, node->command);
                    return std::nullopt;
                }
                invocation.add(*option, value);
            }
        }
        std::vector<std::string> unknown = node->app->remaining();
        std::erase(unknown, "--");
        if (!unknown.empty()) {
            failure = unknownWord(*node->app, node->command, unknown.front());
            return std::nullopt;
        }
        const std::vector<CLI::App*> chosen = node->app->get_subcommands();
        if (chosen.empty()) {
            if (node->operands != nullptr) {
                invocation.operands = node->operands->results();
            }
            break;
        }
        std::string name(node->command != nullptr ? node->command->name : std::string_view());
        name.append(name.empty() ? "" : " ").append(chosen.front()->get_name());
        node = &nodes.at(name);
    }
    if (invocation.command != nullptr && !invocation.has(helpOption) &&
        !invocation.has(versionOption)) {
        for (const auto& entry : nodes.at(invocation.command->name).options) {
            if (!checkChoices(invocation, *entry.first, failure)) {
                return std::nullopt;
            }
        }
        if (!checkOperands(invocation, failure)) {
            return std::nullopt;
        }
    }
    return invocation;
}

}  // namespace velto::cli
