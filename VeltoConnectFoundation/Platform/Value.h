#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>
#include <VeltoConnectFoundation/Platform/Object.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace velto {

class Array;
class Data;
class Dictionary;
class Value;

namespace detail {
struct Block;
struct ValueAccess;
}  // namespace detail

/// The explicit null of JSON and property lists; a missing value is none instead.
struct Null {};

/// Seconds since 2001-01-01 00:00:00 UTC, the reference date.
struct VELTO_EXPORT Date {
    double secondsSinceReference = 0;

    static Date fromUnixSeconds(double seconds);
    double unixSeconds() const;
    friend auto operator<=>(const Date&, const Date&) = default;
};

enum class ValueKind : std::uint8_t {
    none,
    null,
    boolean,
    signedInteger,
    unsignedInteger,
    singleFloat,
    doubleFloat,
    string,
    data,
    date,
    array,
    dictionary,
    object,
};

template <class T>
concept PlainInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                       !std::same_as<T, char8_t> && !std::same_as<T, char16_t> &&
                       !std::same_as<T, char32_t> && !std::same_as<T, wchar_t>;

/// A small handle (16 bytes) on one node of the value tree that everything passes around.
///
/// Copies share until one of them is changed, and may be read from several threads. Numbers
/// remember the type they were stored as, yet compare and hash by value (true == 1 == 1.0).
/// Nothing here recurses on the call stack, however deep the tree.
class VELTO_EXPORT Value {
public:
    constexpr Value() noexcept : storage_{} {}  ///< none
    Value(Null) noexcept : storage_{.kind = ValueKind::null} {}
    Value(std::same_as<bool> auto flag) noexcept : Value(Tagged{}, flag) {}
    template <PlainInteger T>
    Value(T number) noexcept
        : Value(
              Tagged{},
              static_cast<std::conditional_t<std::signed_integral<T>, std::int64_t, std::uint64_t>>(
                  number)) {}
    Value(float number) noexcept;
    Value(double number) noexcept;
    Value(const char* text);  ///< A null pointer is none.
    Value(std::string_view text);
    Value(const std::string& text);
    Value(const std::optional<std::string>& text);  ///< none for nullopt
    Value(Date date) noexcept;
    Value(const Data& data) noexcept;
    Value(Data&& data) noexcept;
    Value(const Array& array) noexcept;
    Value(Array&& array) noexcept;
    Value(const Dictionary& dictionary) noexcept;
    Value(Dictionary&& dictionary) noexcept;
    Value(std::shared_ptr<const Object> object);  ///< A null pointer is none.

    Value(const Value& other) noexcept : storage_(other.storage_) {
        if (hasBlock()) {
            retain();
        }
    }
    Value(Value&& other) noexcept : storage_(other.storage_) { other.storage_ = {}; }
    Value& operator=(const Value& other) noexcept {
        Value copy(other);
        std::swap(storage_, copy.storage_);
        return *this;
    }
    Value& operator=(Value&& other) noexcept {
        Value taken(std::move(other));
        std::swap(storage_, taken.storage_);
        return *this;
    }
    ~Value() {
        if ((storage_.form & ownedBlock) != 0) {
            release();
        }
    }

    ValueKind kind() const noexcept { return storage_.kind; }
    bool isNone() const noexcept { return kind() == ValueKind::none; }
    bool isNull() const noexcept { return kind() == ValueKind::null; }
    bool isNumber() const noexcept {  ///< boolean to doubleFloat
        return kind() >= ValueKind::boolean && kind() <= ValueKind::doubleFloat;
    }
    bool isString() const noexcept { return kind() == ValueKind::string; }
    bool isData() const noexcept { return kind() == ValueKind::data; }
    bool isDate() const noexcept { return kind() == ValueKind::date; }
    bool isArray() const noexcept { return kind() == ValueKind::array; }
    bool isDictionary() const noexcept { return kind() == ValueKind::dictionary; }
    bool isObject() const noexcept { return kind() == ValueKind::object; }
    explicit operator bool() const noexcept { return !isNone(); }

    /// Lenient readings: a string gives the number it begins with ("12x" is 12, "YES" is true),
    /// anything that is no number 0 or false. Integers out of range saturate.
    bool boolValue() const noexcept;
    std::int64_t integerValue() const noexcept;
    std::uint64_t unsignedValue() const noexcept;
    double doubleValue() const noexcept;

    /// Empty for any other kind. The view lives as long as this handle is neither changed nor
    /// destroyed.
    std::string_view string() const& noexcept {
        return kind() != ValueKind::string ? std::string_view()
               : hasBlock()                ? blockText()
                                           : std::string_view(storage_.bytes, storage_.form);
    }
    std::string string() &&;
    std::optional<std::string> optionalString() const;  ///< none unless a string
    Array array() const;                                ///< Empty for any other kind.
    Dictionary dictionary() const;                      ///< Empty for any other kind.
    Data data() const;                                  ///< Empty for any other kind.
    Date date() const noexcept;                         ///< The reference date for any other kind.
    std::shared_ptr<const Object> object() const;       ///< Null for any other kind.

    /// Looks into a dictionary or an array; none where there is nothing. Never throws.
    const Value& operator[](std::string_view key) const& noexcept;
    const Value& operator[](const char* key) const& noexcept {
        return (*this)[std::string_view(key)];
    }
    template <PlainInteger Index>
    const Value& operator[](Index index) const& noexcept {
        return element(static_cast<std::size_t>(index));
    }
    Value operator[](std::string_view key) && noexcept;
    Value operator[](const char* key) && noexcept {
        return std::move(*this)[std::string_view(key)];
    }
    template <PlainInteger Index>
    Value operator[](Index index) && noexcept {
        return element(static_cast<std::size_t>(index));
    }

    /// Follows keys separated by full stops through nested dictionaries; none where one is missing.
    Value valueAtKeyPath(std::string_view path) const noexcept;

    std::string_view className() const noexcept;  ///< "String", "Number", "Array", an object's own
    /// Readable text: a string is itself, null "<null>", none "(null)", true "1"; a double has at
    /// most 16 digits, a float the fewest that read back the same. Containers take several lines,
    /// from the 16th level on one; `indent` is the level they begin at.
    std::string description(std::size_t indent = 0) const;
    std::size_t hash() const noexcept;
    /// Dictionaries are equal whatever their order; a number that is none (NaN) equals itself.
    friend VELTO_EXPORT bool operator==(const Value& left, const Value& right) noexcept;

private:
    friend struct detail::ValueAccess;
    struct Tagged {};

    /// Text of up to 14 bytes stands in the handle itself, its length in `form`, the rest zero. All
    /// else has 8 bytes at `bytes` + 6: a number, or the address of a block (null for an empty
    /// container).
    struct alignas(8) Storage {
        ValueKind kind = ValueKind::none;
        std::uint8_t form = 0;
        char bytes[14] = {};
    };
    static constexpr std::size_t inlineCapacity = sizeof(Storage::bytes);
    /// The handle counts among the block's owners.
    static constexpr std::uint8_t ownedBlock = 0x80;
    /// The handle stands in a container of the same arena as its block and does not count.
    static constexpr std::uint8_t arenaBlock = 0x40;

    Value(Tagged, bool flag) noexcept;
    Value(Tagged, std::int64_t number) noexcept;
    Value(Tagged, std::uint64_t number) noexcept;
    explicit constexpr Value(const Storage& storage) noexcept : storage_(storage) {}

    bool hasBlock() const noexcept { return (storage_.form & (ownedBlock | arenaBlock)) != 0; }
    void retain() noexcept;
    void release() noexcept;
    std::string_view blockText() const noexcept;
    const Value& element(std::size_t index) const noexcept;

    Storage storage_;
};

/// Bytes; copies share until one is changed.
class VELTO_EXPORT Data {
public:
    Data() noexcept;
    Data(const void* bytes, std::size_t length);
    explicit Data(std::string_view bytes);
    explicit Data(std::span<const std::byte> bytes);
    explicit Data(std::vector<std::uint8_t>&& bytes);  ///< Takes the buffer over.
    /// Takes over a block from malloc without copying; freed with the last handle. The
    /// caller's still when this throws.
    static Data adoptingMalloc(void* block, std::size_t length);

    const std::uint8_t* bytes() const noexcept;
    std::size_t length() const noexcept;
    bool isEmpty() const noexcept { return length() == 0; }
    std::string_view view() const noexcept;  ///< The same bytes as characters.
    void append(const void* bytes, std::size_t length);
    Data subdata(std::size_t offset, std::size_t length) const;  ///< Clamped to what is there.
    friend VELTO_EXPORT bool operator==(const Data& left, const Data& right) noexcept;

private:
    friend class Value;
    struct Tagged {};
    Data(Tagged, Value value) noexcept : value_(std::move(value)) {}

    Value value_;
};

/// An ordered list of values; a copy shares its elements until one of the two is changed.
class VELTO_EXPORT Array {
public:
    Array() noexcept;
    Array(std::initializer_list<Value> values);
    explicit Array(std::vector<Value> values);

    std::size_t size() const noexcept;
    bool isEmpty() const noexcept { return size() == 0; }
    const Value* begin() const noexcept;
    const Value* end() const noexcept;
    const Value& operator[](std::size_t index) const noexcept;  ///< none beyond the end
    const Value& first() const noexcept { return (*this)[0]; }
    const Value& last() const noexcept { return (*this)[size() - 1]; }
    bool contains(const Value& value) const noexcept;

    void reserve(std::size_t count);
    void append(Value value);
    void append(const Array& values);
    void set(std::size_t index, Value value);     ///< `index` below size().
    void insert(std::size_t index, Value value);  ///< `index` at most size().
    void remove(std::size_t index);               ///< `index` below size().
    void clear();

    std::string componentsJoined(std::string_view separator) const;
    std::string description(std::size_t indent = 0) const;
    friend VELTO_EXPORT bool operator==(const Array& left, const Array& right) noexcept {
        return left.value_ == right.value_;
    }

private:
    friend class Value;
    struct Tagged {};
    Array(Tagged, Value value) noexcept : value_(std::move(value)) {}

    Value value_;
};

struct DictionaryEntry {
    Value key;
    Value value;
};

/// Values by key in insertion order; a repeated key keeps its place and takes the last value.
/// Any value but none may be a key; look-up by text costs no allocation.
class VELTO_EXPORT Dictionary {
public:
    Dictionary() noexcept;
    Dictionary(std::initializer_list<DictionaryEntry> entries);

    std::size_t size() const noexcept;
    bool isEmpty() const noexcept { return size() == 0; }
    const DictionaryEntry* begin() const noexcept;
    const DictionaryEntry* end() const noexcept;
    const Value& operator[](std::string_view key) const noexcept;  ///< none when missing
    const Value& operator[](const char* key) const noexcept {
        return (*this)[std::string_view(key)];
    }
    const Value& valueForKey(const Value& key) const noexcept;  ///< none when missing
    bool contains(std::string_view key) const noexcept;
    Value valueAtKeyPath(std::string_view path) const noexcept;

    void reserve(std::size_t count);
    void set(Value key, Value value);  ///< A value of none removes the key.
    void remove(std::string_view key);
    void remove(const char* key) { remove(std::string_view(key)); }
    void remove(const Value& key);
    void merge(const Dictionary& other);  ///< The other's values win.
    void clear();

    std::string description(std::size_t indent = 0) const;
    friend VELTO_EXPORT bool operator==(const Dictionary& left, const Dictionary& right) noexcept {
        return left.value_ == right.value_;
    }

private:
    friend class Value;
    struct Tagged {};
    Dictionary(Tagged, Value value) noexcept : value_(std::move(value)) {}

    Value value_;
};

}  // namespace velto
