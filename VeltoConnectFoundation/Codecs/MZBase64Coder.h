#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

inline constexpr std::string_view MZBase64EncodingErrorDomain = "MZBase64EncodingErrorDomain";

/// The bits of a coder's flags.
inline constexpr std::uint32_t MZBase64AcceptsLineFeed = 0x0002;        ///< Decoding skips LF.
inline constexpr std::uint32_t MZBase64AcceptsCarriageReturn = 0x0004;  ///< … CR.
inline constexpr std::uint32_t MZBase64AcceptsTab = 0x0008;             ///< … TAB.
inline constexpr std::uint32_t MZBase64AcceptsSpace = 0x0010;           ///< … space.
inline constexpr std::uint32_t MZBase64AcceptsAll = 0x8000;        ///< … whatever is no digit.
inline constexpr std::uint32_t MZBase64EndsWithNewline = 0x10000;  ///< The encoded text does.

/// Writes bytes as base64 text in lines, and reads such text with a stated tolerance.
class VELTO_EXPORT MZBase64Coder {
public:
    static constexpr std::uint32_t defaultFlags =
        MZBase64AcceptsLineFeed | MZBase64AcceptsCarriageReturn | MZBase64EndsWithNewline;

    static MZBase64Coder coder();

    std::uint32_t flags() const noexcept { return flags_; }
    void setFlags(std::uint32_t flags) noexcept { flags_ = flags; }

    /// ASCII text with LF where the count of bytes is a multiple of `newlineInterval`, which must
    /// not be 0; since bytes are counted in groups of three, 1024 breaks lines each 3072 bytes.
    /// No bytes give no text.
    [[nodiscard]] std::optional<velto::Data> encodedBase64ValueWithData(
        const velto::Data& data,
        std::size_t newlineInterval,
        velto::Error* error = nullptr) const;
    /// In lines of 76 characters.
    [[nodiscard]] std::optional<velto::Data> encodedBase64ValueWithData(
        const velto::Data& data,
        velto::Error* error = nullptr) const;
    /// The first "=" ends the text, whatever follows; bits left over are dropped. A character that
    /// the flags do not accept is an error (-17001).
    [[nodiscard]] std::optional<velto::Data> decodedValueWithBase64Data(
        std::string_view text,
        velto::Error* error = nullptr) const;
    [[nodiscard]] std::optional<velto::Data> decodedValueWithBase64Data(
        const velto::Data& data,
        velto::Error* error = nullptr) const {
        return decodedValueWithBase64Data(data.view(), error);
    }

private:
    std::uint32_t flags_ = defaultFlags;
};
