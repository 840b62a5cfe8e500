#include <VeltoConnectFoundation/Platform/Value.h>

#include <VeltoConnectFoundation/Platform/NumberText.h>
#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>
#include <vector>

namespace velto {

using detail::ArrayBlock;
using detail::Block;
using detail::DictionaryBlock;
using detail::ObjectBlock;
using detail::StringBlock;
using detail::ValueAccess;

namespace {

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;

/// One form for each number, so that equal numbers have equal forms: a whole number between -2^63
/// and 2^64 as integer, anything else as double.
struct CanonicalNumber {
    enum class Form : std::uint8_t { negative, natural, other } form;
    std::uint64_t bits;

    friend bool operator==(const CanonicalNumber&, const CanonicalNumber&) = default;

    static CanonicalNumber from(std::int64_t number) noexcept {
        return {number < 0 ? Form::negative : Form::natural, static_cast<std::uint64_t>(number)};
    }
    static CanonicalNumber from(double number) noexcept {
        if (number >= -twoTo63 && number < 0 && std::trunc(number) == number) {
            return from(static_cast<std::int64_t>(number));
        }
        if (number >= 0 && number < twoTo64 && std::trunc(number) == number) {
            return {Form::natural, static_cast<std::uint64_t>(number)};
        }
        return {Form::other,
                std::bit_cast<std::uint64_t>(
                    std::isnan(number) ? std::numeric_limits<double>::quiet_NaN() : number)};
    }
    static CanonicalNumber from(const Value& value) noexcept {
        switch (value.kind()) {
            case ValueKind::boolean:
                return {Form::natural, ValueAccess::payload<bool>(value) ? 1U : 0U};
            case ValueKind::signedInteger:
                return from(ValueAccess::payload<std::int64_t>(value));
            case ValueKind::unsignedInteger:
                return {Form::natural, ValueAccess::payload<std::uint64_t>(value)};
            case ValueKind::singleFloat:
                return from(static_cast<double>(ValueAccess::payload<float>(value)));
            default:
                return from(ValueAccess::payload<double>(value));
        }
    }
};

bool leadingTruth(std::string_view text) noexcept {
    text = withoutLeadingBlanks(text);
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.front() == '0') {
        text.remove_prefix(1);
    }
    return !text.empty() &&
           (std::string_view("YyTt").find(text.front()) != std::string_view::npos ||
            (text.front() >= '1' && text.front() <= '9'));
}

template <class T>
T truncated(double number, double lowest, double beyond) noexcept {
    if (std::isnan(number)) {
        return 0;
    }
    return number <= lowest   ? std::numeric_limits<T>::min()
           : number >= beyond ? std::numeric_limits<T>::max()
                              : static_cast<T>(number);
}

/// With the seed of texts: a document must not be able to choose keys that collide.
std::size_t mixed(std::size_t state, std::uint64_t bits) noexcept {
    return detail::hashWords(state, bits);
}

/// Of a value that is no container.
std::size_t plainHash(const Value& value) noexcept {
    const auto kind = static_cast<std::size_t>(value.kind());
    switch (value.kind()) {
        case ValueKind::none:
        case ValueKind::null:
            return kind;
        case ValueKind::string:
            return detail::hashText(value.string());
        case ValueKind::data:
            return detail::hashText(value.data().view());
        case ValueKind::date:
            return mixed(kind, CanonicalNumber::from(value.date().secondsSinceReference).bits);
        case ValueKind::object:
            return ValueAccess::object(value)->object->hash();
        default:
            return mixed(1, CanonicalNumber::from(value).bits);
    }
}

/// Of all that a container holds, however deep, so that the keys of a hostile document differ; but
/// of more than `most` values only how many stand in the container itself, so that keys which stand
/// in each other cost no more than that at each level.
class ContainerHash {
public:
    /// Never in place: each hash of a plain value would guard the stack for it.
    [[gnu::noinline]] static std::size_t of(const Value& container) {
        return ContainerHash().from(container);
    }

private:
    std::size_t from(const Value& container) {
        open(container);
        std::size_t left = most;
        for (;;) {
            Level& level = levels_.back();
            if (level.index == level.count) {
                const std::size_t hash = level.hash();
                levels_.pop_back();
                if (levels_.empty()) {
                    return hash;
                }
                levels_.back().take(hash);
                continue;
            }
            if (left-- == 0) {
                return Level(container).hash();
            }
            const Value& value = level.current();
            if (value.isArray() || value.isDictionary()) {
                open(value);
            } else {
                level.take(plainHash(value));
            }
        }
    }

    static constexpr std::size_t most = 4096;

    struct Level {
        explicit Level(const Value& container) noexcept {
            if (container.isArray()) {
                const ArrayBlock* const block = ValueAccess::array(container);
                elements = block == nullptr ? nullptr : block->values();
                count = block == nullptr ? 0 : block->count;
            } else {
                const DictionaryBlock* const block = ValueAccess::dictionary(container);
                entries = block == nullptr ? nullptr : block->entries();
                count = block == nullptr ? 0 : std::size_t{2} * block->count;
            }
        }

        const Value& current() const noexcept {
            return elements != nullptr ? elements[index]
                   : index % 2 == 0    ? entries[index / 2].key
                                       : entries[index / 2].value;
        }
        void take(std::size_t hash) noexcept {
            if (elements != nullptr) {
                state = mixed(state, hash);
            } else if (index % 2 == 0) {
                key = hash;
            } else {
                state += mixed(key, hash);  // The order of the entries does not count.
            }
            ++index;
        }
        std::size_t hash() const noexcept { return mixed(state, count); }

        const Value* elements = nullptr;
        const DictionaryEntry* entries = nullptr;
        std::size_t count = 0;  ///< Keys and values both count.
        std::size_t index = 0;
        std::size_t key = 0;
        std::size_t state = 0;
    };

    void open(const Value& container) { levels_.emplace_back(container); }

    std::vector<Level> levels_;
};

enum class Verdict : std::uint8_t { different, equal, byContent };

/// What can be said without looking into two containers.
Verdict compared(const Value& left, const Value& right) noexcept {
    const auto verdict = [](bool equal) { return equal ? Verdict::equal : Verdict::different; };
    if (left.isNumber()) {
        return verdict(right.isNumber() &&
                       CanonicalNumber::from(left) == CanonicalNumber::from(right));
    }
    if (left.kind() != right.kind()) {
        return Verdict::different;
    }
    switch (left.kind()) {
        case ValueKind::string:
            return verdict(left.string() == right.string());
        case ValueKind::date:
            return verdict(left.date() == right.date());
        case ValueKind::data:
            return verdict(left.data() == right.data());
        case ValueKind::object: {
            const Object* one = ValueAccess::object(left)->object.get();
            const Object* other = ValueAccess::object(right)->object.get();
            return verdict(one == other || one->isEqual(*other));
        }
        case ValueKind::array: {
            const ArrayBlock* one = ValueAccess::array(left);
            const ArrayBlock* other = ValueAccess::array(right);
            const std::uint32_t count = one == nullptr ? 0 : one->count;
            if (one == other || count != (other == nullptr ? 0 : other->count)) {
                return verdict(one == other);
            }
            return count == 0 ? Verdict::equal : Verdict::byContent;
        }
        case ValueKind::dictionary: {
            const DictionaryBlock* one = ValueAccess::dictionary(left);
            const DictionaryBlock* other = ValueAccess::dictionary(right);
            const std::uint32_t count = one == nullptr ? 0 : one->count;
            if (one == other || count != (other == nullptr ? 0 : other->count)) {
                return verdict(one == other);
            }
            return count == 0 ? Verdict::equal : Verdict::byContent;
        }
        default:
            return Verdict::equal;
    }
}

/// Compares two containers with a work list in place of the call stack.
class DeepComparison {
public:
    bool run(const Value& left, const Value& right) {
        push(left, right);
        Verdict answer = Verdict::byContent;  // Of the frame that was left last.
        while (!frames_.empty()) {
            const Verdict verdict =
                frames_.back().isArray ? arrayStep(answer) : dictionaryStep(answer);
            if (verdict != Verdict::byContent) {
                frames_.pop_back();
            }
            answer = verdict;
        }
        return answer == Verdict::equal;
    }

private:
    struct Frame {
        const Block* left;
        const Block* right;
        std::uint32_t index = 0;      ///< Of the element or entry that is compared.
        std::uint32_t candidate = 0;  ///< Of the right entry whose key is compared.
        std::size_t place = 0;        ///< Where the candidate was found.
        bool isArray;
        bool comparesKeys = true;
    };

    void push(const Value& left, const Value& right) {
        frames_.push_back({.left = ValueAccess::payload<Block*>(left),
                           .right = ValueAccess::payload<Block*>(right),
                           .isArray = left.isArray()});
    }

    /// Goes on until the frame is decided, or another one stands above it (byContent). `answer` is
    /// what that one found, byContent for a frame's first step.
    Verdict arrayStep(Verdict answer) {
        Frame& frame = frames_.back();
        const auto* left = static_cast<const ArrayBlock*>(frame.left);
        const auto* right = static_cast<const ArrayBlock*>(frame.right);
        for (;; answer = Verdict::byContent) {
            if (answer == Verdict::different) {
                return answer;
            }
            if (answer == Verdict::equal) {
                ++frame.index;
            }
            const Value* one = left->values() + frame.index;
            const Value* other = right->values() + frame.index;
            for (; frame.index < left->count; ++frame.index, ++one, ++other) {
                const Verdict verdict = compared(*one, *other);
                if (verdict == Verdict::different) {
                    return verdict;
                }
                if (verdict == Verdict::byContent) {
                    push(*one, *other);
                    return verdict;
                }
            }
            return Verdict::equal;
        }
    }

    /// The index of an entry, or `count` behind the last that a key may be: each in turn, or those
    /// from the place on that the key's hash gives.
    static std::uint32_t candidateAt(const DictionaryBlock& block, std::size_t place) noexcept {
        if (block.slots == 0) {
            return place < block.count ? static_cast<std::uint32_t>(place) : block.count;
        }
        const std::uint32_t entry = block.table()[place & (block.slots - 1)];
        return entry == 0 ? block.count : entry - 1;
    }

    Verdict dictionaryStep(Verdict answer) {
        Frame& frame = frames_.back();
        const auto* left = static_cast<const DictionaryBlock*>(frame.left);
        const auto* right = static_cast<const DictionaryBlock*>(frame.right);
        while (frame.index < left->count) {
            const DictionaryEntry& entry = left->entries()[frame.index];
            Verdict verdict = answer;
            answer = Verdict::byContent;
            if (frame.comparesKeys) {
                if (!entry.key.isArray() && !entry.key.isDictionary()) {
                    frame.candidate = right->find(entry.key);
                    verdict = Verdict::equal;
                } else if (verdict == Verdict::byContent) {
                    frame.place = right->slots == 0 ? 0 : entry.key.hash();
                } else if (verdict == Verdict::different) {
                    ++frame.place;
                }
                for (; verdict != Verdict::equal; ++frame.place) {
                    frame.candidate = candidateAt(*right, frame.place);
                    if (frame.candidate >= right->count) {
                        break;
                    }
                    const Value& key = right->entries()[frame.candidate].key;
                    verdict = compared(entry.key, key);
                    if (verdict == Verdict::byContent) {
                        push(entry.key, key);
                        return verdict;
                    }
                }
                if (frame.candidate >= right->count) {
                    return Verdict::different;
                }
                frame.comparesKeys = false;
                const Value& other = right->entries()[frame.candidate].value;
                verdict = compared(entry.value, other);
                if (verdict == Verdict::byContent) {
                    push(entry.value, other);
                    return verdict;
                }
            }
            if (verdict == Verdict::different) {
                return verdict;
            }
            frame.comparesKeys = true;
            ++frame.index;
        }
        return Verdict::equal;
    }

    std::vector<Frame> frames_;
};

}  // namespace

Value::Value(Tagged, bool flag) noexcept : storage_(ValueAccess::plain(ValueKind::boolean, flag)) {
}
Value::Value(Tagged, std::int64_t number) noexcept
    : storage_(ValueAccess::plain(ValueKind::signedInteger, number)) {
}
Value::Value(Tagged, std::uint64_t number) noexcept
    : storage_(ValueAccess::plain(ValueKind::unsignedInteger, number)) {
}
Value::Value(float number) noexcept : storage_(ValueAccess::plain(ValueKind::singleFloat, number)) {
}
Value::Value(double number) noexcept
    : storage_(ValueAccess::plain(ValueKind::doubleFloat, number)) {
}
Value::Value(Date date) noexcept
    : storage_(ValueAccess::plain(ValueKind::date, date.secondsSinceReference)) {
}

Value::Value(std::string_view text) {
    if (text.size() <= inlineCapacity) {
        storage_ = ValueAccess::shortText(text.data(), text.size());
        return;
    }
    auto* block = new (detail::allocate(sizeof(StringBlock) + text.size())) StringBlock;
    block->length = text.size();
    std::memcpy(block->text(), text.data(), text.size());
    storage_ = ValueAccess::owning(ValueKind::string, block);
}

Value::Value(const char* text) : storage_{} {
    if (text != nullptr) {
        *this = Value(std::string_view(text));
    }
}

Value::Value(const std::string& text) : Value(std::string_view(text)) {
}

Value::Value(const std::optional<std::string>& text) : storage_{} {
    if (text) {
        *this = Value(std::string_view(*text));
    }
}

Value::Value(const Data& data) noexcept : Value(data.value_) {
}
Value::Value(Data&& data) noexcept : Value(std::exchange(data, {}).value_) {
}
Value::Value(const Array& array) noexcept : Value(array.value_) {
}
Value::Value(Array&& array) noexcept : Value(std::exchange(array, {}).value_) {
}
Value::Value(const Dictionary& dictionary) noexcept : Value(dictionary.value_) {
}
Value::Value(Dictionary&& dictionary) noexcept : Value(std::exchange(dictionary, {}).value_) {
}

Value::Value(std::shared_ptr<const Object> object) : storage_{} {
    if (object != nullptr) {
        auto* block = new (detail::allocate(sizeof(ObjectBlock))) ObjectBlock;
        block->object = std::move(object);
        storage_ = ValueAccess::owning(ValueKind::object, block);
    }
}

void Value::retain() noexcept {
    auto* block = ValueAccess::payload<Block*>(storage_);
    if (detail::Arena* arena = block->arena(); arena != nullptr) {
        arena->retain();
        storage_.form = ownedBlock;
    } else {
        block->owner.fetch_add(2, std::memory_order_relaxed);
    }
}

void Value::release() noexcept {
    auto* block = ValueAccess::payload<Block*>(storage_);
    if (detail::Arena* arena = block->arena(); arena != nullptr) {
        arena->release();
    } else if (block->owner.fetch_sub(2, std::memory_order_acq_rel) == 2) {
        detail::destroyBlock(storage_.kind, block);
    }
}

std::string_view Value::blockText() const noexcept {
    const auto* block = static_cast<const StringBlock*>(ValueAccess::payload<Block*>(storage_));
    return {block->text(), block->length};
}

bool Value::boolValue() const noexcept {
    switch (kind()) {
        case ValueKind::boolean:
            return ValueAccess::payload<bool>(storage_);
        case ValueKind::signedInteger:
        case ValueKind::unsignedInteger:
            return ValueAccess::payload<std::uint64_t>(storage_) != 0;
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            return doubleValue() != 0;
        case ValueKind::string:
            return leadingTruth(string());
        default:
            return false;
    }
}

std::int64_t Value::integerValue() const noexcept {
    switch (kind()) {
        case ValueKind::boolean:
            return ValueAccess::payload<bool>(storage_) ? 1 : 0;
        case ValueKind::signedInteger:
            return ValueAccess::payload<std::int64_t>(storage_);
        case ValueKind::unsignedInteger: {
            const auto number = ValueAccess::payload<std::uint64_t>(storage_);
            return number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                       ? std::numeric_limits<std::int64_t>::max()
                       : static_cast<std::int64_t>(number);
        }
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            return truncated<std::int64_t>(doubleValue(), -twoTo63, twoTo63);
        case ValueKind::string:
            return leadingSigned(string());
        default:
            return 0;
    }
}

std::uint64_t Value::unsignedValue() const noexcept {
    switch (kind()) {
        case ValueKind::unsignedInteger:
            return ValueAccess::payload<std::uint64_t>(storage_);
        case ValueKind::singleFloat:
        case ValueKind::doubleFloat:
            return truncated<std::uint64_t>(doubleValue(), 0, twoTo64);
        case ValueKind::string:
            return leadingUnsigned(string());
        default: {
            const std::int64_t number = integerValue();
            return number < 0 ? 0 : static_cast<std::uint64_t>(number);
        }
    }
}

double Value::doubleValue() const noexcept {
    switch (kind()) {
        case ValueKind::boolean:
            return ValueAccess::payload<bool>(storage_) ? 1 : 0;
        case ValueKind::signedInteger:
            return static_cast<double>(ValueAccess::payload<std::int64_t>(storage_));
        case ValueKind::unsignedInteger:
            return static_cast<double>(ValueAccess::payload<std::uint64_t>(storage_));
        case ValueKind::singleFloat:
            return static_cast<double>(ValueAccess::payload<float>(storage_));
        case ValueKind::doubleFloat:
            return ValueAccess::payload<double>(storage_);
        case ValueKind::string:
            return leadingDouble(withoutLeadingBlanks(string())).value;
        default:
            return 0;
    }
}

std::string Value::string() && {
    return std::string(std::as_const(*this).string());
}

std::optional<std::string> Value::optionalString() const {
    return isString() ? std::optional<std::string>(string()) : std::nullopt;
}

Array Value::array() const {
    return isArray() ? Array(Array::Tagged{}, *this) : Array();
}

Dictionary Value::dictionary() const {
    return isDictionary() ? Dictionary(Dictionary::Tagged{}, *this) : Dictionary();
}

Data Value::data() const {
    return isData() ? Data(Data::Tagged{}, *this) : Data();
}

Date Value::date() const noexcept {
    return isDate() ? Date{ValueAccess::payload<double>(storage_)} : Date{};
}

std::shared_ptr<const Object> Value::object() const {
    return isObject() ? ValueAccess::object(*this)->object : nullptr;
}

const Value& Value::operator[](std::string_view key) const& noexcept {
    const DictionaryBlock* block = ValueAccess::dictionary(*this);
    if (block == nullptr) {
        return detail::noneValue();
    }
    const std::uint32_t index = block->find(key);
    return index < block->count ? block->entries()[index].value : detail::noneValue();
}

const Value& Value::element(std::size_t index) const noexcept {
    const ArrayBlock* block = ValueAccess::array(*this);
    return block != nullptr && index < block->count ? block->values()[index] : detail::noneValue();
}

Value Value::operator[](std::string_view key) && noexcept {
    return std::as_const(*this)[key];
}

Value Value::valueAtKeyPath(std::string_view path) const noexcept {
    const Value* value = this;
    for (;;) {
        const std::size_t end = path.find('.');
        value = &(*value)[path.substr(0, end)];
        if (end == std::string_view::npos) {
            return *value;
        }
        path.remove_prefix(end + 1);
    }
}

std::string_view Value::className() const noexcept {
    switch (kind()) {
        case ValueKind::none:
            return "None";
        case ValueKind::null:
            return "Null";
        case ValueKind::string:
            return "String";
        case ValueKind::data:
            return "Data";
        case ValueKind::date:
            return "Date";
        case ValueKind::array:
            return "Array";
        case ValueKind::dictionary:
            return "Dictionary";
        case ValueKind::object:
            return ValueAccess::object(*this)->object->className();
        default:
            return "Number";
    }
}

std::size_t Value::hash() const noexcept {
    return isArray() || isDictionary() ? ContainerHash::of(*this) : plainHash(*this);
}

bool operator==(const Value& left, const Value& right) noexcept {
    const Verdict verdict = compared(left, right);
    return verdict == Verdict::byContent ? DeepComparison().run(left, right)
                                         : verdict == Verdict::equal;
}

}  // namespace velto
