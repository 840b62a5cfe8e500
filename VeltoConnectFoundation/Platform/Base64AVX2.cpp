#include <VeltoConnectFoundation/Platform/Base64Blocks.h>

#if defined(__x86_64__)

#include <algorithm>
#include <bit>

#include <immintrin.h>

namespace velto::detail {

namespace {

[[gnu::target("avx2"), gnu::always_inline]] inline __m256i twice(__m128i lane) {
    return _mm256_broadcastsi128_si256(lane);
}

/// Digits of 24 bytes; reads 28.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i encoded24(const std::uint8_t* bytes) {
    const void* const low = bytes;
    const void* const high = bytes + 12;
    // Each 32-bit lane: the bytes b a c b of a group.
    const __m256i groups = _mm256_shuffle_epi8(
        _mm256_set_m128i(_mm_loadu_si128(static_cast<const __m128i*>(high)),
                         _mm_loadu_si128(static_cast<const __m128i*>(low))),
        twice(_mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10)));
    // Shifts by different counts, as multiplications: the four 6-bit values of each group.
    const __m256i firstAndThird = _mm256_mulhi_epu16(
        _mm256_and_si256(groups, _mm256_set1_epi32(0x0fc0fc00)), _mm256_set1_epi32(0x04000040));
    const __m256i secondAndFourth = _mm256_mullo_epi16(
        _mm256_and_si256(groups, _mm256_set1_epi32(0x003f03f0)), _mm256_set1_epi32(0x01000010));
    const __m256i values = _mm256_or_si256(firstAndThird, secondAndFourth);
    // 0 for a capital, 1 for a small letter, 2 to 11 for 0 to 9, 12 for "+", 13 for "/".
    const __m256i kinds = _mm256_sub_epi8(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                          _mm256_cmpgt_epi8(values, _mm256_set1_epi8(25)));
    const __m256i offsets = _mm256_shuffle_epi8(
        twice(_mm_setr_epi8(65, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0)),
        kinds);
    return _mm256_add_epi8(values, offsets);
}

[[gnu::target("avx2")]] void encodeAVX2(const std::uint8_t* bytes,
                                        std::size_t length,
                                        const Base64Lines& lines,
                                        char* text) {
    const std::uint8_t* const end = bytes + length;
    const auto left = [&] { return static_cast<std::size_t>(end - bytes); };
    const std::size_t charactersOfLine = lines.bytes / 3 * 4;
    const char firstOfEnd = lines.end.empty() ? '\0' : lines.end.front();
    const char lastOfEnd = lines.end.empty() ? '\0' : lines.end.back();
    // Lines with so much behind them that the last step, and the end, may write beyond theirs.
    while (left() >= 28 && left() - 28 >= lines.bytes) {
        for (std::size_t at = 0, to = 0; at < lines.bytes; at += 24, to += 32) {
            void* const block = text + to;
            _mm256_storeu_si256(static_cast<__m256i*>(block), encoded24(bytes + at));
        }
        bytes += lines.bytes;
        text += charactersOfLine;
        text[0] = firstOfEnd;
        text[1] = lastOfEnd;
        text += lines.end.size();
    }
    while (bytes != end) {
        const std::size_t line = std::min(lines.bytes, left());
        const std::uint8_t* const lineEnd = bytes + line;
        // A step reads 28 bytes and writes 32 characters; a line's last one writes beyond it, where
        // the next line will stand.
        while (bytes < lineEnd && end - bytes >= 28) {
            void* const to = text;
            _mm256_storeu_si256(static_cast<__m256i*>(to), encoded24(bytes));
            const auto step = std::min<std::ptrdiff_t>(24, lineEnd - bytes);
            bytes += step;
            text += step / 3 * 4;
        }
        for (; bytes != lineEnd; bytes += 3) {
            encodeBase64Group(bytes, text);
            text += 4;
        }
        if (line == lines.bytes) {
            text = std::ranges::copy(lines.end, text).out;
        }
    }
}

/// The bytes of 32 digits; writes 32. A bit for each character that is a digit, the first lowest.
[[gnu::target("avx2"), gnu::always_inline]] inline std::uint32_t decode32(const char* text,
                                                                          std::uint8_t* bytes) {
    const void* const from = text;
    const __m256i characters = _mm256_loadu_si256(static_cast<const __m256i*>(from));
    const __m256i mask2f = _mm256_set1_epi8(0x2f);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi32(characters, 4), mask2f);
    const __m256i low = _mm256_and_si256(characters, mask2f);
    // Each half of a character names the sets it cannot belong to; a digit is in none.
    const __m256i highSets =
        _mm256_shuffle_epi8(twice(_mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                                                0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10)),
                            high);
    const __m256i lowSets =
        _mm256_shuffle_epi8(twice(_mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                                0x11, 0x11, 0x13, 0x1a, 0x1b, 0x1b, 0x1b, 0x1a)),
                            low);
    const __m256i digits =
        _mm256_cmpeq_epi8(_mm256_and_si256(highSets, lowSets), _mm256_setzero_si256());
    const __m256i offsets = _mm256_shuffle_epi8(
        twice(_mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0)),
        _mm256_add_epi8(_mm256_cmpeq_epi8(characters, mask2f), high));
    const __m256i values = _mm256_add_epi8(characters, offsets);
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i packed = _mm256_shuffle_epi8(
        groups, twice(_mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)));
    void* const to = bytes;
    _mm256_storeu_si256(
        static_cast<__m256i*>(to),
        _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 6, 6)));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(digits));
}

/// Whether a whole line has been decoded: `length` digits, a multiple of four, and 48 characters
/// more.
[[gnu::target("avx2"), gnu::always_inline]] inline bool decodeLine(const char* text,
                                                                   std::size_t length,
                                                                   std::uint8_t* bytes) {
    std::uint32_t others = 0;
    for (std::size_t at = 0; at < length; at += 32) {
        const std::size_t left = length - at;
        const std::uint32_t wanted = left < 32 ? (1U << left) - 1 : ~0U;
        others |= ~decode32(text + at, bytes) & wanted;
        bytes += 24;
    }
    return others == 0;
}

[[gnu::target("avx2")]] Base64Taken decodeAVX2(const char* text,
                                               std::size_t length,
                                               bool skipsLineFeeds,
                                               std::uint8_t* bytes) {
    Base64Taken taken{0, 0};
    std::size_t lineStart = 0;
    // With 48 characters left there is room for 36 bytes; a step writes 32.
    while (length - taken.characters >= 48) {
        const char* const from = text + taken.characters;
        const std::uint32_t digits = decode32(from, bytes + taken.bytes);
        if (digits == ~0U) {
            taken.characters += 32;
            taken.bytes += 24;
            continue;
        }
        const auto groups = static_cast<std::size_t>(std::countr_one(digits)) / 4;
        taken.characters += groups * 4;
        taken.bytes += groups * 3;
        if (!skipsLineFeeds || text[taken.characters] != '\n') {
            return taken;
        }
        const std::size_t lineLength = taken.characters - lineStart;
        ++taken.characters;
        // Lines like the last one: where each ends is known before its digits are.
        while (lineLength != 0 && length - taken.characters >= lineLength + 48 &&
               text[taken.characters + lineLength] == '\n' &&
               decodeLine(text + taken.characters, lineLength, bytes + taken.bytes)) {
            taken.characters += lineLength + 1;
            taken.bytes += lineLength / 4 * 3;
        }
        lineStart = taken.characters;
    }
    const Base64Taken rest = plainBase64Blocks().decode(
        text + taken.characters, length - taken.characters, skipsLineFeeds, bytes + taken.bytes);
    return {taken.characters + rest.characters, taken.bytes + rest.bytes};
}

constexpr Base64Blocks blocks{encodeAVX2, decodeAVX2};

}  // namespace

const Base64Blocks* avx2Base64Blocks() noexcept {
    static const bool isThere = __builtin_cpu_supports("avx2") != 0;
    return isThere ? &blocks : nullptr;
}

}  // namespace velto::detail

#else

namespace velto::detail {

const Base64Blocks* avx2Base64Blocks() noexcept {
    return nullptr;
}

}  // namespace velto::detail

#endif
