#include <CommandLine/WatchedInput.h>

#include <CommandLine/Frontend.h>
#include <CommandLine/Interrupts.h>

#include <utility>

namespace velto::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// What is read sooner needs no line.
constexpr std::chrono::milliseconds quietStart(300);

}  // namespace

WatchedInput::WatchedInput(std::shared_ptr<InputStream> source,
                           std::string name,
                           std::uint64_t size,
                           Frontend& frontend)
    : source_(std::move(source)),
      interrupts_(frontend.interrupts()),
      display_(frontend.console()),
      start_(Clock::now() - interrupts_.pausedTime()),
      nextDraw_(Clock::now() + quietStart) {
    progress_.phase = std::move(name);
    progress_.size = size;
}

WatchedInput::~WatchedInput() {
    display_.end();
}

std::ptrdiff_t WatchedInput::read(std::uint8_t* buffer, std::size_t length) {
    const std::ptrdiff_t count = source_->read(buffer, length);
    if (count > 0) {
        progress_.completed += static_cast<std::uint64_t>(count);
        if (const auto now = Clock::now(); now >= nextDraw_) {
            show(now);
        }
    }
    return count;
}

void WatchedInput::show(Display::Time now) {
    const double seconds =
        std::chrono::duration<double>(now - interrupts_.pausedTime() - start_).count();
    const auto completed = static_cast<double>(progress_.completed);
    progress_.elapsed = seconds;
    progress_.rate = static_cast<std::uint64_t>(completed / seconds);
    if (progress_.size >= progress_.completed) {
        const auto size = static_cast<double>(progress_.size);
        progress_.percent = 100 * completed / size;
        progress_.remaining = seconds * (size - completed) / completed;
    } else {
        // It has grown, or has no size: nobody knows how much is left.
        progress_.size = 0;
        progress_.percent.reset();
        progress_.remaining.reset();
    }
    display_.progressed(progress_, now);
    nextDraw_ = display_.nextProgress();
}

}  // namespace velto::cli
