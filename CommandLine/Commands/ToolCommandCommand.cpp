#include <CommandLine/Delivery.h>
#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Text.h>
#include <CommandLine/Tool.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Platform/ArgumentMask.h>

#include <array>

namespace velto::cli {

namespace {

constexpr std::array<std::string_view, 2> modes{"verify", "upload"};

/// A worker that only gets ready.
class ReadyWorker final : public VeltoDrovanUploadWorker {
public:
    using VeltoDrovanUploadWorker::VeltoDrovanUploadWorker;

    std::vector<std::string> allArguments() {
        drovanWillStart();
        return drovan()->augmentedArguments();
    }
};

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    DeliveryPlan plan;
    if (!plan.make(frontend, invocation, invocation.operands[1], failure)) {
        return frontend.fail(failure);
    }
    const auto path = findTool(frontend, invocation, failure);
    if (!path) {
        return frontend.fail(failure);
    }
    const auto worker =
        velto::make<ReadyWorker>(plan.source, invocation.operands.front() == modes.front());
    worker->setChecksumEnabled(plan.checksChecksums);
    const std::vector<std::string> arguments = maskedArgumentList(worker->allArguments());
    if (frontend.printsJSON()) {
        Array list;
        for (const std::string& argument : arguments) {
            list.append(argument);
        }
        frontend.answer(frontend.result(ExitCode::done).add("path", *path).add("arguments", list));
        return ExitCode::done;
    }
    std::string line = shellQuoted(*path);
    for (const std::string& argument : arguments) {
        line.append(" ").append(shellQuoted(argument));
    }
    frontend.answerName(withoutSecrets(line));
    return ExitCode::done;
}

}  // namespace

const Command& toolCommandCommand() {
    static const Command command{
        .name = "tool command",
        .summary = "print the command line that would be run",
        .description =
            "Prints the delivery tool's command line, exactly as verify or upload would run it, "
            "quoted "
            "for a shell, with secrets hidden. Nothing is run. Secrets reach the tool in variables "
            "with "
            "random names, which stand in it as @env:NAME.",
        .operands = {{.name = "verify|upload", .choices = modes},
                     {.name = "PACKAGE", .kind = ArgumentKind::folder}},
        .groups = deliveryOptions(true),
        .examples = {{"velto tool command upload FILM_1.velmp --user me@studio.example",
                      "what velto upload would run"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
