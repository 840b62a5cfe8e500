#include <CommandLine/JSONLine.h>

#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/Format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

namespace velto::cli {

namespace {

/// Also what JSON itself allows, but does something to a terminal or a page that shows it.
void appendEscape(std::string& text, char32_t codePoint) {
    const auto unit = [&](char32_t each) {
        text += format("\\u%04x", static_cast<unsigned>(each));
    };
    if (codePoint < 0x10000) {
        unit(codePoint);
    } else {
        unit(0xD7C0 + (codePoint >> 10));
        unit(0xDC00 + (codePoint & 0x3FF));
    }
}

void appendWord(std::string& text, std::string_view word) {
    text += '"';
    for (std::string_view rest = word; !rest.empty();) {
        const char32_t codePoint = takeCodePoint(rest);
        if (codePoint == '"' || codePoint == '\\') {
            text += '\\';
            text += static_cast<char>(codePoint);
        } else if (codePoint == '\n') {
            text += "\\n";
        } else if (isControlCharacter(codePoint)) {
            appendEscape(text, codePoint);
        } else {
            appendUTF8(text, codePoint);
        }
    }
    text += '"';
}

void appendText(std::string& text, std::string_view value) {
    appendWord(text, withoutSecrets(value));
}

template <class Number>
void appendNumber(std::string& text, Number number) {
    std::array<char, 32> digits;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), result.ptr);
}

void appendScalar(std::string& text, const Value& value) {
    switch (value.kind()) {
        case ValueKind::boolean:
            text += value.boolValue() ? "true" : "false";
            break;
        case ValueKind::signedInteger:
            appendNumber(text, value.integerValue());
            break;
        case ValueKind::unsignedInteger:
            appendNumber(text, value.unsignedValue());
            break;
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            if (std::isfinite(value.doubleValue())) {
                appendNumber(text, value.doubleValue());
            } else {
                text += "null";
            }
            break;
        case ValueKind::string:
            appendText(text, value.string());
            break;
        case ValueKind::none:
        case ValueKind::null:
            text += "null";
            break;
        default:
            appendText(text, value.description());
    }
}

/// An array or a dictionary under way.
struct Level {
    Array array;
    Dictionary dictionary;
    bool isArray;
    std::size_t next = 0;
};

}  // namespace

void appendJSON(std::string& text, const Value& value, JSONKeys keys) {
    std::vector<Level> levels;
    const auto begin = [&](const Value& part) {
        if (part.isArray()) {
            text += '[';
            levels.push_back({.array = part.array(), .dictionary = {}, .isArray = true});
        } else if (part.isDictionary()) {
            text += '{';
            levels.push_back({.array = {}, .dictionary = part.dictionary(), .isArray = false});
        } else {
            appendScalar(text, part);
        }
    };
    begin(value);
    while (!levels.empty()) {
        Level& level = levels.back();
        const std::size_t index = level.next++;
        if (index == (level.isArray ? level.array.size() : level.dictionary.size())) {
            text += level.isArray ? ']' : '}';
            levels.pop_back();
            continue;
        }
        if (index > 0) {
            text += ',';
        }
        if (level.isArray) {
            begin(Value(level.array[index]));
        } else {
            const DictionaryEntry& entry = level.dictionary.begin()[index];
            const std::string key = entry.key.description();
            keys == JSONKeys::ours ? appendWord(text, key) : appendText(text, key);
            text += ':';
            begin(Value(entry.value));
        }
    }
}

JSONLine::JSONLine(std::string_view type) : type_(type) {
}

JSONLine& JSONLine::add(std::string_view key, const Value& value, JSONKeys keys) {
    if (!value.isNone()) {
        members_ += ',';
        appendWord(members_, key);
        members_ += ':';
        appendJSON(members_, value, keys);
    }
    return *this;
}

JSONLine& JSONLine::addWord(std::string_view key, std::string_view word) {
    members_ += ',';
    appendWord(members_, key);
    members_ += ':';
    appendWord(members_, word);
    return *this;
}

JSONLine& JSONLine::addAll(const Dictionary& details) {
    for (const DictionaryEntry& entry : details) {
        // What the delivery tool answered has keys of its own.
        add(entry.key.string(), entry.value,
            entry.key.string() == "output" ? JSONKeys::strangers : JSONKeys::ours);
    }
    return *this;
}

std::string JSONLine::text(std::string_view time, bool isFirst) const {
    std::string line = "{\"type\":";
    appendWord(line, type_);
    if (isFirst) {
        line += ",\"schema\":";
        appendNumber(line, schema);
    }
    line += ",\"time\":";
    appendWord(line, time);
    return line.append(members_).append("}");
}

}  // namespace velto::cli
