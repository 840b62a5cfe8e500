#include <VeltoConnectFoundation/Platform/SecretScanner.h>

#include <VeltoConnectFoundation/Platform/Secret.h>
#include <VeltoConnectFoundation/Platform/UTF8Text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace velto {

namespace {

constexpr std::size_t leastOfForm = 4;
constexpr std::size_t leastOfOtherCase = 6;
constexpr unsigned slotBits = 12;
/// Encodings inside of each other that are looked through.
constexpr unsigned deepest = 3;
constexpr std::size_t blockSize = std::size_t{64} * 1024;
/// What an encoding makes of a byte at most: "&#x00000041;" or a \u escape of an escape.
constexpr std::size_t largestGrowth = 16;

/// Letters of one case, also those whose UTF-8 differs in this bit of its last byte; and a blank
/// for the plus sign that stands for it in forms.
constexpr std::array<unsigned char, 256> folded = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        const bool isUpper = (byte >= 'A' && byte <= 'Z') || (byte >= 0x80 && byte < 0xA0);
        table[byte] = static_cast<unsigned char>(byte == '+' ? ' ' : isUpper ? byte | 0x20 : byte);
    }
    return table;
}();

unsigned char byteOf(char character) {
    return static_cast<unsigned char>(character);
}

/// Of four folded bytes.
std::size_t slotOf(std::uint32_t key) {
    return (key * 0x9E3779B1U) >> (32 - slotBits);
}

std::uint32_t nextKey(std::uint32_t key, char character) {
    return (key << 8) | folded[byteOf(character)];
}

constexpr unsigned char noDigit = 0xFF;
/// The values of both alphabets' digits.
constexpr std::array<unsigned char, 256> base64Digits = [] {
    std::array<unsigned char, 256> table{};
    table.fill(noDigit);
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t value = 0; value < alphabet.size(); ++value) {
        table[static_cast<unsigned char>(alphabet[value])] = static_cast<unsigned char>(value);
    }
    table['-'] = 62;
    table['_'] = 63;
    return table;
}();

/// The bytes as characters of Latin-1, in UTF-8.
std::string readAsLatin1(std::string_view bytes) {
    std::string text(2 * bytes.size(), '\0');
    char* end = text.data();
    for (const char byte : bytes) {
        end = writeUTF8(end, byteOf(byte));
    }
    text.resize(static_cast<std::size_t>(end - text.data()));
    return text;
}

/// Empty when the text is not UTF-8 of characters of Latin-1.
std::string writtenInLatin1(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned char lead = byteOf(text[at]);
        if (lead < 0x80) {
            bytes += text[at];
        } else if ((lead == 0xC2 || lead == 0xC3) && at + 1 < text.size()) {
            bytes += static_cast<char>((lead << 6) | (byteOf(text[++at]) & 0x3F));
        } else {
            return {};
        }
    }
    return bytes;
}

/// What an escape stands for, and how long it is.
struct Escape {
    std::array<char, 4> bytes = {};
    std::size_t count = 0;   ///< Of the bytes.
    std::size_t length = 0;  ///< 0 when it is none.
};

Escape byteEscape(std::uint32_t byte, std::size_t length) {
    return {{static_cast<char>(byte)}, 1, length};
}

std::optional<std::uint32_t> numberAt(std::string_view text,
                                      std::size_t at,
                                      std::size_t digits,
                                      int base) {
    std::uint32_t number = 0;
    if (at + digits > text.size() || digits == 0) {
        return std::nullopt;
    }
    const char* const end = text.data() + at + digits;
    const auto result = std::from_chars(text.data() + at, end, number, base);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

Escape characterEscape(std::uint32_t character, std::size_t length) {
    if (character > 0x10FFFF) {
        return {};
    }
    Escape escape{.length = length};
    char* const start = escape.bytes.data();
    escape.count = static_cast<std::size_t>(writeUTF8(start, character) - start);
    return escape;
}

Escape backslashEscape(std::string_view text) {
    if (text.size() < 2) {
        return {};
    }
    constexpr std::string_view letters = "nrtbf";
    constexpr std::string_view controls = "\n\r\t\b\f";
    const char kind = text[1];
    if (kind == 'u') {
        const auto unit = numberAt(text, 2, 4, 16);
        if (unit && *unit >= 0xD800 && *unit < 0xDC00 && text.substr(6).starts_with("\\u")) {
            const auto low = numberAt(text, 8, 4, 16);
            if (low && *low >= 0xDC00 && *low < 0xE000) {
                return characterEscape(0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00), 12);
            }
        }
        return unit ? characterEscape(*unit, 6) : Escape();
    }
    if (kind == 'x' || (kind >= '0' && kind <= '3')) {
        const auto byte = kind == 'x' ? numberAt(text, 2, 2, 16) : numberAt(text, 1, 3, 8);
        return byte ? byteEscape(*byte, 4) : Escape();
    }
    if (const std::size_t letter = letters.find(kind); letter != std::string_view::npos) {
        return byteEscape(byteOf(controls[letter]), 2);
    }
    const bool isPlain = byteOf(kind) >= 0x80 || (kind >= '0' && kind <= '9') ||
                         (kind >= 'A' && kind <= 'Z') || (kind >= 'a' && kind <= 'z');
    return isPlain ? Escape() : byteEscape(byteOf(kind), 2);
}

Escape entityEscape(std::string_view text) {
    constexpr std::size_t longestEntity = 12;
    constexpr std::pair<std::string_view, char> names[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    const std::size_t end = text.substr(0, longestEntity).find(';');
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view name = text.substr(1, end - 1);
    if (name.starts_with('#')) {
        const bool isHex = name.size() > 1 && (name[1] | 0x20) == 'x';
        const std::size_t digits = isHex ? 2 : 1;
        const auto number = numberAt(name, digits, name.size() - digits, isHex ? 16 : 10);
        return number ? characterEscape(*number, end + 1) : Escape();
    }
    for (const auto& [known, character] : names) {
        if (name == known) {
            return byteEscape(byteOf(character), end + 1);
        }
    }
    return {};
}

Escape percentEscape(std::string_view text) {
    const auto byte = numberAt(text, 1, 2, 16);
    return byte ? byteEscape(*byte, 3) : Escape();
}

/// A shell's quotes, ended for a quote and begun again.
Escape quoteEscape(std::string_view text) {
    return text.starts_with(R"('\'')")    ? byteEscape('\'', 4)
           : text.starts_with(R"('"'"')") ? byteEscape('\'', 5)
                                          : Escape();
}

/// A way to write characters, by the one that begins an escape. Each is undone by itself, since
/// what looks like one of another way may be the secret's own.
struct Escaping {
    char start;
    Escape (*escapeAt)(std::string_view text);
};
constexpr Escaping escapings[] = {{'%', &percentEscape},
                                  {'\\', &backslashEscape},
                                  {'&', &entityEscape},
                                  {'\'', &quoteEscape}};

}  // namespace

/// What an encoded part of an outer layer stands for, and where in it each byte comes from.
struct SecretScanner::Layer {
    const Layer* outer = nullptr;  ///< Null for the text itself.
    std::size_t start = 0;         ///< Of the text itself: where in the whole it begins.
    std::string_view view = {};
    std::string bytes = {};
    std::vector<std::uint32_t> begins = {};
    std::vector<std::uint32_t> ends = {};

    void add(char byte, std::size_t begin, std::size_t end) {
        bytes += byte;
        begins.push_back(static_cast<std::uint32_t>(begin));
        ends.push_back(static_cast<std::uint32_t>(end));
    }
    void clear() {
        bytes.clear();
        begins.clear();
        ends.clear();
    }
    Place placeInText(Place place) const {
        const Layer* layer = this;
        for (; layer->outer != nullptr; layer = layer->outer) {
            place = {layer->begins[place.first], layer->ends[place.second - 1]};
        }
        return {place.first + layer->start, place.second + layer->start};
    }
};

/// One search through the layers of a text.
class SecretScanner::Search {
public:
    Search(const SecretScanner& scanner, std::vector<Place>& places)
        : scanner_(scanner), places_(places), leastDigits_((scanner.shortest_ * 4 + 2) / 3) {}

    void lookThrough(const Layer& layer, unsigned depth) {
        if (layer.outer != nullptr) {
            scanner_.search(layer.view,
                            [&](Place place) { places_.push_back(layer.placeInText(place)); });
        }
        if (depth < deepest) {
            for (const Escaping& escaping : escapings) {
                lookThroughEscapes(layer, escaping, depth);
            }
            lookThroughBase64(layer, depth);
        }
    }

private:
    void lookThroughEscapes(const Layer& layer, const Escaping& escaping, unsigned depth) {
        const std::string_view text = layer.view;
        std::size_t next = 0;
        Escape escape;
        const auto findNext = [&](std::size_t from) {
            for (next = text.find(escaping.start, from); next != std::string_view::npos;
                 next = text.find(escaping.start, next + 1)) {
                escape = escaping.escapeAt(text.substr(next));
                if (escape.length != 0) {
                    return true;
                }
            }
            return false;
        };
        if (!findNext(0)) {
            return;
        }
        Layer inner{.outer = &layer};
        for (std::size_t at = 0; at < text.size();) {
            for (; at < std::min(next, text.size()); ++at) {
                inner.add(text[at], at, at + 1);
            }
            if (at < text.size()) {
                for (std::size_t index = 0; index < escape.count; ++index) {
                    inner.add(escape.bytes[index], at, at + escape.length);
                }
                at += escape.length;
                findNext(at);
            }
        }
        inner.view = inner.bytes;
        lookThrough(inner, depth + 1);
        wipe(inner.bytes);
    }

    void lookThroughBase64(const Layer& layer, unsigned depth) {
        const std::string_view text = layer.view;
        std::vector<std::uint32_t> digits;
        for (std::size_t at = 0; at <= text.size(); ++at) {
            if (at < text.size() && base64Digits[byteOf(text[at])] != noDigit) {
                digits.push_back(static_cast<std::uint32_t>(at));
            } else if (at == text.size() || (text[at] != '\n' && text[at] != '\r')) {
                if (digits.size() >= leastDigits_) {
                    decode(layer, digits, depth);
                }
                digits.clear();
            }
        }
    }

    /// Where a group of four digits begins is not known.
    void decode(const Layer& layer, const std::vector<std::uint32_t>& digits, unsigned depth) {
        Layer inner{.outer = &layer};
        for (std::size_t phase = 0; phase < 4; ++phase) {
            inner.clear();
            std::uint32_t bits = 0;
            unsigned count = 0;
            for (std::size_t index = phase; index < digits.size(); ++index) {
                bits = (bits << 6) | base64Digits[byteOf(layer.view[digits[index]])];
                count += 6;
                if (count >= 8) {
                    count -= 8;
                    inner.add(static_cast<char>(bits >> count), digits[index - 1],
                              digits[index] + 1);
                }
            }
            inner.view = inner.bytes;
            lookThrough(inner, depth + 1);
        }
        wipe(inner.bytes);
    }

    const SecretScanner& scanner_;
    std::vector<Place>& places_;
    const std::size_t leastDigits_;
};

SecretScanner::SecretScanner(const std::vector<std::string>& secrets)
    : slots_(std::size_t{1} << slotBits) {
    shortSecrets_.reserve(secrets.size());  // so that nothing moves and leaves a copy
    forms_.reserve(3 * secrets.size());
    for (const std::string& secret : secrets) {
        if (secret.size() < leastOfForm) {
            shortSecrets_.push_back(secret);
            continue;
        }
        add(secret);
        if (std::ranges::any_of(secret, [](char each) { return byteOf(each) >= 0x80; })) {
            add(readAsLatin1(secret));
            add(writtenInLatin1(secret));
        }
    }
}

SecretScanner::~SecretScanner() {
    for (std::string& secret : shortSecrets_) {
        wipe(secret);
    }
    for (Form& form : forms_) {
        wipe(form.bytes);
    }
}

void SecretScanner::add(std::string bytes) {
    if (bytes.size() < leastOfForm || forms_.size() == 0xFFFF) {
        return;
    }
    std::uint32_t key = 0;
    for (std::size_t index = 0; index < leastOfForm; ++index) {
        key = nextKey(key, bytes[index]);
    }
    std::uint16_t& slot = slots_[slotOf(key)];
    shortest_ = forms_.empty() ? bytes.size() : std::min(shortest_, bytes.size());
    longest_ = std::max(longest_, bytes.size());
    forms_.push_back({bytes, slot});
    wipe(bytes);
    slot = static_cast<std::uint16_t>(forms_.size());
}

template <class Take>
void SecretScanner::search(std::string_view text, const Take& take) const {
    std::uint32_t key = 0;
    for (std::size_t end = 0; end < text.size(); ++end) {
        key = nextKey(key, text[end]);
        for (std::uint16_t slot = slots_[slotOf(key)]; slot != 0 && end + 1 >= leastOfForm;
             slot = forms_[slot - 1].next) {
            const std::string& form = forms_[slot - 1].bytes;
            const std::size_t start = end + 1 - leastOfForm;
            const std::string_view found = text.substr(start, form.size());
            const bool isFound =
                form.size() < leastOfOtherCase
                    ? found == form
                    : std::ranges::equal(
                          found, form, {}, [](char each) { return folded[byteOf(each)]; },
                          [](char each) { return folded[byteOf(each)]; });
            if (isFound) {
                take(Place(start, start + form.size()));
            }
        }
    }
}

std::vector<SecretScanner::Place> SecretScanner::placesOfSecrets(std::string_view text) const {
    std::vector<Place> places;
    for (const std::string& secret : shortSecrets_) {
        for (std::size_t at = text.find(secret); at != std::string_view::npos;
             at = text.find(secret, at + secret.size())) {
            places.emplace_back(at, at + secret.size());
        }
    }
    if (!forms_.empty()) {
        search(text, [&](Place place) { places.push_back(place); });
        // In blocks, so that memory does not grow with the text. They overlap by what a secret can
        // become.
        const std::size_t overlap = longest_ * largestGrowth;
        const std::size_t step = std::max(blockSize, overlap);
        Search layers(*this, places);
        for (std::size_t start = 0; start < text.size(); start += step) {
            layers.lookThrough(Layer{.start = start, .view = text.substr(start, step + overlap)},
                               0);
        }
    }
    std::ranges::sort(places);
    std::vector<Place> apart;
    for (const Place& place : places) {
        if (!apart.empty() && place.first < apart.back().second) {
            apart.back().second = std::max(apart.back().second, place.second);
        } else {
            apart.push_back(place);
        }
    }
    return apart;
}

}  // namespace velto
