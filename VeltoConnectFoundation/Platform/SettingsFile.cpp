#include <VeltoConnectFoundation/Platform/SettingsFilePrivate.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
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

/// Follows strings, comments and brackets of a text, as long as it is valid, to see how deep its
/// tables and lists go: each bracket is a level, and so is each dot of a key.
class DepthScanner {
public:
    explicit DepthScanner(std::string_view text) : text_(text) {}

    /// The first line (from 1) that goes deeper than values may; 0 for none.
    std::size_t lineOfTooDeep() {
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == '"' || c == '\'') {
                skipString(c);
            } else if (c == '#') {
                at_ = std::min(text_.find('\n', at_), text_.size()) - 1;
            } else if (c == '[' || c == '{') {
                outside_.push_back(depth_++);
            } else if ((c == ']' || c == '}') && !outside_.empty()) {
                depth_ = outside_.back();
                outside_.pop_back();
            } else if (c == '.') {
                ++depth_;
            } else if (c == ',' || (c == '\n' && outside_.empty())) {
                depth_ = outside_.empty() ? 0 : outside_.back() + 1;  // another key or value
            }
            if (depth_ > deepestValue) {
                return 1 + static_cast<std::size_t>(std::ranges::count(text_.substr(0, at_), '\n'));
            }
        }
        return 0;
    }

private:
    /// To its last quote, or to the end of the line that it should end in.
    void skipString(char quote) {
        const std::string three(3, quote);
        const bool hasLines = text_.substr(at_).starts_with(three);
        for (at_ += hasLines ? 3 : 1; at_ < text_.size(); ++at_) {
            if (text_[at_] == '\\' && quote == '"') {
                ++at_;
            } else if (hasLines ? text_.substr(at_).starts_with(three)
                                : text_[at_] == quote || text_[at_] == '\n') {
                break;
            }
        }
        if (hasLines) {
            // Up to two more are the string's own.
            at_ = std::min(text_.find_first_not_of(quote, at_), at_ + 5) - 1;
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t depth_ = 0;
    std::vector<std::size_t> outside_;  ///< The depth before each open bracket.
};

bool failAsMalformed(std::string_view path, std::string_view reason, Error* error) {
    return fail(error,
                Error::make(SettingsErrorDomain, SettingsErrorMalformedFile,
                            "The settings file " + quoted(path) + " could not be read.", reason));
}

/// The table a text holds, else none. `error` names the place but nothing of the text, for what
/// stands in the file may be a password.
std::optional<toml::table> parseTable(std::string_view text, std::string_view path, Error* error) {
    // The parser, and what it makes, use the call stack for each level.
    if (const std::size_t line = DepthScanner(text).lineOfTooDeep(); line != 0) {
        failAsMalformed(path, "Line " + std::to_string(line) + " is nested too deeply.", error);
        return std::nullopt;
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& failure) {
        const auto& place = failure.source().begin;
        failAsMalformed(path,
                        "Line " + std::to_string(place.line) + ", column " +
                            std::to_string(place.column) + " is not valid TOML.",
                        error);
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
            return isValidUTF8(value.string());
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

/// Offset of a place, whose line and column (of characters) count from 1; the text's length beyond
/// its end.
std::size_t offsetOf(std::string_view text, toml::source_position place) {
    std::size_t offset = 0;
    for (std::size_t line = 1; line < place.line && offset < text.size(); ++line) {
        const std::size_t feed = text.find('\n', offset);
        offset = feed == std::string_view::npos ? text.size() : feed + 1;
    }
    for (std::size_t column = 1; column < place.column && offset < text.size(); ++column) {
        do {
            ++offset;
        } while (offset < text.size() &&
                 (static_cast<unsigned char>(text[offset]) & 0xC0U) == 0x80);
    }
    return offset;
}

/// A file's text with one key changed, in the ways that touch the least first: its value alone, all
/// its lines, or a new line. Whether a text holds what it should is for the caller to see.
std::vector<std::string> editedTexts(std::string text,
                                     const toml::table& table,
                                     std::string_view key,
                                     std::string_view line) {
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    if (const auto found = table.find(key); found != table.end()) {
        std::vector<std::string> texts;
        const toml::source_region& value = found->second.source();
        if (!line.empty()) {
            // The key stands in front of the value, in the line as in the text.
            const std::size_t equals = line.find(" = ");
            const std::size_t begin = offsetOf(text, value.begin);
            const std::size_t end = std::max(begin, offsetOf(text, value.end));
            texts.push_back(text.substr(0, begin) +
                            std::string(line.substr(equals + 3, line.size() - equals - 4)) +
                            text.substr(end));
        }
        const std::size_t begin = offsetOf(text, {found->first.source().begin.line, 1});
        const std::size_t end = std::max(begin, offsetOf(text, {value.end.line + 1, 1}));
        texts.push_back(text.replace(begin, end - begin, line));
        return texts;
    }
    // Behind a table's header the key would be the table's.
    const bool hasTables = std::ranges::any_of(table, [](const auto& entry) {
        return entry.second.is_table() || entry.second.is_array_of_tables();
    });
    return {hasTables ? text.insert(0, line) : text.append(line)};
}

}  // namespace

std::optional<SettingsFile> settingsFromText(std::string_view text,
                                             std::string_view path,
                                             Error* error) {
    const auto table = parseTable(text, path, error);
    if (!table) {
        return std::nullopt;
    }
    SettingsFile file{dictionaryFromTable(*table), {}};
    for (const auto& [key, node] : *table) {
        file.keys.push_back({std::string(key.str()), key.source().begin.line});
    }
    std::ranges::stable_sort(file.keys, {}, &SettingsFile::Key::line);
    return file;
}

std::optional<std::string> settingsTextWithChange(const std::string& text,
                                                  const Dictionary& wanted,
                                                  std::string_view key,
                                                  Error* error) {
    const auto line =
        wanted.contains(key) ? tomlText({{key, wanted[key]}}) : std::optional<std::string>("");
    auto whole = tomlText(wanted);
    if (!line || !whole) {
        fail(error, unfitSettingError(key, "Its value cannot be written to a settings file."));
        return std::nullopt;
    }
    if (text.size() + line->size() > largestSettingsFile) {
        fail(error, unfitSettingError(key, "The file would be too long."));
        return std::nullopt;
    }
    const auto table = parseTable(text, {}, nullptr);
    for (std::string& edited :
         table ? editedTexts(text, *table, key, *line) : std::vector<std::string>()) {
        const auto check = parseTable(edited, {}, nullptr);
        if (check && dictionaryFromTable(*check) == wanted) {
            return std::move(edited);
        }
    }
    if (text.find('#') != std::string::npos) {
        fail(error, unfitSettingError(key,
                                      "The file's comments would be lost; an editor can "
                                      "change it."));
        return std::nullopt;
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
    return Error::make(SettingsErrorDomain, SettingsErrorUnfitValue,
                       "The setting " + quoted(key) + " was not changed.", reason);
}

}  // namespace velto
