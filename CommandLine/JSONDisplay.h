#pragma once

#include <CommandLine/Display.h>

namespace velto::cli {

/// A "phase" object for each phase and a "progress" object at most twice a second.
class JSONDisplay final : public Display {
public:
    explicit JSONDisplay(Frontend& frontend) : frontend_(frontend) {}

    void phaseChanged(const Progress& progress, Time now) override;
    void progressed(const Progress& progress, Time now) override;
    Time nextProgress() const override { return nextObject_; }

private:
    Frontend& frontend_;
    Time nextObject_ = Time::max();
};

}  // namespace velto::cli
