#include <CommandLine/JSONDisplay.h>

#include <cmath>

namespace velto::cli {

namespace {

double rounded(double number) {
    return std::round(number * 1000) / 1000;
}

}  // namespace

void JSONDisplay::phaseChanged(const Progress& progress, Time now) {
    if (nextObject_ == Time::max()) {
        nextObject_ = now + std::chrono::milliseconds(500);
    }
    frontend_.answer(JSONLine("phase")
                         .addWord("id", progress.id)
                         .add("phase", progress.phase)
                         .add("elapsed", rounded(progress.elapsed)));
}

void JSONDisplay::progressed(const Progress& progress, Time now) {
    nextObject_ = now + std::chrono::milliseconds(500);
    JSONLine line("progress");
    line.addWord("id", progress.id)
        .add("phase", progress.phase)
        .add("elapsed", rounded(progress.elapsed));
    if (progress.percent) {
        line.add("percent", rounded(*progress.percent));
    }
    if (progress.size != 0) {
        line.add("completed", progress.completed).add("size", progress.size);
    }
    if (progress.rate != 0) {
        line.add("rate", progress.rate);
    }
    if (progress.remaining) {
        line.add("remaining", rounded(*progress.remaining));
    }
    frontend_.answer(line);
}

}  // namespace velto::cli
