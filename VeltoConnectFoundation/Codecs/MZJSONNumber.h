#pragma once

#include <cstdint>
#include <string_view>

/// What a run of digits, signs, full stops, "e" and "E" in a JSON document stands for.
struct MZJSONNumber {
    enum class Status : std::uint8_t { valid, leadingZero, inconvertible };

    explicit MZJSONNumber(std::string_view text) noexcept;

    double value = 0;
    Status status = Status::valid;
};
