#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/NumberText.h>
#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace velto {

using detail::ValueAccess;

namespace {

std::string dateText(Date date) {
    using namespace std::chrono;
    const double seconds = std::floor(date.unixSeconds());
    // The calendar's own range: years -32767 to 32767.
    if (!(std::fabs(seconds) < 9e11)) {
        return numberText(date.secondsSinceReference) + " s since 2001-01-01 00:00:00 +0000";
    }
    const sys_seconds point{std::chrono::seconds(static_cast<std::int64_t>(seconds))};
    const auto day = floor<days>(point);
    const year_month_day calendar{day};
    const hh_mm_ss time{point - day};
    return format("%04d-%02u-%02u %02d:%02d:%02d +0000", int{calendar.year()},
                  unsigned{calendar.month()}, unsigned{calendar.day()},
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
}

std::string dataText(const Data& data) {
    static constexpr char digits[] = "0123456789abcdef";
    constexpr std::size_t shown = 24;
    std::string text = "{length = " + std::to_string(data.length()) + ", bytes = 0x";
    for (std::size_t i = 0; i < std::min(data.length(), shown); ++i) {
        text += digits[data.bytes()[i] >> 4];
        text += digits[data.bytes()[i] & 15];
    }
    return text + (data.length() > shown ? "…}" : "}");
}

/// Text within a container: quoted unless it is a plain word.
void appendQuoted(std::string& out, std::string_view text) {
    const auto isPlain = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    out += '"';
}

/// Writes containers with a work list in place of the call stack.
class Describer {
public:
    explicit Describer(std::string& out, std::size_t indent) : out_(out), indent_(indent) {}

    void describe(const Value& value) {
        begin(value, false);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            if (frame.next == frame.end) {
                const bool isArray = frame.isArray;
                frames_.pop_back();
                newLine();
                out_ += isArray ? ')' : '}';
            } else if (frame.isArray) {
                if (frame.started) {
                    out_ += ',';
                }
                frame.started = true;
                newLine();
                begin(*frame.next++, true);
            } else {
                // Key and value alternate; `started` says that the value is next.
                if (!frame.started) {
                    newLine();
                } else {
                    out_ += " = ";
                }
                frame.started = !frame.started;
                const Value& item = *frame.next++;
                frame.closesEntry = !frame.started;
                begin(item, true);
                continue;
            }
            closeEntry();
        }
    }

private:
    struct Frame {
        const Value* next;
        const Value* end;
        bool isArray;
        bool started = false;
        bool closesEntry = false;
    };

    /// Deeper levels stand on one line, for their indentation alone would grow with the square of
    /// the depth.
    static constexpr std::size_t indentedLevels = 16;

    void newLine() {
        const std::size_t level = indent_ + frames_.size();
        if (level < indentedLevels) {
            out_ += '\n';
            out_.append(level * 4, ' ');
        } else {
            out_ += ' ';
        }
    }

    /// A semicolon when the value of a dictionary's entry has just ended.
    void closeEntry() {
        if (!frames_.empty() && frames_.back().closesEntry) {
            frames_.back().closesEntry = false;
            out_ += ';';
        }
    }

    void begin(const Value& value, bool nested) {
        if (value.isArray()) {
            const detail::ArrayBlock* block = ValueAccess::array(value);
            const Value* first = block == nullptr ? nullptr : block->values();
            out_ += '(';
            frames_.push_back({first, block == nullptr ? first : first + block->count, true});
        } else if (value.isDictionary()) {
            // An entry is two values side by side.
            static_assert(sizeof(DictionaryEntry) == 2 * sizeof(Value));
            const detail::DictionaryBlock* block = ValueAccess::dictionary(value);
            const Value* first = block == nullptr ? nullptr : &block->entries()->key;
            out_ += '{';
            frames_.push_back(
                {first, block == nullptr ? first : first + 2 * std::size_t{block->count}, false});
        } else {
            plain(value, nested);
            closeEntry();
        }
    }

    void plain(const Value& value, bool nested) {
        switch (value.kind()) {
            case ValueKind::none:
                out_ += "(null)";
                break;
            case ValueKind::null:
                out_ += "<null>";
                break;
            case ValueKind::boolean:
                out_ += value.boolValue() ? '1' : '0';
                break;
            case ValueKind::signedInteger:
                out_ += std::to_string(value.integerValue());
                break;
            case ValueKind::unsignedInteger:
                out_ += std::to_string(value.unsignedValue());
                break;
            case ValueKind::singleFloat:
                out_ += numberText(static_cast<float>(value.doubleValue()));
                break;
            case ValueKind::doubleFloat:
                out_ += numberText(value.doubleValue());
                break;
            case ValueKind::string:
                if (nested) {
                    appendQuoted(out_, value.string());
                } else {
                    out_ += value.string();
                }
                break;
            case ValueKind::data:
                out_ += dataText(value.data());
                break;
            case ValueKind::date:
                out_ += dateText(value.date());
                break;
            default:
                out_ += ValueAccess::object(value)->object->description();
                break;
        }
    }

    std::string& out_;
    std::size_t indent_;
    std::vector<Frame> frames_;
};

}  // namespace

std::string Value::description(std::size_t indent) const {
    std::string text;
    Describer(text, indent).describe(*this);
    return text;
}

}  // namespace velto
