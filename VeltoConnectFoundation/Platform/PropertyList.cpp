#include <VeltoConnectFoundation/Platform/PropertyList.h>

#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/XMLDocument.h>

#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t largestList = std::size_t{1} << 20;
constexpr unsigned deepestLevel = 128;

enum Code : std::int64_t { malformed = 1, noForm = 2 };

Error readingError(std::string_view reason) {
    return Error::make(PropertyListErrorDomain, malformed,
                       localized("The property list could not be read."), reason);
}

Error writingError(std::string_view reason) {
    return Error::make(PropertyListErrorDomain, noForm,
                       localized("The property list could not be written."), reason);
}

// The XML form, from a tree.

constexpr std::string_view blanks = " \t\r\n";

std::string_view withoutBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The whole text as a number.
template <class Number, class... Base>
std::optional<Number> numberFromText(std::string_view text, Base... base) {
    Number number{};
    const auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, base...);
    return failure == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                      : std::nullopt;
}

std::optional<Value> integerFromText(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const int base = isHexadecimal ? 16 : 10;
    text.remove_prefix(isHexadecimal ? 2 : 0);
    if (isHexadecimal && text.starts_with('-')) {
        return std::nullopt;
    }
    if (const auto number = numberFromText<std::int64_t>(text, base)) {
        return Value(*number);
    }
    const auto number = numberFromText<std::uint64_t>(text, base);
    return number ? std::optional<Value>(*number) : std::nullopt;
}

std::optional<Value> realFromText(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    const auto number = numberFromText<double>(text);
    return number ? std::optional<Value>(*number) : std::nullopt;
}

/// "2001-01-01T00:00:00Z" and nothing else.
std::optional<Value> dateFromText(std::string_view text) {
    if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' ||
        text[13] != ':' || text[16] != ':' || text[19] != 'Z') {
        return std::nullopt;
    }
    std::array<unsigned, 6> parts{};
    constexpr std::array<std::pair<std::size_t, std::size_t>, 6> places = {
        {{0, 4}, {5, 2}, {8, 2}, {11, 2}, {14, 2}, {17, 2}}};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto part = numberFromText<unsigned>(text.substr(places[i].first, places[i].second));
        if (!part) {
            return std::nullopt;
        }
        parts[i] = *part;
    }
    const std::chrono::year_month_day day(std::chrono::year(static_cast<int>(parts[0])),
                                          std::chrono::month(parts[1]), std::chrono::day(parts[2]));
    if (!day.ok() || parts[3] > 23 || parts[4] > 59 || parts[5] > 60) {
        return std::nullopt;
    }
    const auto days = std::chrono::sys_days(day).time_since_epoch().count();
    return Value(Date::fromUnixSeconds(static_cast<double>(days) * 86400.0 + parts[3] * 3600.0 +
                                       parts[4] * 60.0 + parts[5]));
}

std::optional<Value> dataFromText(std::string_view text) {
    std::string digits;
    digits.reserve(text.size());
    std::ranges::copy_if(text, std::back_inserter(digits),
                         [](char c) { return blanks.find(c) == std::string_view::npos; });
    const auto data = decodeBase64(digits);
    return data ? std::optional<Value>(*data) : std::nullopt;
}

std::optional<Value> valueFromElement(const XMLElement& element, Error* error);

/// none with an error for what is wrong in the element itself.
std::optional<Value> misplaced(const XMLElement& element, Error* error) {
    fail(error, readingError(localizedFormat("Line %lu: an element is not as it should be.",
                                             static_cast<unsigned long>(element.line()))));
    return std::nullopt;
}

std::optional<Value> arrayFromElement(const XMLElement& element, Error* error) {
    Array array;
    array.reserve(element.children().size());
    for (const XMLElement& child : element.children()) {
        auto value = valueFromElement(child, error);
        if (!value) {
            return std::nullopt;
        }
        array.append(std::move(*value));
    }
    return Value(array);
}

std::optional<Value> dictionaryFromElement(const XMLElement& element, Error* error) {
    const auto& children = element.children();
    if (children.size() % 2 != 0) {
        return misplaced(element, error);
    }
    Dictionary dictionary;
    dictionary.reserve(children.size() / 2);
    for (std::size_t i = 0; i < children.size(); i += 2) {
        if (children[i].name() != "key" || !children[i].children().empty()) {
            return misplaced(children[i], error);
        }
        auto value = valueFromElement(children[i + 1], error);
        if (!value) {
            return std::nullopt;
        }
        dictionary.set(children[i].text(), std::move(*value));
    }
    return Value(dictionary);
}

std::optional<Value> valueFromElement(const XMLElement& element, Error* error) {
    const std::string& name = element.name();
    const std::string_view text = withoutBlanks(element.text());
    if (name == "dict" || name == "array") {
        if (!text.empty()) {
            return misplaced(element, error);
        }
        return name == "dict" ? dictionaryFromElement(element, error)
                              : arrayFromElement(element, error);
    }
    std::optional<Value> value;
    if (!element.children().empty()) {
        // Nothing else holds elements.
    } else if (name == "string") {
        value = Value(element.text());
    } else if (name == "integer") {
        value = integerFromText(text);
    } else if (name == "real") {
        value = realFromText(text);
    } else if ((name == "true" || name == "false") && text.empty()) {
        value = Value(name == "true");
    } else if (name == "date") {
        value = dateFromText(text);
    } else if (name == "data") {
        value = dataFromText(text);
    }
    return value ? value : misplaced(element, error);
}

std::optional<Value> parseXML(std::string_view bytes, Error* error) {
    Error reason;
    const auto document = XMLDocument::parse(bytes, &reason);
    if (!document) {
        fail(error, readingError(reason.localizedFailureReason().value_or("")));
        return std::nullopt;
    }
    const XMLElement& root = document->root();
    if (root.name() != "plist" || root.children().size() != 1 ||
        !withoutBlanks(root.text()).empty()) {
        return misplaced(root, error);
    }
    return valueFromElement(root.children().front(), error);
}

// The binary form.

/// Reads objects where the table of offsets says they are. Whatever the table says, levels and the
/// expanded size are bounded: an object may be referred to many times.
class BinaryReader {
    static constexpr std::uint64_t highestBudget = std::uint64_t{16} << 20;

public:
    explicit BinaryReader(std::string_view bytes)
        : bytes_(bytes), budget_(std::min(highestBudget, 65536 + 256 * bytes.size())) {}

    std::optional<Value> read() {
        constexpr std::size_t trailerSize = 32;
        constexpr std::size_t headerSize = 8;
        if (bytes_.size() < headerSize + trailerSize) {
            return std::nullopt;
        }
        const std::size_t trailer = bytes_.size() - trailerSize;
        offsetSize_ = number(trailer + 6, 1);
        referenceSize_ = number(trailer + 7, 1);
        count_ = number(trailer + 8, 8);
        const std::uint64_t top = number(trailer + 16, 8);
        table_ = number(trailer + 24, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8 ||
            table_ < headerSize || table_ > trailer || count_ > (trailer - table_) / offsetSize_) {
            return std::nullopt;
        }
        return object(top, 0);
    }

private:
    /// Big-endian; the bytes are there.
    std::uint64_t number(std::size_t offset, std::size_t size) const {
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < size; ++i) {
            result = result << 8 | static_cast<std::uint8_t>(bytes_[offset + i]);
        }
        return result;
    }

    /// Whether that many bytes stand at `offset` before the table, and may still be expanded.
    bool take(std::size_t offset, std::uint64_t size) {
        if (offset > table_ || size > table_ - offset || size >= budget_) {
            return false;
        }
        budget_ -= size + 1;
        return true;
    }

    std::optional<Value> object(std::uint64_t index, unsigned level) {
        if (index >= count_ || level >= deepestLevel) {
            return std::nullopt;
        }
        std::size_t at = number(table_ + index * offsetSize_, offsetSize_);
        if (!take(at, 1)) {
            return std::nullopt;
        }
        const auto marker = static_cast<std::uint8_t>(bytes_[at++]);
        const unsigned kind = marker >> 4;
        std::uint64_t size = marker & 0x0fU;
        switch (kind) {
            case 0x0:
                if (marker == 0x08 || marker == 0x09) {
                    return Value(marker == 0x09);
                }
                return std::nullopt;
            case 0x1:
                return size > 4 ? std::nullopt : integer(at, std::size_t{1} << size);
            case 0x2:
                return size == 2 || size == 3 ? real(at, std::size_t{1} << size) : std::nullopt;
            case 0x3: {
                const auto seconds = size == 3 ? real(at, 8) : std::nullopt;
                return seconds && std::isfinite(seconds->doubleValue())
                           ? std::optional<Value>(Date{seconds->doubleValue()})
                           : std::nullopt;
            }
            default:
                break;
        }
        if (size == 0x0f && !longSize(at, size)) {
            return std::nullopt;
        }
        switch (kind) {
            case 0x4:
                return take(at, size) ? std::optional<Value>(Data(bytes_.substr(at, size)))
                                      : std::nullopt;
            case 0x5:
                return asciiText(at, size);
            case 0x6:
                return wideText(at, size);
            case 0xa:
                return array(at, size, level);
            case 0xd:
                return dictionary(at, size, level);
            default:
                return std::nullopt;
        }
    }

    /// A size of 15 and more is an integer object of its own.
    bool longSize(std::size_t& at, std::uint64_t& size) {
        if (!take(at, 1)) {
            return false;
        }
        const auto marker = static_cast<std::uint8_t>(bytes_[at]);
        const std::size_t width = std::size_t{1} << (marker & 0x0fU);
        if (marker >> 4 != 0x1 || width > 8 || !take(at + 1, width)) {
            return false;
        }
        size = number(at + 1, width);
        at += 1 + width;
        return true;
    }

    std::optional<Value> integer(std::size_t at, std::size_t width) {
        if (!take(at, width)) {
            return std::nullopt;
        }
        if (width < 8) {
            return Value(static_cast<std::int64_t>(number(at, width)));
        }
        const std::uint64_t low = number(at + width - 8, 8);
        if (width == 8) {
            return Value(static_cast<std::int64_t>(low));
        }
        const std::uint64_t high = number(at, 8);
        if (high == 0) {
            return Value(low);
        }
        const auto negative = static_cast<std::int64_t>(low);
        return high == std::numeric_limits<std::uint64_t>::max() && negative < 0
                   ? std::optional<Value>(negative)
                   : std::nullopt;
    }

    std::optional<Value> real(std::size_t at, std::size_t width) {
        if (!take(at, width)) {
            return std::nullopt;
        }
        return width == 4 ? Value(std::bit_cast<float>(static_cast<std::uint32_t>(number(at, 4))))
                          : Value(std::bit_cast<double>(number(at, 8)));
    }

    std::optional<Value> asciiText(std::size_t at, std::uint64_t size) {
        if (!take(at, size)) {
            return std::nullopt;
        }
        const std::string_view text = bytes_.substr(at, size);
        return std::ranges::all_of(text, [](char c) { return static_cast<std::uint8_t>(c) < 0x80; })
                   ? std::optional<Value>(text)
                   : std::nullopt;
    }

    std::optional<Value> wideText(std::size_t at, std::uint64_t units) {
        if (units > bytes_.size() || !take(at, units * 2)) {
            return std::nullopt;
        }
        std::u16string text(units, u'\0');
        for (std::size_t i = 0; i < units; ++i) {
            text[i] = static_cast<char16_t>(number(at + i * 2, 2));
        }
        std::string utf8 = utf8FromUTF16(text);
        return isValidUTF8(utf8) ? std::optional<Value>(utf8) : std::nullopt;
    }

    std::optional<Value> array(std::size_t at, std::uint64_t size, unsigned level) {
        if (size > bytes_.size() || !take(at, size * referenceSize_)) {
            return std::nullopt;
        }
        Array result;
        result.reserve(size);
        for (std::size_t i = 0; i < size; ++i) {
            auto value = object(number(at + i * referenceSize_, referenceSize_), level + 1);
            if (!value) {
                return std::nullopt;
            }
            result.append(std::move(*value));
        }
        return Value(result);
    }

    std::optional<Value> dictionary(std::size_t at, std::uint64_t size, unsigned level) {
        if (size > bytes_.size() || !take(at, size * 2 * referenceSize_)) {
            return std::nullopt;
        }
        Dictionary result;
        result.reserve(size);
        for (std::size_t i = 0; i < size; ++i) {
            auto key = object(number(at + i * referenceSize_, referenceSize_), level + 1);
            auto value =
                object(number(at + (size + i) * referenceSize_, referenceSize_), level + 1);
            if (!key || !key->isString() || !value) {
                return std::nullopt;
            }
            result.set(std::move(*key), std::move(*value));
        }
        return Value(result);
    }

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    std::size_t table_ = 0;
    std::uint64_t budget_;  ///< Bytes that may still be expanded.
};

// Writing.

/// XML 1.0 has no form for the other control characters, nor for U+FFFE and U+FFFF.
bool isXMLText(std::string_view text) {
    return isValidUTF8(text) && text.find("\xef\xbf\xbe") == std::string_view::npos &&
           text.find("\xef\xbf\xbf") == std::string_view::npos &&
           std::ranges::none_of(text, [](char c) {
               return static_cast<std::uint8_t>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
           });
}

void appendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '\r':
                out += "&#13;";  // A plain one would be read as a line feed.
                break;
            default:
                out += c;
        }
    }
}

void appendElement(std::string& out, std::string_view name, std::string_view text) {
    out += '<';
    out += name;
    out += '>';
    appendEscaped(out, text);
    out += "</";
    out += name;
    out += ">\n";
}

std::string textOfReal(double number) {
    if (std::isnan(number)) {
        return "nan";
    }
    if (std::isinf(number)) {
        return number < 0 ? "-infinity" : "+infinity";
    }
    std::array<char, 32> buffer{};
    auto* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    return std::string(buffer.data(), end);
}

/// none outside of the years 0 to 9999.
std::optional<std::string> textOfDate(Date date) {
    const double seconds = std::floor(date.unixSeconds());
    const bool isInRange = seconds >= -62167219200.0 && seconds < 253402300800.0;
    if (!isInRange) {
        return std::nullopt;
    }
    const std::chrono::sys_seconds time(std::chrono::seconds(static_cast<std::int64_t>(seconds)));
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day calendar(day);
    const std::chrono::hh_mm_ss clock(time - day);
    return format("%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(calendar.year()),
                  static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                  static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
}

class XMLWriter {
public:
    /// False for what has no form.
    bool write(const Value& value, unsigned level) {
        if (level >= deepestLevel) {
            return false;
        }
        switch (value.kind()) {
            case ValueKind::boolean:
                out_.append(level, '\t');
                out_ += value.boolValue() ? "<true/>\n" : "<false/>\n";
                return true;
            case ValueKind::signedInteger:
                return element(level, "integer", std::to_string(value.integerValue()));
            case ValueKind::unsignedInteger:
                return element(level, "integer", std::to_string(value.unsignedValue()));
            case ValueKind::singleFloat:
            case ValueKind::doubleFloat:
                return element(level, "real", textOfReal(value.doubleValue()));
            case ValueKind::string:
                return element(level, "string", value.string());
            case ValueKind::data:
                return element(level, "data", encodeBase64(value.data().view()));
            case ValueKind::date: {
                const auto text = textOfDate(value.date());
                return text && element(level, "date", *text);
            }
            case ValueKind::array:
                return array(value.array(), level);
            case ValueKind::dictionary:
                return dictionary(value.dictionary(), level);
            case ValueKind::none:
            case ValueKind::null:
            case ValueKind::object:
                break;
        }
        return false;
    }

    std::string take() { return std::move(out_); }

private:
    bool element(unsigned level, std::string_view name, std::string_view text) {
        out_.append(level, '\t');
        appendElement(out_, name, text);
        return isXMLText(text);
    }

    void line(unsigned level, std::string_view text) {
        out_.append(level, '\t');
        out_ += text;
    }

    bool array(const Array& values, unsigned level) {
        line(level, "<array>\n");
        for (const Value& value : values) {
            if (!write(value, level + 1)) {
                return false;
            }
        }
        line(level, "</array>\n");
        return true;
    }

    bool dictionary(const Dictionary& entries, unsigned level) {
        line(level, "<dict>\n");
        for (const DictionaryEntry& entry : entries) {
            if (!entry.key.isString() || !element(level + 1, "key", entry.key.string()) ||
                !write(entry.value, level + 1)) {
                return false;
            }
        }
        line(level, "</dict>\n");
        return true;
    }

    std::string out_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
};

struct NodeDeleter {
    using pointer = plist_t;
    void operator()(plist_t node) const noexcept { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeDeleter>;

bool isPlainText(std::string_view text) {
    return isValidUTF8(text) && text.find('\0') == std::string_view::npos;
}

/// Null for what has no form.
Node nodeFromValue(const Value& value, unsigned level) {
    if (level >= deepestLevel) {
        return nullptr;
    }
    switch (value.kind()) {
        case ValueKind::boolean:
            return Node(plist_new_bool(value.boolValue() ? 1 : 0));
        case ValueKind::signedInteger:
            return Node(plist_new_uint(static_cast<std::uint64_t>(value.integerValue())));
        case ValueKind::unsignedInteger:
            return std::in_range<std::int64_t>(value.unsignedValue())
                       ? Node(plist_new_uint(value.unsignedValue()))
                       : nullptr;
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            return Node(plist_new_real(value.doubleValue()));
        case ValueKind::string:
            return isPlainText(value.string())
                       ? Node(plist_new_string(std::string(value.string()).c_str()))
                       : nullptr;
        case ValueKind::data: {
            const Data data = value.data();
            return Node(plist_new_data(data.view().data(), data.length()));
        }
        case ValueKind::date: {
            const double seconds = value.date().secondsSinceReference;
            const double whole = std::floor(seconds);
            const bool isInRange = whole >= std::numeric_limits<std::int32_t>::min() &&
                                   whole <= std::numeric_limits<std::int32_t>::max();
            if (!isInRange) {
                return nullptr;
            }
            return Node(plist_new_date(static_cast<std::int32_t>(whole),
                                       static_cast<std::int32_t>((seconds - whole) * 1e6)));
        }
        case ValueKind::array: {
            Node array(plist_new_array());
            for (const Value& element : value.array()) {
                Node node = nodeFromValue(element, level + 1);
                if (!node) {
                    return nullptr;
                }
                plist_array_append_item(array.get(), node.release());
            }
            return array;
        }
        case ValueKind::dictionary: {
            Node dictionary(plist_new_dict());
            for (const DictionaryEntry& entry : value.dictionary()) {
                Node node = nodeFromValue(entry.value, level + 1);
                if (!node || !entry.key.isString() || !isPlainText(entry.key.string())) {
                    return nullptr;
                }
                plist_dict_set_item(dictionary.get(), std::string(entry.key.string()).c_str(),
                                    node.release());
            }
            return dictionary;
        }
        case ValueKind::none:
        case ValueKind::null:
        case ValueKind::object:
            break;
    }
    return nullptr;
}

}  // namespace

std::optional<Value> PropertyList::parse(std::string_view bytes, Error* error) {
    if (bytes.size() > largestList) {
        fail(error, readingError(localized("It is larger than a property list may be.")));
        return std::nullopt;
    }
    if (!bytes.starts_with("bplist00")) {
        return parseXML(bytes, error);
    }
    auto value = BinaryReader(bytes).read();
    if (!value) {
        fail(error, readingError(localized("Its binary form is damaged.")));
    }
    return value;
}

std::optional<std::string> PropertyList::xml(const Value& value, Error* error) {
    XMLWriter writer;
    if (!writer.write(value, 0)) {
        fail(error, writingError(localized("A value has no form in a property list.")));
        return std::nullopt;
    }
    return writer.take() + "</plist>\n";
}

std::optional<Data> PropertyList::binary(const Value& value, Error* error) {
    const Node node = nodeFromValue(value, 0);
    char* bytes = nullptr;  // libplist writes nothing unless it is null.
    std::uint32_t length = 0;
    if (node) {
        plist_to_bin(node.get(), &bytes, &length);
    }
    if (bytes == nullptr) {
        fail(error, writingError(localized("A value has no form in a property list.")));
        return std::nullopt;
    }
    std::unique_ptr<char, decltype(&std::free)> owned(bytes, &std::free);
    Data data = Data::adoptingMalloc(bytes, length);
    static_cast<void>(owned.release());
    return data;
}

}  // namespace velto
