#include <VeltoConnectFoundation/DeliveryTool/ToolLineMarkers.h>

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

constexpr auto markerCount = static_cast<std::size_t>(ToolLineMarker::count);

/// The plain search that the one pass has to agree with.
void expectAsPlainSearch(const std::string& line) {
    const ToolLineMarkers markers(line);
    for (std::size_t index = 0; index < markerCount; ++index) {
        const auto marker = static_cast<ToolLineMarker>(index);
        const std::string_view text = ToolLineMarkers::text(marker);
        const std::size_t found = line.find(text);
        ASSERT_EQ(markers.has(marker), found != std::string::npos) << line;
        if (found != std::string::npos) {
            ASSERT_EQ(markers.before(marker), line.substr(0, found)) << line;
            ASSERT_EQ(markers.after(marker), line.substr(found + text.size())) << line;
        }
    }
}

TEST(ToolLineMarkers, AgreeWithAPlainSearch) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 20'000; ++round) {
        std::string line;
        for (auto piece = random() % 5; piece > 0; --piece) {
            std::string_view text =
                ToolLineMarkers::text(static_cast<ToolLineMarker>(random() % markerCount));
            if (random() % 3 == 0) {
                text = text.substr(random() % text.size());
            }
            if (random() % 3 == 0) {
                text = text.substr(0, random() % (text.size() + 1));
            }
            line += text;
            line += "x% J"[random() % 4];
        }
        expectAsPlainSearch(line);
    }
}

}  // namespace
