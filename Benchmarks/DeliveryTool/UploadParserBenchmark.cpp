#include <Benchmarks/Support/Row.h>
#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/DeliveryTool/ToolLineMarkers.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Platform/Queue.h>

#include <cstring>
#include <string>

namespace {

constexpr std::size_t lineCount = 100'000;

/// Lines as a tool prints them: mostly plain, one in ten with progress.
const std::string& transcript() {
    static const std::string text = [] {
        std::string all = "Setting total size of files for upload to: 99999999\n";
        for (std::size_t i = 0; i < lineCount; ++i) {
            all +=
                i % 10 == 0
                    ? "DBG: movie.mov " + std::to_string(i) + "/99999999, 5% completed at 12 MB/s\n"
                    : std::string("[2026-11-21 10:00:00 UTC] DEBUG: transferred a block of data\n");
        }
        return all;
    }();
    return text;
}

class CountingDelegate : public NSDataToStringFilterDelegate {
public:
    void filterDidFilterString(NSDataToStringFilter&,
                               std::optional<std::string_view> line) override {
        bytes += line ? line->size() : 0;
    }
    std::size_t bytes = 0;
};

std::size_t countLines() {
    std::string_view rest = transcript();
    std::size_t lines = 0;
    while (const void* found = std::memchr(rest.data(), '\n', rest.size())) {
        rest.remove_prefix(static_cast<std::size_t>(static_cast<const char*>(found) - rest.data()) +
                           1);
        ++lines;
    }
    return lines;
}

/// Adds a row whose `take` is given the transcript in blocks.
template <class Take>
void addBlocksRow(const std::string& name, Take take) {
    addRow(name, transcript().size(), [take] {
        for (std::size_t at = 0; at < transcript().size(); at += 65536) {
            take(std::string_view(transcript()).substr(at, 65536));
        }
        return true;
    });
}

}  // namespace

int main(int argc, char** argv) {
    velto::MainQueue::runOnOwnThread();
    const auto worker =
        velto::make<VeltoDrovanUploadWorker>(std::make_shared<VeltoPackageSource>());
    addBlocksRow("a tool's lines/ours",
                 [worker](std::string_view block) { worker->didReceiveDrovanOutput(block); });
    const auto delegate = std::make_shared<CountingDelegate>();
    const auto filter = std::make_shared<NSDataToStringFilter>(delegate);
    addBlocksRow("a tool's lines/the filter of it",
                 [filter](std::string_view block) { filter->appendData(block); });
    addRow("a tool's lines/memchr", transcript().size(),
           [] { return countLines() == lineCount + 1; });
    return runRows(argc, argv);
}
