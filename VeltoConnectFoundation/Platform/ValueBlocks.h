#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>

/// What the handles of Value.h point to. For the sources of Platform and for ValueBuilder alone.
namespace velto::detail {

/// Many blocks that are freed together, with the last handle on any of them. It stands at the
/// beginning of its first chunk. Nothing inside owns anything outside.
struct Arena {
    struct Chunk {
        Chunk* next;
        std::size_t size;
    };

    std::atomic<std::size_t> owners;
    Chunk* chunks;

    void retain() noexcept { owners.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;
};

/// How every block begins.
struct Block {
    /// Even: twice the number of owning handles. Odd: the address of the arena plus one.
    std::atomic<std::uintptr_t> owner;

    explicit Block(std::uintptr_t initialOwner = 2) noexcept : owner(initialOwner) {}

    Arena* arena() const noexcept {
        const std::uintptr_t word = owner.load(std::memory_order_relaxed);
        return (word & 1) != 0 ? reinterpret_cast<Arena*>(word - 1) : nullptr;
    }
    bool isUnique() const noexcept { return owner.load(std::memory_order_acquire) == 2; }
};

/// The characters follow.
struct StringBlock : Block {
    std::size_t length = 0;

    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    const char* text() const noexcept { return reinterpret_cast<const char*>(this + 1); }
};

/// The values follow.
struct ArrayBlock : Block {
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;

    Value* values() noexcept { return reinterpret_cast<Value*>(this + 1); }
    const Value* values() const noexcept { return reinterpret_cast<const Value*>(this + 1); }
};

/// The entries follow, then, with a capacity above `unindexed`, a hash table of as many slots as
/// `slots` says: the entry's index plus one, or 0, each at or after the place its hash gives.
struct DictionaryBlock : Block {
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
    std::size_t slots = 0;  ///< 0 or a power of two.

    static constexpr std::uint32_t unindexed = 8;

    DictionaryEntry* entries() noexcept { return reinterpret_cast<DictionaryEntry*>(this + 1); }
    const DictionaryEntry* entries() const noexcept {
        return reinterpret_cast<const DictionaryEntry*>(this + 1);
    }
    std::uint32_t* table() noexcept {
        return reinterpret_cast<std::uint32_t*>(entries() + capacity);
    }
    const std::uint32_t* table() const noexcept {
        return reinterpret_cast<const std::uint32_t*>(entries() + capacity);
    }

    static std::size_t slotsFor(std::size_t capacity) noexcept;
    static std::size_t bytesFor(std::size_t capacity) noexcept {
        return sizeof(DictionaryBlock) + capacity * sizeof(DictionaryEntry) +
               slotsFor(capacity) * sizeof(std::uint32_t);
    }

    /// The index of the entry with that key, or `count`.
    std::uint32_t find(const Value& key) const noexcept;
    std::uint32_t find(std::string_view key) const noexcept;
    /// Enters the entry at `index`, whose key no other has, into the table, if there is one.
    void enter(std::uint32_t index) noexcept;
    void rebuildTable() noexcept;
    /// Counts the entry that stands behind the last one, unless there is one with the same key:
    /// answers the index of that, else of the new one.
    std::uint32_t add() noexcept;
};

struct DataBlock : Block {
    enum class Storage : std::uint8_t { malloced, vector, part };

    std::uint8_t* bytes = nullptr;
    std::size_t length = 0;
    std::size_t capacity = 0;
    Storage storage = Storage::malloced;
    std::vector<std::uint8_t> vector;
    Value whole;  ///< What a part is a part of.
};

struct ObjectBlock : Block {
    std::shared_ptr<const Object> object;
};

/// The inside of a Value.
struct ValueAccess {
    using Storage = Value::Storage;
    static constexpr std::size_t inlineCapacity = Value::inlineCapacity;
    static constexpr std::uint8_t ownedBlock = Value::ownedBlock;
    static constexpr std::uint8_t arenaBlock = Value::arenaBlock;

    static const Storage& storage(const Value& value) noexcept { return value.storage_; }
    static Value value(const Storage& storage) noexcept { return Value(storage); }
    static bool hasBlock(const Value& value) noexcept { return value.hasBlock(); }

    template <class T>
    static T payload(const Storage& storage) noexcept {
        T result;
        std::memcpy(&result, storage.bytes + 6, sizeof result);
        return result;
    }
    template <class T>
    static T payload(const Value& value) noexcept {
        return payload<T>(value.storage_);
    }

    /// A handle as two words, for where it is stored and soon loaded again: one that is put
    /// together from bytes would have to reach memory first.
    using Words = std::array<std::uint64_t, 2>;
    static constexpr std::uint64_t head(ValueKind kind, std::size_t form = 0) noexcept {
        const auto first = static_cast<std::uint64_t>(kind);
        return std::endian::native == std::endian::little ? first | form << 8
                                                          : first << 56 | form << 48;
    }
    template <class T>
    static Words words(ValueKind kind, T content, std::size_t form = 0) noexcept {
        static_assert(sizeof(T) <= 8);
        std::uint64_t payload = 0;
        std::memcpy(&payload, &content, sizeof content);
        return {head(kind, form), payload};
    }

    template <class T>
    static Storage plain(ValueKind kind, T content) noexcept {
        return std::bit_cast<Storage>(words(kind, content));
    }
    /// A handle that takes over one ownership of the block.
    static Storage owning(ValueKind kind, Block* block) noexcept {
        return std::bit_cast<Storage>(words(kind, block, ownedBlock));
    }
    /// A handle for a container of the block's own arena.
    static Words within(ValueKind kind, Block* block) noexcept {
        return words(kind, block, arenaBlock);
    }
    /// Text of at most inlineCapacity bytes.
    static Storage shortText(const char* text, std::size_t length) noexcept {
        Storage storage{};
        storage.kind = ValueKind::string;
        storage.form = static_cast<std::uint8_t>(length);
        if (length != 0) {  // An empty text may have no place at all.
            std::memcpy(storage.bytes, text, length);
        }
        return storage;
    }

    /// The same where 2 bytes before the text and inlineCapacity bytes from its start can be read,
    /// without a loop or a call.
    static Words shortTextOfLonger(const char* text, std::size_t length) noexcept {
        static constexpr auto masks = [] {
            std::array<Words, inlineCapacity + 1> result{};
            for (std::size_t count = 0; count < result.size(); ++count) {
                std::array<std::uint8_t, 16> bytes{};
                std::fill_n(bytes.begin() + 2, count, std::uint8_t{0xFF});
                result[count] = std::bit_cast<Words>(bytes);
            }
            return result;
        }();
        Words words;
        std::memcpy(words.data(), text - 2, sizeof words);
        return {(words[0] & masks[length][0]) | head(ValueKind::string, length),
                words[1] & masks[length][1]};
    }
    static Value emptyContainer(ValueKind kind) noexcept { return Value(plain(kind, nullptr)); }
    /// The block of the handle has moved.
    static void replaceBlock(Value& value, Block* block) noexcept {
        std::memcpy(value.storage_.bytes + 6, &block, sizeof block);
    }

    /// Null for another kind and for an empty container without block.
    static ArrayBlock* array(const Value& value) noexcept {
        return value.isArray() ? static_cast<ArrayBlock*>(payload<Block*>(value)) : nullptr;
    }
    static DictionaryBlock* dictionary(const Value& value) noexcept {
        return value.isDictionary() ? static_cast<DictionaryBlock*>(payload<Block*>(value))
                                    : nullptr;
    }
    static DataBlock* data(const Value& value) noexcept {
        return value.isData() ? static_cast<DataBlock*>(payload<Block*>(value)) : nullptr;
    }
    static ObjectBlock* object(const Value& value) noexcept {
        return value.isObject() ? static_cast<ObjectBlock*>(payload<Block*>(value)) : nullptr;
    }
};

std::size_t hashText(std::string_view text) noexcept;
/// For numbers; no guard of the stack, as a text put together of them would need.
std::size_t hashWords(std::uint64_t low, std::uint64_t high) noexcept;
const Value& noneValue() noexcept;
/// malloc, or std::bad_alloc.
void* allocate(std::size_t size);
/// Frees a block whose last owner is gone, and what it holds, without recursion.
void destroyBlock(ValueKind kind, Block* block) noexcept;
/// The next capacity for at least `needed` elements; throws std::length_error above 2^32 - 2.
std::uint32_t grownCapacity(std::uint32_t capacity, std::size_t needed);

}  // namespace velto::detail
