#include <VeltoConnectFoundation/Platform/Base64Blocks.h>

#if defined(__x86_64__)

#include <algorithm>
#include <array>
#include <bit>
#include <limits>

#include <immintrin.h>

#define VELTO_AVX512 gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2")

namespace velto::detail {

namespace {

constexpr std::size_t step = 64;  ///< Characters.

using Vector = std::array<std::uint8_t, 64>;

template <class Element>
constexpr Vector vectorOf(Element element) {
    Vector vector{};
    for (std::size_t i = 0; i < vector.size(); ++i) {
        vector[i] = static_cast<std::uint8_t>(element(i));
    }
    return vector;
}

[[VELTO_AVX512, gnu::always_inline]] inline __m512i loaded(const void* bytes) {
    return _mm512_loadu_si512(bytes);
}

/// The plain form of this intrinsic makes g++ 12 warn of an uninitialised variable of its own.
[[VELTO_AVX512, gnu::always_inline]] inline __m512i permuted(__m512i indexes, __m512i bytes) {
    return _mm512_maskz_permutexvar_epi8(~__mmask64{0}, indexes, bytes);
}

/// As many ones as that, at most 64.
[[VELTO_AVX512, gnu::always_inline]] inline __mmask64 ones(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(std::min(count, step)));
}

// --- Encoding

/// For each eight digits the eight bytes from the one in which they begin, the first one highest.
alignas(64) constexpr Vector windows = vectorOf([](std::size_t i) {
    return i / 8 * 6 + 7 - i % 8;
});

/// Where in its window a digit stands when the first one begins `skipped` bits into its byte.
constexpr std::uint64_t shiftsOf(unsigned skipped) {
    std::uint64_t shifts = 0;
    for (unsigned digit = 0; digit < 8; ++digit) {
        shifts |= std::uint64_t{58 - skipped - digit * 6} << digit * 8;
    }
    return shifts;
}
/// By half of these bits, of which there is an even number.
constexpr std::uint64_t shifts[] = {shiftsOf(0), shiftsOf(2), shiftsOf(4), shiftsOf(6)};

/// The step goes by the text, not by its lines: any digit may be the first of one, and a line's end
/// may stand anywhere inside.
class Encoder {
public:
    /// Lines of at least 64 characters that end with one.
    Encoder(const std::uint8_t* bytes, std::size_t length, const Base64Lines& lines)
        : bytes_(bytes), length_(length) {
        if (lines.bytes <= length) {
            lineLength_ = lines.bytes / 3 * 4 + 1;
            toEnd_ = lineLength_ - 1;
            end_ = lines.end.front();
        }
    }

    /// Whether there are as many bytes left as a whole step may read.
    bool hasWholeStep() const { return bit_ / 8 + step <= length_; }

    [[VELTO_AVX512, gnu::always_inline]] void writeStep(char* text) {
        _mm512_storeu_si512(text, next(loaded(bytes_ + bit_ / 8), step));
    }

    /// At most 64 characters; reads and writes nothing beyond.
    [[VELTO_AVX512, gnu::always_inline]] void writePart(char* text, std::size_t count) {
        const std::size_t first = bit_ / 8;
        const __m512i bytes = _mm512_maskz_loadu_epi8(ones(length_ - first), bytes_ + first);
        _mm512_mask_storeu_epi8(text, ones(count), next(bytes, count));
    }

private:
    [[VELTO_AVX512, gnu::always_inline]] __m512i next(__m512i bytes, std::size_t count) {
        const __m512i values = _mm512_maskz_multishift_epi64_epi8(
            ~__mmask64{0}, _mm512_set1_epi64(static_cast<long long>(shifts[bit_ % 8 / 2])),
            permuted(loaded(windows.data()), bytes));
        // The two bits above a value are another's; the permutation ignores them.
        const __m512i digits = permuted(values, loaded(base64Alphabet.data()));
        if (toEnd_ >= count) {
            bit_ += count * 6;
            toEnd_ -= count;
            return digits;
        }
        const __mmask64 others = ~(std::uint64_t{1} << toEnd_);
        bit_ += (count - 1) * 6;
        toEnd_ += lineLength_ - count;
        return _mm512_mask_expand_epi8(_mm512_set1_epi8(end_), others, digits);
    }

    const std::uint8_t* bytes_;
    std::size_t length_;
    std::size_t bit_ = 0;                                          ///< Where the next digit begins.
    std::size_t toEnd_ = std::numeric_limits<std::size_t>::max();  ///< Digits before a line's end.
    std::size_t lineLength_ = 0;
    char end_ = 0;
};

/// Line by line, each to its end.
[[VELTO_AVX512]] void encodeShortLines(const std::uint8_t* bytes,
                                       std::size_t length,
                                       const Base64Lines& lines,
                                       char* text) {
    for (std::size_t at = 0; at < length; at += lines.bytes) {
        const std::size_t line = std::min(lines.bytes, length - at);
        Encoder encoder(bytes + at, line, {});
        for (std::size_t left = line / 3 * 4; left != 0;) {
            const std::size_t count = std::min(left, step);
            encoder.writePart(text, count);
            text += count;
            left -= count;
        }
        if (line == lines.bytes) {
            text = std::ranges::copy(lines.end, text).out;
        }
    }
}

[[VELTO_AVX512]] void encode(const std::uint8_t* bytes,
                             std::size_t length,
                             const Base64Lines& lines,
                             char* text) {
    if (lines.bytes <= length && (lines.bytes < 48 || lines.end.size() != 1)) {
        encodeShortLines(bytes, length, lines, text);
        return;
    }
    Encoder encoder(bytes, length, lines);
    std::size_t left = base64Length(length, lines);
    for (; encoder.hasWholeStep(); text += step, left -= step) {
        encoder.writeStep(text);
    }
    while (left != 0) {
        const std::size_t count = std::min(left, step);
        encoder.writePart(text, count);
        text += count;
        left -= count;
    }
}

// --- Decoding

constexpr std::uint8_t noDigit = 0x80;

/// The digits' values by character, in two vectors.
constexpr auto values = [] {
    std::array<Vector, 2> result{};
    result[0].fill(noDigit);
    result[1].fill(noDigit);
    for (std::size_t i = 0; i < base64Alphabet.size(); ++i) {
        const auto character = static_cast<std::uint8_t>(base64Alphabet[i]);
        result[character / 64][character % 64] = static_cast<std::uint8_t>(i);
    }
    return result;
}();

/// Four digits' values as the lowest three bytes of 32 bits. A character that is no digit sets the
/// highest bit of its byte in `others`.
[[VELTO_AVX512, gnu::always_inline]] inline __m512i groupsOf(__m512i characters, __m512i& others) {
    const __m512i digits =
        _mm512_permutex2var_epi8(loaded(values[0].data()), characters, loaded(values[1].data()));
    others = _mm512_or_si512(others, _mm512_or_si512(digits, characters));
    const __m512i pairs = _mm512_maddubs_epi16(digits, _mm512_set1_epi32(0x01400140));
    return _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
}

/// The place of the byte at `index` of the text's bytes among those of the groups.
constexpr std::size_t placeInGroups(std::size_t index) {
    return index / 3 * 4 + 2 - index % 3;
}
/// The bytes of four vectors of groups as three, each from the groups of two.
alignas(64) constexpr Vector packed[] = {
    vectorOf([](std::size_t i) { return placeInGroups(i); }),
    vectorOf([](std::size_t i) { return placeInGroups(i + 64) - 64; }),
    vectorOf([](std::size_t i) { return placeInGroups(i + 128) - 128; }),
};

/// Where a text's digits are when each line is as long as the one before: so no step waits for what
/// another one finds.
struct Lines {
    const char* text;
    std::size_t at;
    std::size_t lastWhole;  ///< Where the line's last 64 digits begin.
    std::size_t length;     ///< Of a line with its line feed; more than 64.

    /// The next 64 digits, whatever they are; reads 65 characters. False when a line feed is not
    /// where it should be.
    [[VELTO_AVX512, gnu::always_inline]] inline bool take(__m512i& characters) {
        characters = loaded(text + at);
        if (at <= lastWhole) {
            at += step;
            return true;
        }
        const std::size_t left = lastWhole + step - at;
        if (text[lastWhole + step] != '\n') {
            return false;
        }
        characters =
            _mm512_mask_blend_epi8(~std::uint64_t{0} << left, characters, loaded(text + at + 1));
        at += step + 1;
        lastWhole += length;
        return true;
    }
};

/// The next line is as long as that, line feed included; when it is too short, it is not known.
Lines linesFrom(const char* text, std::size_t at, std::size_t length) {
    constexpr std::size_t unknown = std::numeric_limits<std::size_t>::max();
    return {text, at, length > step ? at + length - 1 - step : unknown, length};
}

/// Four steps: reads up to 260 characters and writes 192 bytes. False when they are not what was
/// expected; then nothing written holds.
[[VELTO_AVX512, gnu::always_inline]] inline bool decodeRun(Lines& lines, std::uint8_t* bytes) {
    __m512i characters;
    __m512i others = _mm512_setzero_si512();
    if (!lines.take(characters)) {
        return false;
    }
    const __m512i first = groupsOf(characters, others);
    if (!lines.take(characters)) {
        return false;
    }
    const __m512i second = groupsOf(characters, others);
    _mm512_storeu_si512(bytes, _mm512_permutex2var_epi8(first, loaded(&packed[0]), second));
    if (!lines.take(characters)) {
        return false;
    }
    const __m512i third = groupsOf(characters, others);
    _mm512_storeu_si512(bytes + 64, _mm512_permutex2var_epi8(second, loaded(&packed[1]), third));
    if (!lines.take(characters)) {
        return false;
    }
    const __m512i fourth = groupsOf(characters, others);
    _mm512_storeu_si512(bytes + 128, _mm512_permutex2var_epi8(third, loaded(&packed[2]), fourth));
    return _mm512_movepi8_mask(others) == 0;
}

/// One step, which writes its bytes only when it succeeds.
[[VELTO_AVX512, gnu::always_inline]] inline bool decodeStep(Lines& lines, std::uint8_t* bytes) {
    __m512i characters;
    __m512i others = _mm512_setzero_si512();
    if (!lines.take(characters)) {
        return false;
    }
    const __m512i groups = groupsOf(characters, others);
    if (_mm512_movepi8_mask(others) != 0) {
        return false;
    }
    _mm512_mask_storeu_epi8(bytes, ones(48), permuted(loaded(&packed[0]), groups));
    return true;
}

/// The groups up to the first that holds anything but digits; at most 16.
[[VELTO_AVX512, gnu::always_inline]] inline std::size_t decodeGroups(const char* text,
                                                                     std::size_t length,
                                                                     std::uint8_t* bytes) {
    __m512i others = _mm512_setzero_si512();
    // What is beyond the text reads as zero, which is no digit.
    const __m512i groups = groupsOf(_mm512_maskz_loadu_epi8(ones(length), text), others);
    const auto count = static_cast<std::size_t>(std::countr_zero(_mm512_movepi8_mask(others))) / 4;
    _mm512_mask_storeu_epi8(bytes, ones(count * 3), permuted(loaded(&packed[0]), groups));
    return count;
}

/// The first line's length, line feed included, when it is one of 65 to 128 and between groups;
/// else 0.
[[VELTO_AVX512, gnu::always_inline]] inline std::size_t firstLength(const char* text,
                                                                    std::size_t length) {
    if (length <= step) {
        return 0;
    }
    const std::uint64_t feeds = _mm512_cmpeq_epi8_mask(
        _mm512_maskz_loadu_epi8(ones(length - step), text + step), _mm512_set1_epi8('\n'));
    const auto first = static_cast<std::size_t>(std::countr_zero(feeds));
    return feeds != 0 && first % 4 == 0 ? step + first + 1 : 0;
}

[[VELTO_AVX512]] Base64Taken decode(const char* text,
                                    std::size_t length,
                                    bool skipsLineFeeds,
                                    std::uint8_t* bytes) {
    constexpr std::size_t runLength = 4 * (step + 1);
    std::size_t at = 0;
    std::size_t line = 0;
    std::uint8_t* to = bytes;
    Lines lines = linesFrom(text, 0, skipsLineFeeds ? firstLength(text, length) : 0);
    for (;;) {
        while (length - at >= runLength) {
            if (!decodeRun(lines, to)) {
                lines = linesFrom(text, at, 0);
                break;
            }
            at = lines.at;
            to += 192;
        }
        while (length - at > step && decodeStep(lines, to)) {
            at = lines.at;
            to += 48;
        }
        const std::size_t groups = decodeGroups(text + at, length - at, to);
        at += groups * 4;
        to += groups * 3;
        if (groups * 4 == step) {
            lines = linesFrom(text, at, 0);
            continue;
        }
        if (!skipsLineFeeds || length - at < 4 || text[at] != '\n') {
            return {at, static_cast<std::size_t>(to - bytes)};
        }
        ++at;
        // Perhaps of several lines; an end inside a group would not be one to the plain way.
        const std::size_t lineLength = at - line;
        lines = linesFrom(text, at, lineLength % 4 == 1 ? lineLength : 0);
        line = at;
    }
}

constexpr Base64Blocks blocks{encode, decode};

}  // namespace

const Base64Blocks* avx512Base64Blocks() noexcept {
    static const bool isThere =
        __builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
        __builtin_cpu_supports("avx512vbmi") != 0 && __builtin_cpu_supports("avx512vbmi2") != 0 &&
        __builtin_cpu_supports("bmi2") != 0;
    return isThere ? &blocks : nullptr;
}

}  // namespace velto::detail

#else

namespace velto::detail {

const Base64Blocks* avx512Base64Blocks() noexcept {
    return nullptr;
}

}  // namespace velto::detail

#endif
