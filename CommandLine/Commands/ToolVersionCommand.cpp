#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Job.h>
#include <CommandLine/Text.h>
#include <CommandLine/Tool.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanWorker.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <algorithm>

namespace velto::cli {

namespace {

/// Asks the tool for its version; what it prints is the answer.
class VersionWorker final : public VeltoDrovanWorker {
public:
    explicit VersionWorker(PassKey key) : VeltoDrovanWorker(key, {"-version"}) {}

    std::string answer() const { return drovan()->standardOutString(); }

protected:
    void drovanCompleted() override {
        VeltoDrovanWorker::drovanCompleted();
        if (!hasErrors() && terminationStatus() != 0) {
            addErrorMessage(endOfTool(termination()));
        }
    }
    using VeltoDrovanWorker::drovanCompleted;
};

/// Whether a line is what the tool says of itself: any other program may have answered.
bool tellsVersion(std::string_view answer) {
    constexpr std::string_view mark = "Drovan, version ";
    const std::size_t found = answer.find(mark);
    const std::string_view version =
        found == std::string_view::npos ? std::string_view() : answer.substr(found + mark.size());
    return version.substr(0, version.find('\n')).find_first_not_of(" \t\r") !=
           std::string_view::npos;
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    const auto path = findTool(frontend, invocation, failure);
    if (!path) {
        return frontend.fail(failure);
    }
    const auto worker = velto::make<VersionWorker>();
    Job job(frontend, worker);
    job.hidePhase(worker->storeMessages()->authenticatingWithStoreMessage());
    const JobOutcome outcome = job.run();
    if (outcome.isStopped) {
        return frontend.fail({.exitCode = ExitCode::stopped, .what = localized("Stopped.")});
    }
    const std::string untold = localized("The delivery tool did not tell its version.");
    if (!outcome.errors.empty()) {
        return frontend.fail(failureOfErrors(untold, outcome.errors));
    }
    std::string answer = worker->answer();
    if (!tellsVersion(answer)) {
        failure = {.exitCode = ExitCode::toolNotFound,
                   .what = untold,
                   .next = localized("Name the delivery tool VelmDrovan with --tool PATH.")};
        failure.why.push_back(localizedFormat("%@ is another program.", printable(*path)));
        return frontend.fail(failure);
    }
    answer.erase(answer.find_last_not_of("\r\n") + 1);
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).add("path", *path).add("version", answer));
        return ExitCode::done;
    }
    for (std::string_view rest = answer; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        frontend.answer(printable(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return ExitCode::done;
}

}  // namespace

const Command& toolVersionCommand() {
    static const Command command{
        .name = "tool version",
        .summary = "print the version of the delivery tool",
        .description = "Runs the delivery tool to ask for its version.",
        .groups = {{"Options", {&toolOption, &graceOption}}},
        .examples = {{"velto tool version", "what the tool says of itself"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
