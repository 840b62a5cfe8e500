#pragma once

#include <CommandLine/Display.h>

namespace velto::cli {

/// A line for each phase, and one from time to time while a phase lasts: for logs and pipes.
class PlainDisplay final : public Display {
public:
    explicit PlainDisplay(Console& console) : console_(console) {}

    void phaseChanged(const Progress& progress, Time now) override;
    void progressed(const Progress& progress, Time now) override;
    Time nextProgress() const override { return nextLine_; }

private:
    Console& console_;
    Time nextLine_ = Time::max();
};

}  // namespace velto::cli
