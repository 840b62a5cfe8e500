#pragma once

#include <VeltoConnectFoundation/Platform/ValueBlocks.h>

namespace velto::detail {

/// Builds one value tree bottom up, in one arena: values are pushed on a stack, and closing a
/// container takes its elements from the top. For readers; one thread, one document.
class VELTO_EXPORT_INTERNAL ValueBuilder {
public:
    /// `expectedBytes`: a guess at what the tree will take, to size the first chunk.
    explicit ValueBuilder(std::size_t expectedBytes);
    ~ValueBuilder();
    ValueBuilder(const ValueBuilder&) = delete;
    ValueBuilder& operator=(const ValueBuilder&) = delete;

    std::size_t size() const noexcept { return static_cast<std::size_t>(top_ - stack_); }

    void pushNull() { push(ValueAccess::words(ValueKind::null, nullptr)); }
    void push(bool flag) { push(ValueAccess::words(ValueKind::boolean, flag)); }
    void push(double number) { push(ValueAccess::words(ValueKind::doubleFloat, number)); }
    void pushText(const char* text, std::size_t length) {
        if (length <= ValueAccess::inlineCapacity) {
            pushShortCopy(text, length);
        } else {
            std::memcpy(beginText(length), text, length);
            pushBegunText(length);
        }
    }

    /// The longest text that stands in its handle.
    static constexpr std::size_t shortText = ValueAccess::inlineCapacity;
    /// `text` has at least shortText bytes, of which the first `length` are pushed, and two bytes
    /// stand before it.
    void pushShortText(const char* text, std::size_t length) {
        push(ValueAccess::shortTextOfLonger(text, length));
    }

    /// Room for that many bytes of text, of which `pushBegunText` pushes what has been written.
    char* beginText(std::size_t capacity) {
        reserve(sizeof(StringBlock) + capacity);
        return free_ + sizeof(StringBlock);
    }
    void pushBegunText(std::size_t length) {
        if (length <= ValueAccess::inlineCapacity) {
            pushShortCopy(free_ + sizeof(StringBlock), length);
            return;
        }
        auto* block = new (free_) StringBlock;
        block->owner.store(ownerWord(), std::memory_order_relaxed);
        block->length = length;
        take(sizeof(StringBlock) + length);
        push(ValueAccess::within(ValueKind::string, block));
    }

    /// Takes the values from the `first` one up.
    void closeArray(std::size_t first);
    /// Takes keys and values in turn from the `first` one up. A repeated key keeps its place and
    /// the last value.
    void closeDictionary(std::size_t first);

    /// The key that stands below the value on top, or at the top itself. Borrowed: valid until the
    /// next push.
    const Value& top(std::size_t below = 0) const noexcept;

    /// The tree of the one value that is left.
    Value finish() const;

private:
    using Words = ValueAccess::Words;
    static_assert(sizeof(Words) == sizeof(Value));

    void push(const Words& words) {
        if (top_ == stackEnd_) {
            growStack();
        }
        *top_++ = words;
    }
    /// Apart, since a copy on the stack would have the stack guarded in each caller.
    void pushShortCopy(const char* text, std::size_t length);
    void reserve(std::size_t size) {
        if (static_cast<std::size_t>(end_ - free_) < size) {
            addChunk(size);
        }
    }
    void take(std::size_t size) noexcept { free_ += (size + 7) & ~std::size_t{7}; }
    std::uintptr_t ownerWord() const noexcept {
        return reinterpret_cast<std::uintptr_t>(arena_) + 1;
    }
    void growStack();
    void addChunk(std::size_t size);

    Arena* arena_ = nullptr;
    char* free_ = nullptr;  ///< Always a multiple of 8.
    char* end_ = nullptr;
    Words* stack_ = nullptr;
    Words* top_ = nullptr;
    Words* stackEnd_ = nullptr;
    std::size_t chunkSize_;
};

}  // namespace velto::detail
