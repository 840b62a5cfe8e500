#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

namespace velto::detail {

namespace {

__extension__ typedef unsigned __int128 Wide;

constinit const Value none;
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
    return none;
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
    std::uint64_t state = reinterpret_cast<std::uintptr_t>(&hashSeed) * odd1;
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
    return mixed(mixed(low ^ odd2, high ^ state) ^ length, odd3);
}

std::size_t DictionaryBlock::slotsFor(std::size_t capacity) noexcept {
    return capacity <= unindexed ? 0 : std::bit_ceil(capacity + capacity / 2);
}

std::uint32_t DictionaryBlock::find(std::string_view key) const noexcept {
    const DictionaryEntry* entry = entries();
    if (slots == 0) {
        for (std::uint32_t index = 0; index < count; ++index) {
            if (entry[index].key.isString() && entry[index].key.string() == key) {
                return index;
            }
        }
        return count;
    }
    const std::uint32_t* slot = table();
    for (std::size_t at = hashText(key) & (slots - 1); slot[at] != 0; at = (at + 1) & (slots - 1)) {
        const Value& candidate = entry[slot[at] - 1].key;
        if (candidate.isString() && candidate.string() == key) {
            return slot[at] - 1;
        }
    }
    return count;
}

std::uint32_t DictionaryBlock::find(const Value& key) const noexcept {
    if (key.isString()) {
        return find(key.string());
    }
    const DictionaryEntry* entry = entries();
    if (slots == 0) {
        for (std::uint32_t index = 0; index < count; ++index) {
            if (entry[index].key == key) {
                return index;
            }
        }
        return count;
    }
    const std::uint32_t* slot = table();
    for (std::size_t at = key.hash() & (slots - 1); slot[at] != 0; at = (at + 1) & (slots - 1)) {
        if (entry[slot[at] - 1].key == key) {
            return slot[at] - 1;
        }
    }
    return count;
}

void DictionaryBlock::enter(std::uint32_t index) noexcept {
    if (slots == 0) {
        return;
    }
    std::uint32_t* slot = table();
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
