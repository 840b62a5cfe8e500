#pragma once

#include <CommandLine/Frontend.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace velto::cli {

/// How far a job is.
struct Progress {
    std::string phase = {};                ///< Printable.
    std::string_view id = {};              ///< The phase's identifier, the same in every language.
    std::optional<double> percent = {};    ///< 0 to 100; none while it is not known.
    std::uint64_t completed = 0;           ///< Bytes.
    std::uint64_t size = 0;                ///< Bytes; 0 when nothing is transferred.
    std::uint64_t rate = 0;                ///< Bytes a second; 0 while it is not known.
    std::optional<double> remaining = {};  ///< Seconds.
    double elapsed = 0;                    ///< Seconds.
};

/// "107.4 MB of 256 MB", "31.2 MB/s" and "0:05 left"; empty without that.
std::string bytesText(const Progress& progress);
std::string rateText(const Progress& progress);
std::string remainingText(const Progress& progress);
/// Whole percents, never more than is done; empty without.
std::string percentText(const Progress& progress);

/// Shows a job that runs. The base shows nothing.
class Display {
public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~Display() = default;

    virtual void phaseChanged(const Progress&, Time) {}
    virtual void progressed(const Progress&, Time) {}
    /// When progressed() is wanted next.
    virtual Time nextProgress() const { return Time::max(); }
    /// The job has ended; what follows is printed below.
    virtual void end() {}

    /// A live line on a terminal, plain lines elsewhere, objects for JSON, nothing when quiet.
    static std::unique_ptr<Display> make(Frontend& frontend);
};

}  // namespace velto::cli
