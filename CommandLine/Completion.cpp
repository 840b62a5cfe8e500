#include <CommandLine/Completion.h>

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

namespace velto::cli {

std::vector<const Option*> completedOptions(const Command* command) {
    std::vector<const Option*> options;
    if (command != nullptr) {
        for (const OptionGroup& group : command->groups) {
            options.insert(options.end(), group.options.begin(), group.options.end());
        }
    }
    options.insert(options.end(), commonOptions().options.begin(), commonOptions().options.end());
    return options;
}

std::string settingKeys() {
    std::string keys;
    for (const Setting* setting : UserDefaults::declaredSettings()) {
        keys.append(keys.empty() ? "" : " ").append(setting->key());
    }
    return keys;
}

std::string joined(std::span<const std::string_view> words) {
    std::string text;
    for (const std::string_view word : words) {
        text.append(text.empty() ? "" : " ").append(word);
    }
    return text;
}

}  // namespace velto::cli
