#pragma once

#include <CommandLine/Display.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

class VeltoDrovanWorker;

namespace velto::cli {

/// How a job ended.
struct JobOutcome {
    bool isStopped = false;  ///< By the user, before it was done.
    std::vector<Error> errors;
    Array warnings;
    Array infoMessages;
    double seconds = 0;
    std::uint64_t completed = 0;  ///< Bytes.
    std::uint64_t size = 0;
    std::string rate;  ///< Over the whole transfer; empty without.
};

/// Runs one worker through the default manager, as a series of its own, and shows it meanwhile.
class Job {
public:
    Job(Frontend& frontend, std::shared_ptr<VeltoDrovanWorker> worker);

    /// Status texts that are no phase: the sentences that end a job.
    void hidePhase(const std::optional<std::string>& text);

    /// Returns when nothing of the job runs any more. A wish to stop cancels it; a second one kills
    /// the tool and ends the program at once.
    JobOutcome run();

private:
    class Watch;

    Frontend& frontend_;
    const std::shared_ptr<VeltoDrovanWorker> worker_;
    std::set<std::string, std::less<>> hiddenPhases_;
};

}  // namespace velto::cli
