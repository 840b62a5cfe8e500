#include <VeltoConnectFoundation/Platform/MD5.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace velto::detail {

namespace {

using Word = std::uint32_t;

/// The first 32 bits after the point of |sin(i + 1)|.
constexpr std::array<Word, 64> sines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};
constexpr int rotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

Word wordAt(const std::uint8_t* bytes) noexcept {
    return Word{bytes[0]} | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

/// The same value, which the compiler makes as it is written, in no other order: clang needs it.
Word asWritten(Word value) noexcept {
    asm("" : "+r"(value));
    return value;
}

/// The last step's result is `b`, and a digest takes as long as the chain from each b to the next.
/// So what does not wait for b comes first, and the second round adds its two halves, which have
/// no bit in common, one by one: 5, 4, 4 and 5 operations in a row for a step of the four rounds.
/// OpenSSL's takes 5, 5, 4 and 5.
template <std::size_t step>
void digestWord(Word& a, Word b, Word c, Word d, const std::uint8_t* block) noexcept {
    constexpr std::size_t round = step / 16;
    constexpr std::size_t word = (round == 0   ? step
                                  : round == 1 ? 5 * step + 1
                                  : round == 2 ? 3 * step + 5
                                               : 7 * step) %
                                 16;
    constexpr int rotation = rotations[round][step % 4];
    Word sum = asWritten(a + sines[step] + wordAt(block + 4 * word));
    if constexpr (round == 0) {
        sum += ((c ^ d) & b) ^ d;
    } else if constexpr (round == 1) {
        sum = asWritten(sum + (c & ~d)) + (b & d);
    } else if constexpr (round == 2) {
        sum += asWritten(c ^ d) ^ b;
    } else {
        sum += (~d | b) ^ c;
    }
    a = (sum << rotation | sum >> (32 - rotation)) + b;
}

/// `length` is a multiple of 64.
template <std::size_t... four>
void digestBlocks(std::array<Word, 4>& state,
                  const std::uint8_t* blocks,
                  std::size_t length,
                  std::index_sequence<four...>) noexcept {
    auto [a, b, c, d] = state;
    for (const std::uint8_t* const end = blocks + length; blocks != end; blocks += 64) {
        const Word before[] = {a, b, c, d};
        ((digestWord<four>(a, b, c, d, blocks), digestWord<four + 1>(d, a, b, c, blocks),
          digestWord<four + 2>(c, d, a, b, blocks), digestWord<four + 3>(b, c, d, a, blocks)),
         ...);
        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
    }
    state = {a, b, c, d};
}

void digestBlocks(std::array<Word, 4>& state,
                  const std::uint8_t* blocks,
                  std::size_t length) noexcept {
    digestBlocks(
        state, blocks, length,
        std::index_sequence<0, 4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 48, 52, 56, 60>());
}

}  // namespace

MD5::~MD5() {
    explicit_bzero(rest_.data(), rest_.size());
}

void MD5::update(const std::uint8_t* bytes, std::size_t length) noexcept {
    const std::size_t held = length_ % blockSize;
    length_ += length;
    if (held != 0) {
        const std::size_t taken = std::min(length, blockSize - held);
        std::copy_n(bytes, taken, rest_.data() + held);
        if (held + taken < blockSize) {
            return;
        }
        digestBlocks(state_, rest_.data(), blockSize);
        bytes += taken;
        length -= taken;
    }
    const std::size_t whole = length - length % blockSize;
    digestBlocks(state_, bytes, whole);
    std::copy_n(bytes + whole, length - whole, rest_.data());
}

std::array<std::uint8_t, 16> MD5::finish() noexcept {
    const std::uint64_t bits = length_ * 8;
    std::size_t held = length_ % blockSize;
    rest_[held++] = 0x80;
    if (held > blockSize - sizeof bits) {
        std::fill(rest_.begin() + held, rest_.end(), 0);
        digestBlocks(state_, rest_.data(), blockSize);
        held = 0;
    }
    std::fill(rest_.begin() + held, rest_.end() - sizeof bits, 0);
    for (std::size_t i = 0; i < sizeof bits; ++i) {
        rest_[blockSize - sizeof bits + i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    digestBlocks(state_, rest_.data(), blockSize);
    std::array<std::uint8_t, 16> digest;
    for (std::size_t i = 0; i < digest.size(); ++i) {
        digest[i] = static_cast<std::uint8_t>(state_[i / 4] >> (8 * (i % 4)));
    }
    return digest;
}

}  // namespace velto::detail
