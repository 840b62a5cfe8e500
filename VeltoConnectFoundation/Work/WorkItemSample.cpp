#include <VeltoConnectFoundation/Work/WorkItemSample.h>

#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>

std::string WorkItemSample::description() const {
    return velto::format("completed: %llu time: %@", completed, velto::Value(time));
}

std::uint64_t BytesPerSecondWithStartAndEndSamples(const std::optional<WorkItemSample>& start,
                                                   const std::optional<WorkItemSample>& end,
                                                   bool& validOut) {
    validOut = start.has_value() && end.has_value();
    if (!validOut) {
        return 0;
    }
    const double interval = end->time.secondsSinceReference - start->time.secondsSinceReference;
    if (interval <= 0 || end->completed <= start->completed) {
        return 0;
    }
    const double rate = static_cast<double>(end->completed - start->completed) / interval;
    return rate < 0x1p64 ? static_cast<std::uint64_t>(rate) : UINT64_MAX;
}

std::optional<std::string> BytesPerSecondStringWithStartAndEndSamples(
    const std::optional<WorkItemSample>& start,
    const std::optional<WorkItemSample>& end) {
    bool valid = false;
    const std::uint64_t rate = BytesPerSecondWithStartAndEndSamples(start, end, valid);
    if (!valid) {
        return std::nullopt;
    }
    return MZHumanReadableStringFromBytes(rate);
}
