#include <CommandLine/Delivery.h>
#include <CommandLine/DeliveryOptions.h>

namespace velto::cli {

namespace {

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    return runDelivery(frontend, invocation, false);
}

}  // namespace

const Command& uploadCommand() {
    static const Command command{
        .name = "upload",
        .summary = "deliver a package to its store",
        .description =
            "Delivers a package to its store. A transfer that breaks off is taken up again; files "
            "that the store already has are not sent twice. Ctrl-C stops it and says what was "
            "left; "
            "a second one ends at once.",
        .operands = {{.name = "PACKAGE", .kind = ArgumentKind::folder}},
        .groups = deliveryOptions(true),
        .examples =
            {{"VELTO_PASSWORD=... velto upload FILM_1.velmp --user me@studio.example",
              "delivers the package to the Velto Store"},
             {"pass show store | velto upload FILM_1.velmp -u me@studio.example --password-stdin",
              "takes the password from another program"},
             {"velto upload BOOK_7.velmp --store zarnet-books --token-file token.plist",
              "delivers to Zarnet Books with an authorization token"},
             {"velto upload FILM_1.velmp --api-key KEY --issuer ISSUER --transport Signiant",
              "signs in with an API key and chooses the transport"}},
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
