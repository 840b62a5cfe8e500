#include <CommandLine/CommonOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Text.h>
#include <CommandLine/Tool.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

namespace velto::cli {

namespace {

constexpr Option allOption{.name = "all",
                           .letter = 'a',
                           .help = "all places that are looked at, in their order"};

void showAll(Frontend& frontend) {
    Array places;
    for (const std::string& path : searchedPlaces()) {
        const bool isThere = FileManager::isExecutable(path);
        const std::string against = reasonAgainstTool(path);
        Dictionary place{{"path", path}, {"found", isThere && against.empty()}};
        if (!against.empty()) {
            place.set("refused", against);
        }
        places.append(place);
        if (!frontend.printsJSON()) {
            frontend.answer(!against.empty() ? "refused  " + printable(path) + "  " + against
                            : isThere        ? "found    " + printable(path)
                                             : "missing  " + printable(path));
        }
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).add("places", places));
    }
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    if (invocation.has(allOption)) {
        showAll(frontend);
        return ExitCode::done;
    }
    Failure failure;
    const auto path = findTool(frontend, invocation, failure);
    if (!path) {
        return frontend.fail(failure);
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).add("path", *path));
    } else {
        frontend.answerName(*path);
    }
    return ExitCode::done;
}

}  // namespace

const Command& toolLocateCommand() {
    static const Command command{
        .name = "tool locate",
        .summary = "print the path of the delivery tool",
        .description =
            "Prints the path of the delivery tool that verify and upload would run. A tool that "
            "somebody else could have put there is refused: it, each folder above it and each link "
            "on the way must belong to root or to you, and nobody else may write to it or to those "
            "folders (your own group, with nobody else in it, may; so may everybody in a folder "
            "with the sticky bit, such as /tmp). A setting must name the whole path, or begin "
            "with ~.",
        .groups = {{"Options", {&allOption, &toolOption}}},
        .examples = {{"velto tool locate", "the path, or exit code 6"},
                     {"velto tool locate --all", "every place that is looked at"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
