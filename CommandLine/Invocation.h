#pragma once

#include <CommandLine/Command.h>
#include <CommandLine/Failure.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto::cli {

/// What was typed, understood.
class Invocation {
public:
    const Command* command = nullptr;  ///< Null for `velto` alone; a family, or what runs.
    std::vector<std::string> operands;

    bool has(const Option& option) const { return values_.contains(option.name); }
    /// The last one given; none without the option.
    std::optional<std::string> value(const Option& option) const;
    std::vector<std::string> values(const Option& option) const;
    void add(const Option& option, std::string value) {
        values_[option.name].push_back(std::move(value));
    }

    /// None, with what is wrong, when `arguments` cannot be understood; `command` is then the one
    /// that could be, null without.
    static std::optional<Invocation> parse(const std::vector<std::string>& arguments,
                                           const Command*& command,
                                           Failure& failure);

private:
    std::map<std::string_view, std::vector<std::string>> values_;
};

/// Where a command, or `velto` alone (null), is explained.
std::string helpHint(const Command* command);

}  // namespace velto::cli
