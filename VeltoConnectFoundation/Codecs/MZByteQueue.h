#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>
#include <cstdint>

/// A ring of bytes whose capacity never grows; its storage follows in the same block.
///
/// A full queue overwrites (single bytes) or clamps its length (runs of bytes). There are two
/// conventions for `tail`: the single-byte functions keep it on the last byte held, the functions
/// for runs on the place of the next one. Drive one queue by one family; prepending runs and
/// consuming work from `head` and suit both. The front doubles as the top of a stack.
/// A null queue, or an index that is out of range, raises a parameter assertion.
/// No lock: a queue has one owner.
struct MZSimpleCByteQueue {
    std::uint8_t* head;  ///< The oldest byte.
    std::uint8_t* tail;
    std::uint8_t* storageEnd;  ///< The last byte of storage.
    std::size_t length;
    std::size_t capacity;

    std::uint8_t* storage() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1); }
};

extern "C" {

VELTO_EXPORT MZSimpleCByteQueue* MZByteQueueCreate(std::size_t capacity);  ///< Never null.
VELTO_EXPORT void MZByteQueueRelease(MZSimpleCByteQueue* queue);

/// The state from which MZByteQueueNextByte walks from the oldest byte to the newest.
VELTO_EXPORT std::size_t MZByteQueueEnumerator(MZSimpleCByteQueue* queue);
VELTO_EXPORT std::uint8_t* MZByteQueueNextByte(MZSimpleCByteQueue* queue, std::size_t* index);
VELTO_EXPORT std::size_t MZByteQueueReverseEnumerator(MZSimpleCByteQueue* queue);
VELTO_EXPORT std::uint8_t* MZByteQueuePreviousByte(MZSimpleCByteQueue* queue, std::size_t* index);

VELTO_EXPORT std::uint8_t MZByteQueueByteAtIndex(MZSimpleCByteQueue* queue, std::size_t index);
VELTO_EXPORT void MZByteQueueSetByteAtIndex(MZSimpleCByteQueue* queue,
                                            std::uint8_t byte,
                                            std::size_t index);
/// Single-byte family. In a full queue the newest byte makes room.
VELTO_EXPORT void MZByteQueueInsertByteAtIndex(MZSimpleCByteQueue* queue,
                                               std::uint8_t byte,
                                               std::size_t index);
/// Not supported: always raises.
VELTO_EXPORT void MZByteQueueRemoveByteAtIndex(MZSimpleCByteQueue* queue, std::size_t index);

/// Single-byte family: a full queue loses the byte at its other end.
VELTO_EXPORT void MZByteQueuePrependByte(MZSimpleCByteQueue* queue, std::uint8_t byte);
VELTO_EXPORT void MZByteQueueAppendByte(MZSimpleCByteQueue* queue, std::uint8_t byte);

/// Runs: what does not fit overwrites what is there, and the length stays at the capacity.
VELTO_EXPORT void MZByteQueuePrependBytes(MZSimpleCByteQueue* queue,
                                          const std::uint8_t* bytes,
                                          std::size_t count);
VELTO_EXPORT void MZByteQueueAppendBytes(MZSimpleCByteQueue* queue,
                                         const std::uint8_t* bytes,
                                         std::size_t count);

VELTO_EXPORT void MZByteQueueRemoveFirstByte(MZSimpleCByteQueue* queue);
VELTO_EXPORT void MZByteQueueRemoveLastByte(MZSimpleCByteQueue* queue);
VELTO_EXPORT void MZByteQueueRemoveAllBytes(MZSimpleCByteQueue* queue);

/// Takes up to `count` bytes from the front; answers how many. The queue must not be null.
VELTO_EXPORT std::size_t MZByteQueueConsumeBytes(MZSimpleCByteQueue* queue,
                                                 std::uint8_t* buffer,
                                                 std::size_t count);

/// Where the next run may be written in place, and how many bytes go there before the end of the
/// storage. Commit what was written with MZByteQueueDidAppendContiguousBytes.
VELTO_EXPORT std::uint8_t* MZByteQueueRemainingContiguousBytes(MZSimpleCByteQueue* queue,
                                                               std::size_t* size);
VELTO_EXPORT void MZByteQueueDidAppendContiguousBytes(MZSimpleCByteQueue* queue, std::size_t size);

/// Null when the queue is empty.
VELTO_EXPORT std::uint8_t* MZByteQueueFirstByte(MZSimpleCByteQueue* queue);
VELTO_EXPORT std::uint8_t* MZByteQueueLastByte(MZSimpleCByteQueue* queue);

VELTO_EXPORT void MZByteQueuePushByte(MZSimpleCByteQueue* queue, std::uint8_t byte);
VELTO_EXPORT std::uint8_t* MZByteQueueTopByte(MZSimpleCByteQueue* queue);
/// The removed byte where it lies in storage, until something is written there.
VELTO_EXPORT std::uint8_t* MZByteQueuePopByte(MZSimpleCByteQueue* queue);

}  // extern "C"
