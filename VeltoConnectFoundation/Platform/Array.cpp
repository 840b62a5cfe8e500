#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace velto {

using detail::ArrayBlock;
using detail::ValueAccess;

namespace {

std::size_t bytesFor(std::size_t capacity) noexcept {
    return sizeof(ArrayBlock) + capacity * sizeof(Value);
}

/// The block of `value` (an array), its own and with room for `needed` elements.
ArrayBlock* writableBlock(Value& value, std::size_t needed) {
    ArrayBlock* block = ValueAccess::array(value);
    if (block != nullptr && block->isUnique()) {
        if (needed <= block->capacity) {
            return block;
        }
        // A value may be moved by moving its bytes.
        const std::uint32_t capacity = detail::grownCapacity(block->capacity, needed);
        void* memory = std::realloc(static_cast<void*>(block), bytesFor(capacity));
        if (memory == nullptr) {
            throw std::bad_alloc();
        }
        block = static_cast<ArrayBlock*>(memory);
        block->capacity = capacity;
        ValueAccess::replaceBlock(value, block);
        return block;
    }
    const std::uint32_t count = block == nullptr ? 0 : block->count;
    const std::uint32_t capacity = needed <= count ? count : detail::grownCapacity(0, needed);
    auto* copy = new (detail::allocate(bytesFor(capacity))) ArrayBlock;
    copy->capacity = capacity;
    copy->count = count;
    if (count != 0) {
        std::uninitialized_copy_n(block->values(), count, copy->values());
    }
    value = ValueAccess::value(ValueAccess::owning(ValueKind::array, copy));
    return copy;
}

}  // namespace

Array::Array() noexcept : value_(ValueAccess::emptyContainer(ValueKind::array)) {
}

Array::Array(std::initializer_list<Value> values) : Array() {
    if (values.size() != 0) {
        ArrayBlock* block = writableBlock(value_, values.size());
        std::uninitialized_copy(values.begin(), values.end(), block->values());
        block->count = static_cast<std::uint32_t>(values.size());
    }
}

Array::Array(std::vector<Value> values) : Array() {
    if (!values.empty()) {
        ArrayBlock* block = writableBlock(value_, values.size());
        std::uninitialized_move(values.begin(), values.end(), block->values());
        block->count = static_cast<std::uint32_t>(values.size());
    }
}

std::size_t Array::size() const noexcept {
    const ArrayBlock* block = ValueAccess::array(value_);
    return block == nullptr ? 0 : block->count;
}

const Value* Array::begin() const noexcept {
    const ArrayBlock* block = ValueAccess::array(value_);
    return block == nullptr ? nullptr : block->values();
}

const Value* Array::end() const noexcept {
    const ArrayBlock* block = ValueAccess::array(value_);
    return block == nullptr ? nullptr : block->values() + block->count;
}

const Value& Array::operator[](std::size_t index) const noexcept {
    return value_[index];
}

bool Array::contains(const Value& value) const noexcept {
    return std::find(begin(), end(), value) != end();
}

void Array::reserve(std::size_t count) {
    if (count > size()) {
        writableBlock(value_, count);
    }
}

void Array::append(Value value) {
    ArrayBlock* block = writableBlock(value_, size() + 1);
    new (block->values() + block->count) Value(std::move(value));
    ++block->count;
}

void Array::append(const Array& values) {
    if (this == &values) {
        append(Array(values));
    } else if (!values.isEmpty()) {
        ArrayBlock* block = writableBlock(value_, size() + values.size());
        std::uninitialized_copy(values.begin(), values.end(), block->values() + block->count);
        block->count += static_cast<std::uint32_t>(values.size());
    }
}

void Array::set(std::size_t index, Value value) {
    if (index < size()) {
        writableBlock(value_, size())->values()[index] = std::move(value);
    }
}

void Array::insert(std::size_t index, Value value) {
    if (index <= size()) {
        append(std::move(value));
        Value* values = ValueAccess::array(value_)->values();
        std::rotate(values + index, values + size() - 1, values + size());
    }
}

void Array::remove(std::size_t index) {
    if (index < size()) {
        ArrayBlock* block = writableBlock(value_, size());
        Value* values = block->values();
        std::move(values + index + 1, values + block->count, values + index);
        values[--block->count].~Value();
    }
}

void Array::clear() {
    *this = Array();
}

std::string Array::componentsJoined(std::string_view separator) const {
    std::string result;
    for (const Value& value : *this) {
        if (&value != begin()) {
            result += separator;
        }
        if (value.isString()) {
            result += value.string();
        } else {
            result += value.description();
        }
    }
    return result;
}

std::string Array::description(std::size_t indent) const {
    return value_.description(indent);
}

}  // namespace velto
