#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>

#include <cstdint>
#include <optional>
#include <string>

/// How far a transfer was at one time.
struct VELTO_EXPORT WorkItemSample {
    std::uint64_t completed = 0;  ///< Bytes.
    velto::Date time;

    std::string description() const;
};

/// Bytes a second between two samples, truncated; 0 when no time has passed or bytes were lost.
/// `validOut` is false, and the rate 0, when a sample is missing.
VELTO_EXPORT std::uint64_t BytesPerSecondWithStartAndEndSamples(
    const std::optional<WorkItemSample>& start,
    const std::optional<WorkItemSample>& end,
    bool& validOut);
/// The same as text ("1.5 MB"); none when the rate is not valid.
VELTO_EXPORT std::optional<std::string> BytesPerSecondStringWithStartAndEndSamples(
    const std::optional<WorkItemSample>& start,
    const std::optional<WorkItemSample>& end);
