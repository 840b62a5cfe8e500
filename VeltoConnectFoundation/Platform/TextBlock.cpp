#include <VeltoConnectFoundation/Platform/TextBlockPrivate.h>
#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace velto::detail {

TextBlock::TextBlock(std::size_t capacity) {
    if (!resize(capacity)) {
        throw std::bad_alloc();
    }
}

bool TextBlock::resize(std::size_t capacity) noexcept {
    void* const block = std::realloc(block_.get(), sizeof(StringBlock) + capacity);
    if (block == nullptr) {
        return false;
    }
    static_cast<void>(block_.release());
    block_.reset(static_cast<char*>(block));
    capacity_ = capacity;
    return true;
}

void TextBlock::append(std::string_view text) {
    if (capacity_ - length_ < text.size() &&
        !resize(std::max(length_ + text.size(), capacity_ + capacity_ / 2))) {
        throw std::bad_alloc();
    }
    text.copy(block_.get() + sizeof(StringBlock) + length_, text.size());
    length_ += text.size();
}

std::string_view TextBlock::text() const noexcept {
    return {block_.get() + sizeof(StringBlock), length_};
}

Value TextBlock::takeValue() {
    if (length_ <= ValueAccess::inlineCapacity) {
        return text();
    }
    // Giving room back moves nothing; should it fail, the room stays.
    static_cast<void>(resize(length_));
    auto* const block = new (block_.release()) StringBlock;
    block->length = length_;
    return ValueAccess::value(ValueAccess::owning(ValueKind::string, block));
}

}  // namespace velto::detail
