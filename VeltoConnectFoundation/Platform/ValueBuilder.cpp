#include <VeltoConnectFoundation/Platform/ValueBuilder.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <stdexcept>

namespace velto::detail {

namespace {

constexpr std::size_t smallestChunk = 1024;
constexpr std::size_t largestFirstChunk = std::size_t{64} << 10;
constexpr std::size_t largestChunk = std::size_t{256} << 10;

std::uint32_t checkedCount(std::size_t count) {
    if (count >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("velto: too many elements in one container");
    }
    return static_cast<std::uint32_t>(count);
}

}  // namespace

ValueBuilder::ValueBuilder(std::size_t expectedBytes)
    : chunkSize_(std::clamp(expectedBytes, smallestChunk, largestFirstChunk)) {
}

ValueBuilder::~ValueBuilder() {
    std::free(stack_);
    if (arena_ != nullptr) {
        arena_->release();
    }
}

void ValueBuilder::pushShortCopy(const char* text, std::size_t length) {
    push(std::bit_cast<Words>(ValueAccess::shortText(text, length)));
}

void ValueBuilder::growStack() {
    const std::size_t used = size();
    const std::size_t capacity = std::max<std::size_t>(64, used * 2);
    void* memory = std::realloc(stack_, capacity * sizeof(Words));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    stack_ = static_cast<Words*>(memory);
    top_ = stack_ + used;
    stackEnd_ = stack_ + capacity;
}

void ValueBuilder::addChunk(std::size_t size) {
    // Rounded up, since a block's size is; the first chunk holds the arena too.
    const std::size_t header = sizeof(Arena::Chunk) + (arena_ == nullptr ? sizeof(Arena) : 0);
    const std::size_t total = std::max(chunkSize_, (size + header + 7) & ~std::size_t{7});
    auto* chunk = new (allocate(total)) Arena::Chunk{nullptr, total};
    char* begin = reinterpret_cast<char*>(chunk + 1);
    if (arena_ == nullptr) {
        arena_ = new (begin) Arena{1, nullptr};
        begin += sizeof(Arena);
    }
    chunk->next = arena_->chunks;
    arena_->chunks = chunk;
    free_ = begin;
    end_ = reinterpret_cast<char*>(chunk) + (total & ~std::size_t{7});
    chunkSize_ = std::min(chunkSize_ * 2, largestChunk);
}

void ValueBuilder::closeArray(std::size_t first) {
    const std::size_t count = size() - first;
    if (count == 0) {
        push(ValueAccess::words(ValueKind::array, nullptr));
        return;
    }
    const std::size_t bytes = sizeof(ArrayBlock) + count * sizeof(Value);
    reserve(bytes);
    auto* block = new (free_) ArrayBlock;
    take(bytes);
    block->owner.store(ownerWord(), std::memory_order_relaxed);
    block->count = checkedCount(count);
    block->capacity = block->count;
    top_ = stack_ + first;
    // Most are too short to be worth a call.
    auto* values = reinterpret_cast<Words*>(block->values());
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = top_[i];
    }
    *top_++ = ValueAccess::within(ValueKind::array, block);
}

void ValueBuilder::closeDictionary(std::size_t first) {
    const std::size_t count = (size() - first) / 2;
    if (count == 0) {
        push(ValueAccess::words(ValueKind::dictionary, nullptr));
        return;
    }
    const std::size_t bytes = DictionaryBlock::bytesFor(checkedCount(count));
    reserve(bytes);
    auto* block = new (free_) DictionaryBlock;
    take(bytes);
    block->owner.store(ownerWord(), std::memory_order_relaxed);
    block->capacity = static_cast<std::uint32_t>(count);
    block->slots = DictionaryBlock::slotsFor(count);
    std::fill_n(block->table(), block->slots, 0U);
    top_ = stack_ + first;
    const Words* source = top_;
    DictionaryEntry* entries = block->entries();
    for (std::size_t i = 0; i < count; ++i, source += 2) {
        const std::uint32_t next = block->count;
        std::memcpy(static_cast<void*>(entries + next), source, sizeof(DictionaryEntry));
        if (const std::uint32_t known = block->add(); known != next) {
            std::memcpy(static_cast<void*>(&entries[known].value), source + 1, sizeof(Value));
        }
    }
    *top_++ = ValueAccess::within(ValueKind::dictionary, block);
}

const Value& ValueBuilder::top(std::size_t below) const noexcept {
    return *reinterpret_cast<const Value*>(top_ - 1 - below);
}

Value ValueBuilder::finish() const {
    return Value(top());  // A copy owns.
}

}  // namespace velto::detail
