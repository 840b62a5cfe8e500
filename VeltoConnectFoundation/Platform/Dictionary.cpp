#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <new>

namespace velto {

using detail::DictionaryBlock;
using detail::ValueAccess;

namespace {

DictionaryBlock* newBlock(std::uint32_t capacity) {
    auto* block = new (detail::allocate(DictionaryBlock::bytesFor(capacity))) DictionaryBlock;
    block->capacity = capacity;
    block->slots = DictionaryBlock::slotsFor(capacity);
    return block;
}

/// The block of `value` (a dictionary), its own and with room for `needed` entries.
DictionaryBlock* writableBlock(Value& value, std::size_t needed) {
    DictionaryBlock* block = ValueAccess::dictionary(value);
    const bool unique = block != nullptr && block->isUnique();
    if (unique && needed <= block->capacity) {
        return block;
    }
    const std::uint32_t count = block == nullptr ? 0 : block->count;
    DictionaryBlock* copy = newBlock(
        needed <= count ? count : detail::grownCapacity(unique ? block->capacity : 0, needed));
    if (unique) {
        std::uninitialized_move_n(block->entries(), count, copy->entries());
    } else if (count != 0) {
        std::uninitialized_copy_n(block->entries(), count, copy->entries());
    }
    copy->count = count;
    copy->rebuildTable();
    value = ValueAccess::value(ValueAccess::owning(ValueKind::dictionary, copy));
    return copy;
}

void removeAt(Value& value, std::uint32_t index) {
    DictionaryBlock* block = writableBlock(value, ValueAccess::dictionary(value)->count);
    DictionaryEntry* entries = block->entries();
    std::move(entries + index + 1, entries + block->count, entries + index);
    entries[--block->count].~DictionaryEntry();
    block->rebuildTable();
}

template <class Key>
void removeKey(Value& value, const Key& key) {
    if (const DictionaryBlock* block = ValueAccess::dictionary(value); block != nullptr) {
        if (const std::uint32_t index = block->find(key); index < block->count) {
            removeAt(value, index);
        }
    }
}

}  // namespace

Dictionary::Dictionary() noexcept : value_(ValueAccess::emptyContainer(ValueKind::dictionary)) {
}

Dictionary::Dictionary(std::initializer_list<DictionaryEntry> entries) : Dictionary() {
    reserve(entries.size());
    for (const DictionaryEntry& entry : entries) {
        set(entry.key, entry.value);
    }
}

std::size_t Dictionary::size() const noexcept {
    const DictionaryBlock* block = ValueAccess::dictionary(value_);
    return block == nullptr ? 0 : block->count;
}

const DictionaryEntry* Dictionary::begin() const noexcept {
    const DictionaryBlock* block = ValueAccess::dictionary(value_);
    return block == nullptr ? nullptr : block->entries();
}

const DictionaryEntry* Dictionary::end() const noexcept {
    const DictionaryBlock* block = ValueAccess::dictionary(value_);
    return block == nullptr ? nullptr : block->entries() + block->count;
}

const Value& Dictionary::operator[](std::string_view key) const noexcept {
    return value_[key];
}

const Value& Dictionary::valueForKey(const Value& key) const noexcept {
    const DictionaryBlock* block = ValueAccess::dictionary(value_);
    if (block == nullptr) {
        return detail::noneValue();
    }
    const std::uint32_t index = block->find(key);
    return index < block->count ? block->entries()[index].value : detail::noneValue();
}

bool Dictionary::contains(std::string_view key) const noexcept {
    return !value_[key].isNone();
}

Value Dictionary::valueAtKeyPath(std::string_view path) const noexcept {
    return value_.valueAtKeyPath(path);
}

void Dictionary::reserve(std::size_t count) {
    if (count > size()) {
        writableBlock(value_, count);
    }
}

void Dictionary::set(Value key, Value value) {
    if (key.isNone() || value.isNone()) {
        remove(key);
        return;
    }
    const DictionaryBlock* block = ValueAccess::dictionary(value_);
    const std::uint32_t count = block == nullptr ? 0 : block->count;
    const std::uint32_t index = block == nullptr ? 0 : block->find(key);
    if (index < count) {
        writableBlock(value_, count)->entries()[index].value = std::move(value);
        return;
    }
    DictionaryBlock* own = writableBlock(value_, std::size_t{count} + 1);
    new (own->entries() + count) DictionaryEntry{std::move(key), std::move(value)};
    ++own->count;
    own->enter(count);
}

void Dictionary::remove(std::string_view key) {
    removeKey(value_, key);
}

void Dictionary::remove(const Value& key) {
    removeKey(value_, key);
}

void Dictionary::merge(const Dictionary& other) {
    if (isEmpty()) {
        *this = other;
    } else if (this != &other) {
        for (const DictionaryEntry& entry : other) {
            set(entry.key, entry.value);
        }
    }
}

void Dictionary::clear() {
    *this = Dictionary();
}

std::string Dictionary::description(std::size_t indent) const {
    return value_.description(indent);
}

}  // namespace velto
