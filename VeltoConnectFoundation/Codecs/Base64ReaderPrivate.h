#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Reads base64 text that comes in pieces, with the tolerance of an MZBase64Coder's flags.
class Base64Reader {
public:
    explicit Base64Reader(std::uint32_t flags) : flags_(flags) {}

    /// The most bytes that a piece of so many characters gives.
    static constexpr std::size_t mostBytes(std::size_t characters) {
        return characters / 4 * 3 + 3;
    }
    /// Writes the bytes of a piece, and beyond them within its `mostBytes`. Null, and the error,
    /// for a character that the flags do not accept; else where the bytes end.
    std::uint8_t* read(std::string_view text, std::uint8_t* bytes, velto::Error* error);
    bool hasEnded() const noexcept { return hasEnded_; }  ///< "=" was read: the rest is ignored.

private:
    bool accepts(char character) const noexcept;
    velto::Error add(int digit, std::uint8_t*& bytes);

    std::uint32_t flags_;
    unsigned state_ = 0;  ///< Digits of the group that has begun.
    unsigned bits_ = 0;   ///< The last digit; its bits that are used already are shifted out.
    bool hasEnded_ = false;
};
