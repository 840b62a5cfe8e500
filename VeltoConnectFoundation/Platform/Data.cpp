#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace velto {

using detail::DataBlock;
using detail::ValueAccess;

namespace {

Value dataValue(DataBlock* block) noexcept {
    return ValueAccess::value(ValueAccess::owning(ValueKind::data, block));
}

DataBlock* newBlock() {
    return new (detail::allocate(sizeof(DataBlock))) DataBlock;
}

/// A block of its own with that much room and nothing in it.
Value emptyValue(std::size_t capacity) {
    DataBlock* block = newBlock();
    Value value = dataValue(block);
    block->bytes = static_cast<std::uint8_t*>(detail::allocate(capacity));
    block->capacity = capacity;
    return value;
}

}  // namespace

Data::Data() noexcept : value_(ValueAccess::emptyContainer(ValueKind::data)) {
}

Data::Data(const void* bytes, std::size_t length) : Data() {
    if (length != 0) {
        value_ = emptyValue(length);
        DataBlock* block = ValueAccess::data(value_);
        std::memcpy(block->bytes, bytes, length);
        block->length = length;
    }
}

Data::Data(std::string_view bytes) : Data(bytes.data(), bytes.size()) {
}
Data::Data(std::span<const std::byte> bytes) : Data(bytes.data(), bytes.size()) {
}

Data::Data(std::vector<std::uint8_t>&& bytes) : Data() {
    if (!bytes.empty()) {
        DataBlock* block = newBlock();
        block->vector = std::move(bytes);
        block->storage = DataBlock::Storage::vector;
        block->bytes = block->vector.data();
        block->length = block->vector.size();
        value_ = dataValue(block);
    }
}

Data Data::adoptingMalloc(void* block, std::size_t length) {
    if (length == 0) {
        std::free(block);
        return {};
    }
    DataBlock* data = newBlock();
    data->bytes = static_cast<std::uint8_t*>(block);
    data->length = length;
    data->capacity = length;
    return Data(Tagged{}, dataValue(data));
}

const std::uint8_t* Data::bytes() const noexcept {
    const DataBlock* block = ValueAccess::data(value_);
    return block == nullptr ? nullptr : block->bytes;
}

std::size_t Data::length() const noexcept {
    const DataBlock* block = ValueAccess::data(value_);
    return block == nullptr ? 0 : block->length;
}

std::string_view Data::view() const noexcept {
    const DataBlock* block = ValueAccess::data(value_);
    return block == nullptr
               ? std::string_view()
               : std::string_view(reinterpret_cast<const char*>(block->bytes), block->length);
}

void Data::append(const void* bytes, std::size_t length) {
    if (length == 0) {
        return;
    }
    const Data before = *this;  // The bytes may be its own.
    DataBlock* block = ValueAccess::data(value_);
    const std::size_t needed = this->length() + length;
    // Two owners: this one and `before`.
    if (block == nullptr || block->storage != DataBlock::Storage::malloced ||
        needed > block->capacity || block->owner.load(std::memory_order_acquire) != 4) {
        Value grown = emptyValue(std::max(needed, this->length() + this->length() / 2));
        DataBlock* copy = ValueAccess::data(grown);
        if (block != nullptr) {
            std::memcpy(copy->bytes, block->bytes, block->length);
            copy->length = block->length;
        }
        value_ = std::move(grown);
        block = copy;
    }
    std::memcpy(block->bytes + block->length, bytes, length);
    block->length = needed;
}

Data Data::subdata(std::size_t offset, std::size_t length) const {
    offset = std::min(offset, this->length());
    length = std::min(length, this->length() - offset);
    if (length == this->length()) {
        return *this;
    }
    if (length <= sizeof(DataBlock)) {
        return {bytes() + offset, length};
    }
    const DataBlock* block = ValueAccess::data(value_);
    DataBlock* part = newBlock();
    part->storage = DataBlock::Storage::part;
    part->whole = block->storage == DataBlock::Storage::part ? block->whole : value_;
    part->bytes = block->bytes + offset;
    part->length = length;
    return Data(Tagged{}, dataValue(part));
}

bool operator==(const Data& left, const Data& right) noexcept {
    return left.bytes() == right.bytes() ? left.length() == right.length()
                                         : left.view() == right.view();
}

}  // namespace velto
