#pragma once

#include <CommandLine/LiveDisplay.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

namespace velto::cli {

class Interrupts;

/// A file that is read while a live line shows how far; the line goes when the reading ends. For a
/// standard output that is a terminal.
class WatchedInput final : public InputStream {
public:
    /// `name` is what the line calls it; a `size` of 0 is not known.
    WatchedInput(std::shared_ptr<InputStream> source,
                 std::string name,
                 std::uint64_t size,
                 Frontend& frontend);
    ~WatchedInput() override;

    void open() override { source_->open(); }
    void close() override { source_->close(); }
    StreamStatus streamStatus() const override { return source_->streamStatus(); }
    Error streamError() const override { return source_->streamError(); }
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override;

private:
    void show(Display::Time now);

    const std::shared_ptr<InputStream> source_;
    const Interrupts& interrupts_;
    LiveDisplay display_;
    Progress progress_;
    Display::Time start_;
    Display::Time nextDraw_;
};

}  // namespace velto::cli
