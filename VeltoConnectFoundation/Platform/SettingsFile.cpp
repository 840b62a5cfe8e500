#include <VeltoConnectFoundation/Platform/SettingsFilePrivate.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <toml++/toml.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <sstream>
#include <utility>

namespace velto {

namespace {

constexpr unsigned deepestValue = 64;

enum Code : std::int64_t { malformedFile = 1, unfitValue = 2 };

std::string quoted(std::string_view text) {
    return "“" + std::string(text) + "”";
}

// TOML to values.

Value valueFromNode(const toml::node& node);

Dictionary dictionaryFromTable(const toml::table& table) {
    Dictionary result;
    result.reserve(table.size());
    for (const auto& [key, node] : table) {
        result.set(key.str(), valueFromNode(node));
    }
    return result;
}

template <class T>
std::string textOf(const T& value) {
    std::ostringstream stream;             // locale: toml++ writes to streams only
    stream.imbue(std::locale::classic());  // locale: none
    stream << value;
    return stream.str();
}

Value dateOrText(const toml::date_time& time) {
    if (!time.offset) {
        return textOf(time);
    }
    const auto day = std::chrono::sys_days(std::chrono::year(time.date.year) /
                                           std::chrono::month(time.date.month) /
                                           std::chrono::day(time.date.day));
    const double seconds = std::chrono::duration<double>(day.time_since_epoch()).count() +
                           time.time.hour * 3600.0 + time.time.minute * 60.0 + time.time.second +
                           time.time.nanosecond * 1e-9 - time.offset->minutes * 60.0;
    return Date::fromUnixSeconds(seconds);
}

Value valueFromNode(const toml::node& node) {
    return node.visit([](const auto& it) -> Value {
        using Node = std::decay_t<decltype(it)>;
        if constexpr (toml::is_table<Node>) {
            return dictionaryFromTable(it);
        } else if constexpr (toml::is_array<Node>) {
            Array result;
            result.reserve(it.size());
            for (const toml::node& element : it) {
                result.append(valueFromNode(element));
            }
            return result;
        } else if constexpr (toml::is_date_time<Node>) {
            return dateOrText(it.get());
        } else if constexpr (toml::is_date<Node> || toml::is_time<Node>) {
            return textOf(it.get());
        } else {
            return Value(it.get());
        }
    });
}

/// The table a text holds, else none. `error` names the place but nothing of the text, for what
/// stands in the file may be a password.
std::optional<toml::table> parseTable(std::string_view text, std::string_view path, Error* error) {
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& failure) {
        const auto& place = failure.source().begin;
        fail(error, Error::make(SettingsErrorDomain, malformedFile,
                                "The settings file " + quoted(path) + " could not be read.",
                                "Line " + std::to_string(place.line) + ", column " +
                                    std::to_string(place.column) + " is not valid TOML."));
        return std::nullopt;
    }
}

// Values to TOML.

/// In universal time; none for what TOML cannot write (years before 0 and after 9999).
std::optional<toml::date_time> dateTime(Date date) {
    const double seconds = date.unixSeconds();
    const bool isWritable = seconds >= -62167219200.0 && seconds < 253402300800.0;
    if (!isWritable) {
        return std::nullopt;
    }
    const auto whole = std::chrono::sys_seconds(
        std::chrono::seconds(static_cast<std::int64_t>(std::floor(seconds))));
    const auto day = std::chrono::floor<std::chrono::days>(whole);
    const std::chrono::year_month_day calendar(day);
    const std::chrono::hh_mm_ss clock(whole - day);
    toml::date_time time;
    time.date = {static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                 static_cast<unsigned>(calendar.day())};
    time.time.hour = static_cast<std::uint8_t>(clock.hours().count());
    time.time.minute = static_cast<std::uint8_t>(clock.minutes().count());
    time.time.second = static_cast<std::uint8_t>(clock.seconds().count());
    time.time.nanosecond = static_cast<std::uint32_t>((seconds - std::floor(seconds)) * 1e9);
    time.offset = toml::time_offset{};
    return time;
}

/// Where a node goes: an array's end, or a table's key.
struct Place {
    toml::array* array;
    toml::table* table;
    std::string_view key;

    template <class Node>
    void put(Node&& node) const {
        if (array != nullptr) {
            array->push_back(std::forward<Node>(node));
        } else {
            table->insert_or_assign(key, std::forward<Node>(node));
        }
    }
};

/// Puts the TOML form of a value to its place; false for what has none.
bool store(const Value& value, unsigned depth, const Place& place) {
    switch (value.kind()) {
        case ValueKind::boolean:
            place.put(value.boolValue());
            return true;
        case ValueKind::signedInteger:
            place.put(value.integerValue());
            return true;
        case ValueKind::unsignedInteger:
            place.put(value.integerValue());
            return std::in_range<std::int64_t>(value.unsignedValue());
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            place.put(value.doubleValue());
            return true;
        case ValueKind::string:
            place.put(std::string(value.string()));
            return true;
        case ValueKind::date: {
            const std::optional<toml::date_time> time = dateTime(value.date());
            if (time) {
                place.put(*time);
            }
            return time.has_value();
        }
        case ValueKind::array: {
            toml::array array;
            const Array values = value.array();
            const bool fits =
                depth < deepestValue && std::ranges::all_of(values, [&](const Value& element) {
                    return store(element, depth + 1, {&array, nullptr, {}});
                });
            place.put(std::move(array));
            return fits;
        }
        case ValueKind::dictionary: {
            toml::table table;
            table.is_inline(true);
            const Dictionary values = value.dictionary();
            const bool fits =
                depth < deepestValue &&
                std::ranges::all_of(values, [&](const DictionaryEntry& entry) {
                    return entry.key.isString() &&
                           store(entry.value, depth + 1, {nullptr, &table, entry.key.string()});
                });
            place.put(std::move(table));
            return fits;
        }
        case ValueKind::none:
        case ValueKind::null:
        case ValueKind::data:
        case ValueKind::object:
            break;
    }
    return false;
}

/// "key = value" and a line feed for each entry; none when one of them has no TOML form.
std::optional<std::string> tomlText(const Dictionary& entries) {
    toml::table table;
    for (const DictionaryEntry& entry : entries) {
        const bool fits = store(entry.value, 0, {nullptr, &table, entry.key.string()});
        if (!fits) {
            return std::nullopt;
        }
    }
    std::ostringstream stream;             // locale: toml++ writes to streams only
    stream.imbue(std::locale::classic());  // locale: none
    stream << toml::default_formatter(table) << '\n';
    std::string text = stream.str();
    return entries.isEmpty() ? "" : text;
}

/// The lines (from 0, to before) that a key of the root takes.
std::optional<std::pair<std::size_t, std::size_t>> linesOfKey(const toml::table& table,
                                                              std::string_view key) {
    const auto found = table.find(key);
    if (found == table.end()) {
        return std::nullopt;
    }
    const std::size_t first = found->first.source().begin.line;
    const std::size_t last = found->second.source().end.line;
    if (first == 0 || last < first) {
        return std::nullopt;
    }
    return std::pair(first - 1, last);
}

/// Offset of a line's first character; the text's length beyond its end.
std::size_t offsetOfLine(std::string_view text, std::size_t line) {
    std::size_t offset = 0;
    for (; line > 0 && offset < text.size(); --line) {
        const std::size_t feed = text.find('\n', offset);
        offset = feed == std::string_view::npos ? text.size() : feed + 1;
    }
    return offset;
}

/// The file's text with one key changed and all other lines, comments too, as they were.
std::string editedText(std::string text,
                       const toml::table& table,
                       std::string_view key,
                       std::string_view replacement) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    if (const auto lines = linesOfKey(table, key)) {
        const std::size_t begin = offsetOfLine(text, lines->first);
        const std::size_t end = offsetOfLine(text, lines->second);
        return text.replace(begin, end - begin, replacement);
    }
    // Behind a table's header the key would be the table's.
    const bool hasTables = std::ranges::any_of(table, [](const auto& entry) {
        return entry.second.is_table() || entry.second.is_array();
    });
    return hasTables ? text.insert(0, replacement) : text.append(replacement);
}

}  // namespace

std::optional<Dictionary> settingsFromText(std::string_view text,
                                           std::string_view path,
                                           Error* error) {
    const auto table = parseTable(text, path, error);
    return table ? std::optional(dictionaryFromTable(*table)) : std::nullopt;
}

std::optional<std::string> settingsTextWithChange(std::string text,
                                                  const Dictionary& wanted,
                                                  std::string_view key) {
    const auto line =
        wanted.contains(key) ? tomlText({{key, wanted[key]}}) : std::optional<std::string>("");
    auto whole = tomlText(wanted);
    if (!line || !whole) {
        return std::nullopt;
    }
    if (const auto table = parseTable(text, {}, nullptr)) {
        std::string edited = editedText(std::move(text), *table, key, *line);
        const auto check = parseTable(edited, {}, nullptr);
        if (check && dictionaryFromTable(*check) == wanted) {
            return edited;
        }
    }
    return whole;
}

std::optional<Value> valueFromInlineTOML(std::string_view text) {
    Error ignored;
    const auto table = parseTable("value = " + std::string(text), {}, &ignored);
    return table && table->contains("value") ? std::optional(valueFromNode(*table->get("value")))
                                             : std::nullopt;
}

Error unfitSettingError(std::string_view key, std::string_view reason) {
    return Error::make(SettingsErrorDomain, unfitValue,
                       "The setting " + quoted(key) + " was not changed.", reason);
}

}  // namespace velto
