#include <CommandLine/Display.h>

#include <CommandLine/JSONDisplay.h>
#include <CommandLine/LiveDisplay.h>
#include <CommandLine/PlainDisplay.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>

#include <algorithm>

namespace velto::cli {

std::string bytesText(const Progress& progress) {
    if (progress.size == 0) {
        return {};
    }
    return localizedFormat("%@ of %@", MZHumanReadableStringFromBytes(progress.completed),
                           MZHumanReadableStringFromBytes(progress.size));
}

std::string rateText(const Progress& progress) {
    return progress.rate == 0 ? std::string()
                              : MZHumanReadableStringFromBytes(progress.rate) + "/s";
}

std::string remainingText(const Progress& progress) {
    const std::string time = progress.remaining ? durationText(*progress.remaining) : std::string();
    return time.empty() ? time : localizedFormat("%@ left", time);
}

std::string percentText(const Progress& progress) {
    if (!progress.percent) {
        return {};
    }
    return std::to_string(static_cast<int>(std::clamp(*progress.percent, 0.0, 100.0))) + "%";
}

std::unique_ptr<Display> Display::make(Frontend& frontend) {
    switch (frontend.style()) {
        case Frontend::Style::json:
            return frontend.isQuiet() ? std::make_unique<Display>()
                                      : std::make_unique<JSONDisplay>(frontend);
        case Frontend::Style::quiet:
            return std::make_unique<Display>();
        case Frontend::Style::human:
            break;
    }
    if (frontend.console().isTerminal(Console::Stream::output)) {
        return std::make_unique<LiveDisplay>(frontend.console());
    }
    return std::make_unique<PlainDisplay>(frontend.console());
}

}  // namespace velto::cli
