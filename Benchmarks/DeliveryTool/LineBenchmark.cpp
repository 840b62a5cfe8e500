#include <VeltoConnectFoundation/DeliveryTool/NSDataToStringFilter.h>
#include <VeltoConnectFoundation/Platform/Process.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <Benchmarks/DeliveryTool/BareChild.h>
#include <Benchmarks/Support/Row.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t lineCount = 10'000'000;
constexpr std::size_t lineLength = 54;

std::size_t countLines(const char* text, std::size_t length) {
    std::size_t lines = 0;
    const char* const end = text + length;
    while (const void* found = std::memchr(text, '\n', static_cast<std::size_t>(end - text))) {
        text = static_cast<const char*>(found) + 1;
        ++lines;
    }
    return lines;
}

class LineCounter final : public NSDataToStringFilterDelegate {
public:
    void filterDidFilterString(NSDataToStringFilter&,
                               std::optional<std::string_view> string) override {
        bytes += string ? string->size() : 0;
        ++lines;
    }
    std::size_t lines = 0;
    std::size_t bytes = 0;
};

class LineReader final : public velto::ProcessDelegate {
public:
    explicit LineReader(const std::shared_ptr<LineCounter>& counter) : filter_(counter) {}
    void processDidReport(velto::ProcessStream, const velto::ChannelReport& report) override {
        filter_.appendData(report.block);
    }
    void processDidTerminate(const velto::ProcessExit&) override { hasEnded = true; }
    bool hasEnded = false;

private:
    NSDataToStringFilter filter_;
};

bool readByBareLoop() {
    std::size_t lines = 0;
    const BareChild child(childProgram("PrintsLines"), std::to_string(lineCount));
    std::vector<char> block(std::size_t{64} << 10);
    for (ssize_t length = 0; (length = read(child.output, block.data(), block.size())) > 0;) {
        lines += countLines(block.data(), static_cast<std::size_t>(length));
    }
    return lines == lineCount;
}

bool readByUs() {
    const auto loop = velto::RunLoop::current();
    const auto counter = std::make_shared<LineCounter>();
    const auto reader = std::make_shared<LineReader>(counter);
    velto::ProcessLaunch launch;
    launch.path = childProgram("PrintsLines");
    launch.arguments = {std::to_string(lineCount)};
    const auto process = velto::Process::make();
    if (!process || !process->launch(launch, loop, reader)) {
        return false;
    }
    while (!loop->run(velto::Seconds(60), [&] { return reader->hasEnded; })) {
    }
    return counter->lines == lineCount && counter->bytes == lineCount * lineLength;
}

/// The filter alone on text in memory.
void addFilterRows(const std::string& kind, const std::string& line) {
    const auto text = std::make_shared<std::string>();
    while (text->size() < 1'000'000) {
        *text += line;
    }
    for (const std::size_t blockSize : {4096U, 65536U}) {
        const std::string group = "filter, " + kind + ", " + std::to_string(blockSize) + " bytes/";
        const auto counter = std::make_shared<LineCounter>();
        const auto filter = std::make_shared<NSDataToStringFilter>(counter);
        addRow(group + "ours", text->size(), [=] {
            for (std::size_t at = 0; at < text->size(); at += blockSize) {
                filter->appendData(std::string_view(*text).substr(at, blockSize));
            }
            return counter->lines != 0;
        });
        addRow(group + "memchr", text->size(),
               [=] { return countLines(text->data(), text->size()) != 0; });
    }
}

}  // namespace

/// 10 million lines from a child through process, run loop and filter, next to a bare loop of
/// read and memchr.
int main(int argc, char** argv) {
    addRow("a child's lines/ours", lineCount * (lineLength + 1), readByUs)->UseRealTime();
    addRow("a child's lines/a bare loop", lineCount * (lineLength + 1), readByBareLoop)
        ->UseRealTime();
    addFilterRows("ASCII", std::string(53, 'x') + "\n");
    addFilterRows("beyond ASCII", "Übertragung läuft – 42 % von „paket“ fertig ….\n");
    return runRows(argc, argv);
}
