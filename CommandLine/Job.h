#pragma once

#include <CommandLine/Display.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

class MZAbstractWorker;
class VeltoDrovanWorker;

namespace velto::cli {

/// How a job ended. Bytes and rate are those of the last worker that ran.
struct JobOutcome {
    bool isStopped = false;  ///< By the user, before it was done.
    std::vector<Error> errors;
    Array warnings;
    Array infoMessages;
    double seconds = 0;           ///< Without pauses.
    std::uint64_t completed = 0;  ///< Bytes.
    std::uint64_t size = 0;
    std::string rate;  ///< Over the whole transfer; empty without.
};

/// Runs workers through the default manager, as a series of their own, and shows them meanwhile.
class Job {
public:
    /// `farewell` is what a program says that a second wish to stop ends at once.
    Job(Frontend& frontend,
        std::vector<std::shared_ptr<MZAbstractWorker>> workers,
        std::string farewell);
    Job(Frontend& frontend, const std::shared_ptr<VeltoDrovanWorker>& worker);

    /// Status texts that are no phase: the sentences that end a job.
    void hidePhase(const std::optional<std::string>& text);
    void hidePhase(std::function<bool(const std::string& text)> isHidden) {
        isHidden_ = std::move(isHidden);
    }

    /// Returns when nothing of the job runs any more. A wish to stop cancels it; a second one kills
    /// the tool, if there is one, and ends the program at once; neither waits for who reads our
    /// output. The tool pauses when we do, and ends when we are gone.
    JobOutcome run();

private:
    class Canceller;
    class Watch;

    Frontend& frontend_;
    const std::vector<std::shared_ptr<MZAbstractWorker>> workers_;
    const std::string farewell_;
    std::shared_ptr<VeltoDrovanWorker> tool_;
    std::set<std::string, std::less<>> hiddenPhases_;
    std::function<bool(const std::string& text)> isHidden_;
};

}  // namespace velto::cli
