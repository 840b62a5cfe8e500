#include <VeltoConnectFoundation/Platform/UTF8Text.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velto {

namespace {

/// Units of a fixed width in a named byte order.
template <class Unit, std::endian order>
class Units {
public:
    explicit Units(std::string_view bytes) noexcept
        : next_(bytes.data()), end_(bytes.data() + bytes.size() / sizeof(Unit) * sizeof(Unit)) {}

    std::size_t left() const noexcept {
        return static_cast<std::size_t>(end_ - next_) / sizeof(Unit);
    }
    const char* next() const noexcept { return next_; }
    void skip(std::size_t count) noexcept { next_ += count * sizeof(Unit); }

    std::uint32_t peek(std::size_t index = 0) const noexcept {
        Unit unit;
        std::memcpy(&unit, next_ + index * sizeof(Unit), sizeof unit);
        if constexpr (order == std::endian::native) {
            return unit;
        } else if constexpr (sizeof(Unit) == 2) {
            return __builtin_bswap16(unit);
        } else {
            return __builtin_bswap32(unit);
        }
    }

    /// Sixteen units at a time that are ASCII become a byte each; answers the end of the bytes.
    char* takeASCII(char* out) noexcept {
#if defined(__SSE2__)
        // Stands at the other end of a word when the order is not that of the machine.
        constexpr bool isSwapped = order != std::endian::native;
        for (; left() >= 16; skip(16), out += 16) {
            __m128i parts[sizeof(Unit)];
            std::memcpy(parts, next_, sizeof parts);
            if constexpr (sizeof(Unit) == 2) {
                const __m128i others = _mm_set1_epi16(isSwapped ? ~0x7F00 : ~0x7F);
                if (!isZero(_mm_and_si128(_mm_or_si128(parts[0], parts[1]), others))) {
                    break;
                }
                for (__m128i& part : parts) {
                    part = isSwapped ? _mm_srli_epi16(part, 8) : part;
                }
            } else {
                const __m128i others = _mm_set1_epi32(isSwapped ? ~0x7F000000 : ~0x7F);
                const __m128i all = _mm_or_si128(_mm_or_si128(parts[0], parts[1]),
                                                 _mm_or_si128(parts[2], parts[3]));
                if (!isZero(_mm_and_si128(all, others))) {
                    break;
                }
                for (__m128i& part : parts) {
                    part = isSwapped ? _mm_srli_epi32(part, 24) : part;
                }
                parts[0] = _mm_packs_epi32(parts[0], parts[1]);
                parts[1] = _mm_packs_epi32(parts[2], parts[3]);
            }
            const __m128i bytes = _mm_packus_epi16(parts[0], parts[1]);
            std::memcpy(out, &bytes, sizeof bytes);
        }
#endif
        return out;
    }

private:
#if defined(__SSE2__)
    static bool isZero(__m128i vector) noexcept {
        return _mm_movemask_epi8(_mm_cmpeq_epi8(vector, _mm_setzero_si128())) == 0xFFFF;
    }
#endif

    const char* next_;
    const char* end_;
};

/// The character that the units begin with and how many they are for it; none for a lone or
/// incomplete surrogate, or a value beyond Unicode.
template <class Unit>
std::size_t characterOf(const Unit& units, char32_t& character) noexcept {
    character = units.peek();
    if (character < 0xD800 || (character >= 0xE000 && character <= 0x10FFFF)) {
        return 1;
    }
    if (character < 0xDC00 && units.left() > 1 && (units.peek(1) & ~0x3FFU) == 0xDC00) {
        character = 0x10000 + ((character & 0x3FF) << 10) + (units.peek(1) & 0x3FF);
        return 2;
    }
    return 0;
}

/// Writes the characters that `bytes` begins with and cuts them off it; answers the end.
template <class Unit, std::endian order>
char* writeCharacters(char* out, std::string_view& bytes) noexcept {
    Units<Unit, order> units(bytes);
    std::size_t count = 1;
    while (count != 0 && units.left() != 0) {
        out = units.takeASCII(out);
        // Few characters beyond ASCII stand alone.
        for (int run = 0; run < 8 && count != 0 && units.left() != 0; ++run) {
            char32_t character = 0;
            count = characterOf(units, character);
            if (count != 0) {
                out = writeUTF8(out, character);
                units.skip(count);
            }
        }
    }
    bytes.remove_prefix(static_cast<std::size_t>(units.next() - bytes.data()));
    return out;
}

}  // namespace

char* writeUTF8(char* out, std::string_view& bytes, TextEncoding encoding) noexcept {
    switch (encoding) {
        case TextEncoding::utf16LittleEndian:
            return writeCharacters<std::uint16_t, std::endian::little>(out, bytes);
        case TextEncoding::utf16BigEndian:
            return writeCharacters<std::uint16_t, std::endian::big>(out, bytes);
        case TextEncoding::utf32LittleEndian:
            return writeCharacters<std::uint32_t, std::endian::little>(out, bytes);
        case TextEncoding::utf32BigEndian:
            return writeCharacters<std::uint32_t, std::endian::big>(out, bytes);
        default:
            return out;
    }
}

}  // namespace velto
