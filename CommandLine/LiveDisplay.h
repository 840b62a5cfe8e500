#pragma once

#include <CommandLine/Display.h>

namespace velto::cli {

/// One line on a terminal, drawn at most ten times a second and gone at the end.
class LiveDisplay final : public Display {
public:
    explicit LiveDisplay(Console& console) : console_(console) {}

    void progressed(const Progress& progress, Time now) override;
    Time nextProgress() const override { return nextDraw_; }
    void end() override { console_.setLiveLine({}); }

    /// The line in `width` columns: phase, bar, percent, bytes, rate, time; what does not fit is
    /// left out, the least important first, and the percentage last.
    static std::string line(const Progress& progress, std::size_t width, const Console& console);

private:
    Console& console_;
    Time nextDraw_ = Time::min();
};

}  // namespace velto::cli
