#include <VeltoConnectFoundation/DeliveryTool/ToolLineMarkers.h>

#include <algorithm>
#include <cstddef>

namespace {

constexpr std::size_t markerCount = static_cast<std::size_t>(ToolLineMarker::count);

/// A marker with the byte that leads to it: one that is rare in the tool's lines.
struct Marker {
    std::string_view text;
    std::size_t anchor;  ///< Index of that byte.
};

constexpr std::array<Marker, markerCount> markers{{
    {"% completed", 0},
    {"adding file for % complete logging: ", 16},
    {"Computing total size of files to upload", 0},
    {"Setting total size of files for upload to: ", 0},
    {" has been skipped because it already exists on the remote server", 38},
    {"Checking the MD5 checksum", 0},
    {"Done checking the md5 checksum.", 0},
    {"Performing transport diagnostic test", 0},
    {"JSON:", 0},
    {"Performing authentication of package", 0},
    {"Starting media analysis of assets", 0},
    {"Performing uploadDone notification to Zarnet for package ", 0},
    {"Scheduling automatic restart in", 0},
    {"Using operation named:", 0},
    {"ERROR:", 3},
    {"Error Messages:", 6},
}};
static_assert(markers[1].text[16] == '%' && markers[4].text[38] == 'x');

/// For each byte the set of markers that it may lead to.
constexpr std::array<std::uint16_t, 256> markersByAnchor = [] {
    std::array<std::uint16_t, 256> table{};
    for (std::size_t index = 0; index < markerCount; ++index) {
        const auto byte = static_cast<unsigned char>(markers[index].text[markers[index].anchor]);
        table[byte] = static_cast<std::uint16_t>(table[byte] | (1U << index));
    }
    return table;
}();

}  // namespace

ToolLineMarkers::ToolLineMarkers(std::string_view line) noexcept : line_(line) {
    for (std::size_t at = 0; at < line.size(); ++at) {
        std::uint32_t candidates = markersByAnchor[static_cast<unsigned char>(line[at])] & ~found_;
        while (candidates != 0) [[unlikely]] {
            const auto index = static_cast<std::size_t>(__builtin_ctz(candidates));
            candidates &= candidates - 1;
            const Marker& marker = markers[index];
            if (at >= marker.anchor && line.substr(at - marker.anchor).starts_with(marker.text)) {
                found_ |= 1U << index;
                positions_[index] = static_cast<std::uint32_t>(at - marker.anchor);
            }
        }
    }
}

std::string_view ToolLineMarkers::before(ToolLineMarker marker) const noexcept {
    return line_.substr(0, positions_[static_cast<std::size_t>(marker)]);
}

std::string_view ToolLineMarkers::after(ToolLineMarker marker) const noexcept {
    return line_.substr(positions_[static_cast<std::size_t>(marker)] + text(marker).size());
}

std::string_view ToolLineMarkers::text(ToolLineMarker marker) noexcept {
    return markers[static_cast<std::size_t>(marker)].text;
}
