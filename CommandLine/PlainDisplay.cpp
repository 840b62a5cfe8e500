#include <CommandLine/PlainDisplay.h>

#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

namespace velto::cli {

namespace {

/// Systems that run jobs end one that is silent for long.
constexpr auto longestSilence = std::chrono::seconds(25);

}  // namespace

void PlainDisplay::phaseChanged(const Progress& progress, Time now) {
    nextLine_ = now + longestSilence;
    console_.line(Console::Stream::output, progress.phase);
}

void PlainDisplay::progressed(const Progress& progress, Time now) {
    nextLine_ = now + longestSilence;
    std::string details;
    for (const std::string& detail : {percentText(progress), bytesText(progress),
                                      rateText(progress), remainingText(progress)}) {
        if (!detail.empty()) {
            details.append(details.empty() ? "" : ", ").append(detail);
        }
    }
    if (details.empty()) {
        details = localizedFormat("still running after %@", durationText(progress.elapsed));
    }
    console_.line(Console::Stream::output, progress.phase + " " + details);
}

}  // namespace velto::cli
