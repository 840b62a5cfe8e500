#include <CommandLine/SettingValues.h>

#include <CommandLine/DeliveryOptions.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <charconv>

namespace velto::cli {

namespace {

template <class Number>
std::optional<Number> numberOf(std::string_view text) {
    Number number{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size()
               ? std::optional(number)
               : std::nullopt;
}

bool isInRange(const Value& value, std::int64_t least, std::int64_t most) {
    const auto number = numberOf<std::int64_t>(value.description());
    return number && *number >= least && *number <= most;
}

/// What a setting asks of its values besides their kind.
struct Rule {
    std::string_view key;
    bool (*holds)(const Value& value);
    const char* words;
};

constexpr Rule rules[] = {
    {"DefaultTransportThrottle",
     [](const Value& value) { return isInRange(value, 1, 1'000'000'000); },
     markLocalized("It is a number of kilobits a second, from 1 to 1000000000.")},
    {"VeltoDrovanProxyPort", [](const Value& value) { return isInRange(value, 1, 65535); },
     markLocalized("It is a number from 1 to 65535.")},
    {"VeltoProcessTerminationGrace",
     [](const Value& value) { return value.doubleValue() >= 0 && value.doubleValue() <= 3600; },
     markLocalized("It is a number of seconds from 0 to 3600, such as 0.5.")},
    {"VeltoTransport",
     [](const Value& value) {
         return std::ranges::find(transportNames, value.string()) != transportNames.end();
     },
     markLocalized("It is DAV, Signiant or Aspera.")},
};

const Rule* ruleOf(const Setting& setting) {
    const auto* const found = std::ranges::find(rules, setting.key(), &Rule::key);
    return found == std::end(rules) ? nullptr : found;
}

}  // namespace

std::optional<Value> typedValue(const Setting& setting, const std::vector<std::string>& words) {
    const SettingKind kind = setting.kind();
    if (kind == SettingKind::array || (kind == SettingKind::stringOrArray && words.size() > 1)) {
        Array array;
        for (const std::string& word : words) {
            array.append(word);
        }
        return array;
    }
    return words.size() == 1 && kind != SettingKind::dictionary ? typedValue(setting, words.front())
                                                                : std::nullopt;
}

std::optional<Value> typedValue(const Setting& setting, const std::string& text) {
    Value value = text;
    if (setting.kind() == SettingKind::boolean) {
        constexpr std::string_view yes[] = {"yes", "YES", "true", "1", "on"};
        constexpr std::string_view no[] = {"no", "NO", "false", "0", "off"};
        if (std::ranges::find(yes, text) != std::end(yes)) {
            return true;
        }
        return std::ranges::find(no, text) != std::end(no) ? std::optional<Value>(false)
                                                           : std::nullopt;
    }
    if (setting.kind() == SettingKind::integer) {
        const auto number = numberOf<std::int64_t>(text);
        value = number ? Value(*number) : Value();
    } else if (setting.kind() == SettingKind::number) {
        const auto number = numberOf<double>(text);
        value = number ? Value(*number) : Value();
    }
    return isAllowed(setting, value) ? std::optional(std::move(value)) : std::nullopt;
}

bool isAllowed(const Setting& setting, const Value& value) {
    const Rule* rule = ruleOf(setting);
    return setting.accepts(value) && (rule == nullptr || rule->holds(value));
}

std::string wordsForValues(const Setting& setting) {
    if (const Rule* rule = ruleOf(setting)) {
        return localized(rule->words);
    }
    switch (setting.kind()) {
        case SettingKind::boolean:
            return localized("It is yes or no.");
        case SettingKind::integer:
            return localized("It is a whole number.");
        case SettingKind::number:
            return localized("It is a number.");
        case SettingKind::string:
            return localized("It is one text: put it in quotes.");
        case SettingKind::array:
        case SettingKind::stringOrArray:
            return localized("It is a list of texts.");
        case SettingKind::dictionary:
            break;
    }
    return localized(
        "It is a table, which only an editor can write; velto config path names the file.");
}

}  // namespace velto::cli
