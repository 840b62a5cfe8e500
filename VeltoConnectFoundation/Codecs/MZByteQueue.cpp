#include <VeltoConnectFoundation/Codecs/MZByteQueue.h>
#include <VeltoConnectFoundation/Platform/Exception.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace {

// Required: failed assertions name this file and the signatures below.
constexpr const char* fileName = "MZSimpleCByteQueue.m";

void require(bool holds, const char* condition, const char* function) {
    velto::assertParameter(holds, condition, function, fileName);
}

void requireQueue(const MZSimpleCByteQueue* queue, const char* function) {
    require(queue != nullptr, "queue", function);
}

std::uint8_t* forward(MZSimpleCByteQueue* queue, std::uint8_t* position) noexcept {
    return position < queue->storageEnd ? position + 1 : queue->storage();
}

std::uint8_t* back(MZSimpleCByteQueue* queue, std::uint8_t* position) noexcept {
    return position > queue->storage() ? position - 1 : queue->storageEnd;
}

/// `distance` at most the capacity.
std::uint8_t* forwardBy(MZSimpleCByteQueue* queue,
                        std::uint8_t* position,
                        std::size_t distance) noexcept {
    const auto offset = static_cast<std::size_t>(position - queue->storage());
    const std::size_t toEnd = queue->capacity - offset;
    return distance < toEnd ? position + distance : queue->storage() + (distance - toEnd);
}

std::uint8_t* byteAtIndex(MZSimpleCByteQueue* queue, std::size_t index) noexcept {
    return forwardBy(queue, queue->head, index);
}

/// Writes a run around the ring; `count` at most the capacity.
void writeRun(MZSimpleCByteQueue* queue,
              std::uint8_t* position,
              const std::uint8_t* bytes,
              std::size_t count) noexcept {
    const std::size_t toEnd = static_cast<std::size_t>(queue->storageEnd - position) + 1;
    const std::size_t first = std::min(count, toEnd);
    std::memcpy(position, bytes, first);
    std::memcpy(queue->storage(), bytes + first, count - first);
}

std::size_t clampedLength(const MZSimpleCByteQueue* queue, std::size_t added) noexcept {
    return added < queue->capacity - queue->length ? queue->length + added : queue->capacity;
}

void reset(MZSimpleCByteQueue* queue) noexcept {
    queue->length = 0;
    queue->head = queue->tail = queue->storage();
}

}  // namespace

MZSimpleCByteQueue* MZByteQueueCreate(std::size_t capacity) {
    constexpr const char* function = "MZSimpleCByteQueue *MZByteQueueCreate(NSUInteger)";
    require(capacity != 0, "capacity", function);
    constexpr std::size_t most = std::numeric_limits<std::ptrdiff_t>::max();
    void* block = capacity <= most - sizeof(MZSimpleCByteQueue)
                      ? std::malloc(sizeof(MZSimpleCByteQueue) + capacity)
                      : nullptr;
    require(block != nullptr, "queue", function);
    auto* queue = ::new (block) MZSimpleCByteQueue{};
    queue->capacity = capacity;
    queue->storageEnd = queue->storage() + (capacity - 1);
    reset(queue);
    return queue;
}

void MZByteQueueRelease(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "void MZByteQueueRelease(MZSimpleCByteQueue *)");
    std::free(queue);
}

std::size_t MZByteQueueEnumerator(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "NSUInteger MZByteQueueEnumerator(MZSimpleCByteQueue *)");
    return 0;
}

std::uint8_t* MZByteQueueNextByte(MZSimpleCByteQueue* queue, std::size_t* index) {
    requireQueue(queue, "uint8_t *MZByteQueueNextByte(MZSimpleCByteQueue *, NSUInteger *)");
    return *index < queue->length ? byteAtIndex(queue, (*index)++) : nullptr;
}

std::size_t MZByteQueueReverseEnumerator(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "NSUInteger MZByteQueueReverseEnumerator(MZSimpleCByteQueue *)");
    return queue->length;
}

std::uint8_t* MZByteQueuePreviousByte(MZSimpleCByteQueue* queue, std::size_t* index) {
    requireQueue(queue, "uint8_t *MZByteQueuePreviousByte(MZSimpleCByteQueue *, NSUInteger *)");
    return *index > 0 ? byteAtIndex(queue, --*index) : nullptr;
}

std::uint8_t MZByteQueueByteAtIndex(MZSimpleCByteQueue* queue, std::size_t index) {
    constexpr const char* function =
        "uint8_t MZByteQueueByteAtIndex(MZSimpleCByteQueue *, NSUInteger)";
    requireQueue(queue, function);
    require(index < queue->length, "index < queue->length", function);
    return *byteAtIndex(queue, index);
}

void MZByteQueueSetByteAtIndex(MZSimpleCByteQueue* queue, std::uint8_t byte, std::size_t index) {
    constexpr const char* function =
        "void MZByteQueueSetByteAtIndex(MZSimpleCByteQueue *, uint8_t, NSUInteger)";
    requireQueue(queue, function);
    require(index < queue->length, "index < queue->length", function);
    *byteAtIndex(queue, index) = byte;
}

void MZByteQueueInsertByteAtIndex(MZSimpleCByteQueue* queue, std::uint8_t byte, std::size_t index) {
    constexpr const char* function =
        "void MZByteQueueInsertByteAtIndex(MZSimpleCByteQueue *, uint8_t, NSUInteger)";
    requireQueue(queue, function);
    require(index <= queue->length, "index <= queue->length", function);
    const std::size_t length = clampedLength(queue, 1);
    for (std::size_t i = index; i < length; ++i) {
        std::uint8_t* position = byteAtIndex(queue, i);
        std::swap(*position, byte);
        queue->tail = position;
    }
    queue->length = length;
}

void MZByteQueueRemoveByteAtIndex(MZSimpleCByteQueue* queue, std::size_t) {
    constexpr const char* function =
        "void MZByteQueueRemoveByteAtIndex(MZSimpleCByteQueue *, NSUInteger)";
    requireQueue(queue, function);
    require(false, "0", function);
}

void MZByteQueuePrependByte(MZSimpleCByteQueue* queue, std::uint8_t byte) {
    requireQueue(queue, "void MZByteQueuePrependByte(MZSimpleCByteQueue *, uint8_t)");
    std::uint8_t* position = back(queue, queue->head);
    if (position == queue->tail && queue->length != 0) {
        queue->tail = back(queue, queue->tail);
        --queue->length;
    }
    *position = byte;
    queue->head = position;
    if (queue->length++ == 0) {
        queue->tail = position;
    }
}

void MZByteQueueAppendByte(MZSimpleCByteQueue* queue, std::uint8_t byte) {
    requireQueue(queue, "void MZByteQueueAppendByte(MZSimpleCByteQueue *, uint8_t)");
    std::uint8_t* position = forward(queue, queue->tail);
    if (position == queue->head && queue->length != 0) {
        queue->head = forward(queue, queue->head);
        --queue->length;
    }
    *position = byte;
    queue->tail = position;
    if (queue->length++ == 0) {
        queue->head = position;
    }
}

void MZByteQueuePrependBytes(MZSimpleCByteQueue* queue,
                             const std::uint8_t* bytes,
                             std::size_t count) {
    constexpr const char* function =
        "void MZByteQueuePrependBytes(MZSimpleCByteQueue *, const uint8_t *, NSUInteger)";
    requireQueue(queue, function);
    require(bytes != nullptr, "bytes", function);
    // The ring backwards by n is the ring forwards by capacity - n; the bytes given first win
    // where a run goes around it more than once.
    const std::size_t kept = std::min(count, queue->capacity);
    queue->head = forwardBy(queue, queue->head, queue->capacity - count % queue->capacity);
    writeRun(queue, queue->head, bytes, kept);
    queue->length = clampedLength(queue, count);
}

void MZByteQueueAppendBytes(MZSimpleCByteQueue* queue,
                            const std::uint8_t* bytes,
                            std::size_t count) {
    constexpr const char* function =
        "void MZByteQueueAppendBytes(MZSimpleCByteQueue *, const uint8_t *, NSUInteger)";
    requireQueue(queue, function);
    require(bytes != nullptr, "bytes", function);
    const std::size_t kept = std::min(count, queue->capacity);
    const std::size_t skipped = count - kept;
    writeRun(queue, forwardBy(queue, queue->tail, skipped % queue->capacity), bytes + skipped,
             kept);
    queue->tail = forwardBy(queue, queue->tail, count % queue->capacity);
    queue->length = clampedLength(queue, count);
}

void MZByteQueueRemoveFirstByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "void MZByteQueueRemoveFirstByte(MZSimpleCByteQueue *)");
    if (queue->length == 0) {
        return;
    }
    queue->head = forward(queue, queue->head);
    if (--queue->length < 2) {
        queue->tail = queue->head;
    }
}

void MZByteQueueRemoveLastByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "void MZByteQueueRemoveLastByte(MZSimpleCByteQueue *)");
    if (queue->length == 0) {
        return;
    }
    queue->tail = back(queue, queue->tail);
    if (--queue->length < 2) {
        queue->head = queue->tail;
    }
}

void MZByteQueueRemoveAllBytes(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "void MZByteQueueRemoveAllBytes(MZSimpleCByteQueue *)");
    reset(queue);
}

std::size_t MZByteQueueConsumeBytes(MZSimpleCByteQueue* queue,
                                    std::uint8_t* buffer,
                                    std::size_t count) {
    const std::size_t taken = std::min(count, queue->length);
    if (taken == 0) {
        return 0;
    }
    const std::size_t toEnd = static_cast<std::size_t>(queue->storageEnd - queue->head) + 1;
    const std::size_t first = std::min(taken, toEnd);
    std::memcpy(buffer, queue->head, first);
    std::memcpy(buffer + first, queue->storage(), taken - first);
    queue->length -= taken;
    if (queue->length == 0) {
        reset(queue);
    } else {
        queue->head = forwardBy(queue, queue->head, taken);
    }
    return taken;
}

std::uint8_t* MZByteQueueRemainingContiguousBytes(MZSimpleCByteQueue* queue, std::size_t* size) {
    constexpr const char* function =
        "uint8_t *MZByteQueueRemainingContiguousBytes(MZSimpleCByteQueue *, NSUInteger *)";
    requireQueue(queue, function);
    require(size != nullptr, "size", function);
    *size = static_cast<std::size_t>(queue->storageEnd - queue->tail) + 1;
    return queue->tail;
}

void MZByteQueueDidAppendContiguousBytes(MZSimpleCByteQueue* queue, std::size_t size) {
    constexpr const char* function =
        "void MZByteQueueDidAppendContiguousBytes(MZSimpleCByteQueue *, NSUInteger)";
    requireQueue(queue, function);
    const auto remaining = static_cast<std::size_t>(queue->storageEnd - queue->tail) + 1;
    require(size <= remaining, "size <= remaining", function);
    queue->length = clampedLength(queue, size);
    // Required: a commit that stops on the last byte of storage wraps too.
    queue->tail = size + 1 < remaining ? queue->tail + size : queue->storage();
}

std::uint8_t* MZByteQueueFirstByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "uint8_t *MZByteQueueFirstByte(MZSimpleCByteQueue *)");
    return queue->length != 0 ? queue->head : nullptr;
}

std::uint8_t* MZByteQueueLastByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "uint8_t *MZByteQueueLastByte(MZSimpleCByteQueue *)");
    return queue->length != 0 ? queue->tail : nullptr;
}

void MZByteQueuePushByte(MZSimpleCByteQueue* queue, std::uint8_t byte) {
    requireQueue(queue, "void MZByteQueuePushByte(MZSimpleCByteQueue *, uint8_t)");
    MZByteQueuePrependByte(queue, byte);
}

std::uint8_t* MZByteQueueTopByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "uint8_t *MZByteQueueTopByte(MZSimpleCByteQueue *)");
    return MZByteQueueFirstByte(queue);
}

std::uint8_t* MZByteQueuePopByte(MZSimpleCByteQueue* queue) {
    requireQueue(queue, "uint8_t *MZByteQueuePopByte(MZSimpleCByteQueue *)");
    std::uint8_t* byte = MZByteQueueFirstByte(queue);
    MZByteQueueRemoveFirstByte(queue);
    return byte;
}
