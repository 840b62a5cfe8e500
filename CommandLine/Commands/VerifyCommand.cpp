#include <CommandLine/Delivery.h>
#include <CommandLine/DeliveryOptions.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    return runDelivery(frontend, invocation, true);
}

}  // namespace

const Command& verifyCommand() {
    static const Command command{
        .name = "verify",
        .summary = "check a package with its store, without delivering it",
        .description =
            "Checks a package with its store: the metadata, and each file's size and "
            "checksum. Nothing is delivered.",
        .operands = {{.name = "PACKAGE", .kind = ArgumentKind::folder}},
        .groups = deliveryOptions(false),
        .examples = {{"VELTO_PASSWORD=... velto verify FILM_1.velmp --user me@studio.example",
                      "checks the package with the Velto Store"},
                     {"velto verify FILM_1.velmp --api-key KEY --issuer ISSUER --json",
                      "signs in with an API key; one JSON object a line"}},
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
