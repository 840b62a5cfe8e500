#include <CommandLine/JSONLine.h>

#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

namespace velto::cli {

namespace {

void appendText(std::string& text, std::string_view value) {
    const std::array<FormatArgument, 1> argument{FormatArgument(value)};
    const std::string masked = MZLogMaskedMessage("%@", argument);
    text += '"';
    for (std::string_view rest = masked; !rest.empty();) {
        const char32_t codePoint = takeCodePoint(rest);
        if (codePoint == '"' || codePoint == '\\') {
            text += '\\';
            text += static_cast<char>(codePoint);
        } else if (codePoint == '\n') {
            text += "\\n";
        } else if (codePoint < 0x20 || codePoint == 0x7F) {
            text += format("\\u%04x", static_cast<unsigned>(codePoint));
        } else {
            appendUTF8(text, codePoint);
        }
    }
    text += '"';
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

void appendJSON(std::string& text, const Value& value) {
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
            appendText(text, entry.key.description());
            text += ':';
            begin(Value(entry.value));
        }
    }
}

JSONLine::JSONLine(std::string_view type) {
    text_ = "{\"type\":";
    appendText(text_, type);
}

JSONLine& JSONLine::add(std::string_view key, const Value& value) {
    if (!value.isNone()) {
        text_ += ',';
        appendText(text_, key);
        text_ += ':';
        appendJSON(text_, value);
    }
    return *this;
}

}  // namespace velto::cli
