#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <VeltoConnectFoundation/Platform/NeverDestroyed.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

namespace velto::detail {

namespace {

using Wide = __uint128_t;

/// Its address differs from run to run where the system places libraries at random, and with it
/// which keys collide.
const char hashSeed = 0;

constexpr std::uint64_t odd1 = 0x9E3779B97F4A7C15;
constexpr std::uint64_t odd2 = 0xD6E8FEB86659FD93;
constexpr std::uint64_t odd3 = 0xA0761D6478BD642F;

std::uint64_t mixed(std::uint64_t left, std::uint64_t right) noexcept {
    const Wide product = static_cast<Wide>(left) * right;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t initialState() noexcept {
    return reinterpret_cast<std::uintptr_t>(&hashSeed) * odd1;
}

/// Of a text's last words, or all of a short one.
std::size_t hashOf(std::uint64_t state,
                   std::uint64_t low,
                   std::uint64_t high,
                   std::size_t length) noexcept {
    return mixed(mixed(low ^ odd2, high ^ state) ^ length, odd3);
}

template <class T>
std::uint64_t word(const char* bytes) noexcept {
    T result;
    std::memcpy(&result, bytes, sizeof result);
    return result;
}

void freeData(DataBlock* data) noexcept {
    if (data->storage == DataBlock::Storage::malloced) {
        std::free(data->bytes);
    }
    data->~DataBlock();
    std::free(data);
}

/// Containers and objects to be freed, linked by their owner words, which nothing else needs any
/// more; the kind stands in the lowest bits.
struct Doomed {
    std::uintptr_t first = 0;
    bool draining = false;

    static_assert(alignof(Block) >= 8);

    void push(ValueKind kind, Block* block) noexcept {
        block->owner.store(first, std::memory_order_relaxed);
        const std::uintptr_t tag = kind == ValueKind::array        ? 0
                                   : kind == ValueKind::dictionary ? 1
                                                                   : 2;
        first = reinterpret_cast<std::uintptr_t>(block) | tag;
    }

    void drain() noexcept {
        draining = true;
        while (first != 0) {
            const std::uintptr_t tag = first & 7;
            auto* block = reinterpret_cast<Block*>(first - tag);
            first = block->owner.load(std::memory_order_relaxed);
            if (tag == 0) {
                auto* array = static_cast<ArrayBlock*>(block);
                std::destroy_n(array->values(), array->count);
            } else if (tag == 1) {
                auto* dictionary = static_cast<DictionaryBlock*>(block);
                std::destroy_n(dictionary->entries(), dictionary->count);
            } else {
                static_cast<ObjectBlock*>(block)->~ObjectBlock();
            }
            std::free(block);
        }
        draining = false;
    }
};

thread_local constinit Doomed doomed;

}  // namespace

void Arena::release() noexcept {
    if (owners.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
    }
    for (Chunk* chunk = chunks; chunk != nullptr;) {
        Chunk* next = chunk->next;  // The arena itself lies in the last one.
        std::free(chunk);
        chunk = next;
    }
}

const Value& noneValue() noexcept {
    static const NeverDestroyed<Value> none;
    return *none;
}

void* allocate(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void destroyBlock(ValueKind kind, Block* block) noexcept {
    if (kind == ValueKind::string) {
        std::free(block);
    } else if (kind == ValueKind::data) {
        freeData(static_cast<DataBlock*>(block));
    } else {
        Doomed& list = doomed;
        list.push(kind, block);
        if (!list.draining) {
            list.drain();
        }
    }
}

std::uint32_t grownCapacity(std::uint32_t capacity, std::size_t needed) {
    constexpr std::size_t limit = std::numeric_limits<std::uint32_t>::max() - 1;
    if (needed > limit) {
        throw std::length_error("velto: too many elements in one container");
    }
    const std::size_t grown = std::max<std::size_t>(needed, capacity + capacity / 2 + 4);
    return static_cast<std::uint32_t>(std::min(grown, limit));
}

std::size_t hashText(std::string_view text) noexcept {
    const char* bytes = text.data();
    const std::size_t length = text.size();
    std::uint64_t state = initialState();
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    if (length > 16) {
        std::size_t left = length;
        for (; left > 16; left -= 16, bytes += 16) {
            state =
                mixed(word<std::uint64_t>(bytes) ^ odd2, word<std::uint64_t>(bytes + 8) ^ state);
        }
        low = word<std::uint64_t>(bytes + left - 16);
        high = word<std::uint64_t>(bytes + left - 8);
    } else if (length >= 8) {
        low = word<std::uint64_t>(bytes);
        high = word<std::uint64_t>(bytes + length - 8);
    } else if (length >= 4) {
        low = word<std::uint32_t>(bytes);
        high = word<std::uint32_t>(bytes + length - 4);
    } else if (length > 0) {
        low = word<std::uint8_t>(bytes) | word<std::uint8_t>(bytes + length / 2) << 8 |
              word<std::uint8_t>(bytes + length - 1) << 16;
    }
    return hashOf(state, low, high, length);
}

std::size_t hashWords(std::uint64_t low, std::uint64_t high) noexcept {
    return hashOf(initialState(), low, high, sizeof low + sizeof high);
}

std::size_t DictionaryBlock::slotsFor(std::size_t capacity) noexcept {
    return capacity <= unindexed ? 0 : std::bit_ceil(capacity + capacity / 2);
}

namespace {

/// Whether a key is the looked-up one, in the cheapest way for it.
class KeyMatch {
public:
    explicit KeyMatch(const Value& key) noexcept {
        if (!key.isString()) {
            other_ = &key;
        } else if (ValueAccess::hasBlock(key)) {
            text_ = key.string();
        } else {
            words_ = words(key);
        }
    }
    explicit KeyMatch(std::string_view key) noexcept {
        if (key.size() > ValueAccess::inlineCapacity) {
            text_ = key;
        } else {
            words_ = std::bit_cast<Words>(ValueAccess::shortText(key.data(), key.size()));
        }
    }

    bool operator()(const Value& candidate) const noexcept {
        if (other_ != nullptr) {
            return candidate == *other_;
        }
        // Text stands in its handle exactly when it is short enough, so that only equal handles
        // are equal short texts.
        return text_.empty() ? words(candidate) == words_
                             : candidate.isString() && candidate.string() == text_;
    }

private:
    /// No array: one on the stack is reached through memory, and has the stack guarded.
    struct Words {
        std::uint64_t first = 0;
        std::uint64_t second = 0;

        bool operator==(const Words&) const = default;
    };

    static Words words(const Value& value) noexcept {
        return std::bit_cast<Words>(ValueAccess::storage(value));
    }

    const Value* other_ = nullptr;
    std::string_view text_;
    Words words_;
};

std::size_t hashOf(const Value& key) noexcept {
    return key.hash();
}

std::size_t hashOf(std::string_view key) noexcept {
    return hashText(key);
}

/// The slot of the entry with that key, or the empty one where it belongs.
template <class Key>
[[gnu::always_inline]] inline std::size_t slotOf(const DictionaryBlock& block,
                                                 const Key& key,
                                                 const KeyMatch& matches) noexcept {
    const std::uint32_t* const table = block.table();
    const std::size_t mask = block.slots - 1;
    std::size_t slot = hashOf(key) & mask;
    while (table[slot] != 0 && !matches(block.entries()[table[slot] - 1].key)) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

template <class Key>
[[gnu::always_inline]] inline std::uint32_t indexOf(const DictionaryBlock& block,
                                                    const Key& key) noexcept {
    const KeyMatch matches(key);
    if (block.slots != 0) {
        const std::uint32_t found = block.table()[slotOf(block, key, matches)];
        return found == 0 ? block.count : found - 1;
    }
    const DictionaryEntry* const entries = block.entries();
    std::uint32_t index = 0;
    while (index < block.count && !matches(entries[index].key)) {
        ++index;
    }
    return index;
}

}  // namespace

std::uint32_t DictionaryBlock::find(std::string_view key) const noexcept {
    return indexOf(*this, key);
}

std::uint32_t DictionaryBlock::find(const Value& key) const noexcept {
    return indexOf(*this, key);
}

std::uint32_t DictionaryBlock::add() noexcept {
    const Value& key = entries()[count].key;
    if (slots == 0) {
        const std::uint32_t index = find(key);
        count += index == count ? 1 : 0;
        return index;
    }
    std::uint32_t& slot = table()[slotOf(*this, key, KeyMatch(key))];
    if (slot == 0) {
        slot = ++count;
    }
    return slot - 1;
}

void DictionaryBlock::enter(std::uint32_t index) noexcept {
    if (slots == 0) {
        return;
    }
    std::uint32_t* const slot = table();
    std::size_t at = entries()[index].key.hash() & (slots - 1);
    while (slot[at] != 0) {
        at = (at + 1) & (slots - 1);
    }
    slot[at] = index + 1;
}

void DictionaryBlock::rebuildTable() noexcept {
    std::fill_n(table(), slots, 0U);
    for (std::uint32_t index = 0; index < count; ++index) {
        enter(index);
    }
}

}  // namespace velto::detail
