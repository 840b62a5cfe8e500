#include <CommandLine/Completion.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Settings.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>
#include <utility>

namespace velto::cli {

namespace {

/// Walks the words that are whole, to learn what the next one is.
class Completion {
public:
    void pass(std::string_view word) {
        if (pending_ != nullptr) {
            pending_ = nullptr;
        } else if (isOption(word)) {
            if (word == "--") {
                onlyOperands_ = true;
            } else if (const Option* option = optionOf(word);
                       option != nullptr && option->takesValue()) {
                pending_ = option;
            }
        } else if (const Command* member = memberOf(word)) {
            command_ = member;
        } else {
            ++operands_;
        }
    }

    std::string complete(std::string_view typed) const {
        if (pending_ != nullptr) {
            return values(pending_->kind, pending_->choices, typed, {});
        }
        if (isOption(typed)) {
            const std::size_t equals = typed.find('=');
            if (equals == std::string_view::npos) {
                return options(typed);
            }
            const Option* option = optionOf(typed.substr(0, equals));
            return option == nullptr
                       ? words(typed, {})
                       : values(option->kind, option->choices, typed.substr(equals + 1),
                                typed.substr(0, equals + 1));
        }
        if (operands_ == 0 && !members().empty()) {
            Words found;
            for (const Command* member : members()) {
                found.emplace_back(member->lastWord(), member->summary);
            }
            return words(typed, found);
        }
        if (command_ == nullptr || command_->operands.empty()) {
            return words(typed, {});
        }
        const std::vector<Operand>& operands = command_->operands;
        if (operands_ >= operands.size() && operands.back().most != 0) {
            return words(typed, {});
        }
        const Operand& operand = operands[std::min(operands_, operands.size() - 1)];
        return values(operand.kind, operand.choices, typed, {});
    }

private:
    using Words = std::vector<std::pair<std::string, std::string_view>>;

    bool isOption(std::string_view word) const { return !onlyOperands_ && word.starts_with('-'); }

    std::vector<const Command*> members() const {
        return membersOf(command_ != nullptr ? command_->name : std::string_view());
    }

    const Command* memberOf(std::string_view word) const {
        const std::vector<const Command*> known =
            operands_ == 0 ? members() : std::vector<const Command*>();
        const auto found = std::ranges::find(known, word, &Command::lastWord);
        return found == known.end() ? nullptr : *found;
    }

    std::vector<const Option*> allOptions() const {
        std::vector<const Option*> all;
        if (command_ != nullptr) {
            for (const OptionGroup& group : command_->groups) {
                all.insert(all.end(), group.options.begin(), group.options.end());
            }
        }
        const std::vector<const Option*>& common = commonOptions().options;
        all.insert(all.end(), common.begin(), common.end());
        return all;
    }

    const Option* optionOf(std::string_view word) const {
        const std::vector<const Option*> all = allOptions();
        const auto found = std::ranges::find_if(all, [&](const Option* option) {
            return word.starts_with("--") ? word.substr(2) == option->name
                                          : word.size() == 2 && word[1] == option->letter;
        });
        return found == all.end() ? nullptr : *found;
    }

    std::string options(std::string_view typed) const {
        Words found;
        for (const Option* option : allOptions()) {
            found.emplace_back("--" + std::string(option->name), option->help);
        }
        return words(typed, found);
    }

    static std::string values(ArgumentKind kind,
                              std::span<const std::string_view> choices,
                              std::string_view typed,
                              std::string_view before) {
        Words found;
        for (const std::string_view choice : choices) {
            found.emplace_back(choice, std::string_view());
        }
        switch (kind) {
            case ArgumentKind::file:
                return "files\n";
            case ArgumentKind::folder:
                return "folders\n";
            case ArgumentKind::setting:
            case ArgumentKind::typedSetting:
                for (const Setting* setting : UserDefaults::declaredSettings()) {
                    if (kind == ArgumentKind::setting || !isSecret(*setting)) {
                        found.emplace_back(setting->key(), setting->meaning());
                    }
                }
                break;
            case ArgumentKind::text:
                break;
        }
        return words(typed, found, before);
    }

    static std::string words(std::string_view typed,
                             const Words& found,
                             std::string_view before = {}) {
        std::string text = "words\n";
        for (const auto& [word, meaning] : found) {
            if (word.starts_with(typed)) {
                text.append(before).append(word).append("\t").append(meaning).append("\n");
            }
        }
        return text;
    }

    const Command* command_ = nullptr;  ///< Null before the first word that names one.
    const Option* pending_ = nullptr;   ///< Its value is the next word.
    std::size_t operands_ = 0;
    bool onlyOperands_ = false;
};

}  // namespace

std::string completions(std::span<const std::string> words) {
    Completion completion;
    if (words.empty()) {
        return completion.complete({});
    }
    for (const std::string& word : words.first(words.size() - 1)) {
        completion.pass(word);
    }
    return completion.complete(words.back());
}

}  // namespace velto::cli
