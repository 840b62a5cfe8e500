#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Job.h>
#include <CommandLine/PackageInspection.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>

#include <algorithm>

namespace velto::cli {

namespace {

Dictionary details(const InspectedPackage& package) {
    Array files;
    Array strangers;
    for (const InspectedFile& file : package.files) {
        Dictionary entry{{"name", file.name},
                         {"assetType", file.assetType},
                         {"role", file.role},
                         {"statedMd5", file.statedMD5},
                         {"holds", file.holds()}};
        if (file.statedSize) {
            entry.set("statedSize", *file.statedSize);
        }
        if (file.size) {
            entry.set("size", *file.size);
        }
        if (file.md5) {
            entry.set("md5", *file.md5);
        }
        files.append(entry);
    }
    for (const std::string& name : package.strangers) {
        strangers.append(name);
    }
    return {{"package", package.folder},      {"provider", package.provider},
            {"mediaType", package.mediaType}, {"vendorID", package.vendorID},
            {"holds", package.holds()},       {"files", files},
            {"undescribedFiles", strangers}};
}

std::string judged(const std::string& found, bool holds) {
    return holds ? localizedFormat("%@, holds", found)
                 : localizedFormat("%@, does not hold", found);
}

void show(Frontend& frontend, const InspectedPackage& package) {
    struct Row {
        std::string label;
        std::string text;
    };
    std::vector<Row> rows{{localized("Package:"), package.folder},
                          {localized("Provider:"), package.provider},
                          {localized("Media type:"), package.mediaType},
                          {localized("Vendor identifier:"), package.vendorID}};
    for (const InspectedFile& file : package.files) {
        rows.push_back({localized("File:"),
                        localizedFormat("%@ (%@, %@)", file.name, file.assetType, file.role)});
        const std::string size =
            file.size ? judged(localizedFormat("%llu bytes (%@)", *file.size,
                                               MZHumanReadableStringFromBytes(*file.size)),
                               file.size == file.statedSize)
                      : localized("missing");
        const std::string md5 =
            file.md5 ? judged(*file.md5, *file.md5 == file.statedMD5) : localized("not computed");
        rows.push_back({"  " + localized("Size:"), size});
        rows.push_back({"  " + localized("MD5:"), md5});
    }
    std::size_t column = 0;
    for (const Row& row : rows) {
        column = std::max(column, columnsOf(row.label) + 1);
    }
    for (const Row& row : rows) {
        frontend.answer(frontend.console().inked(Console::Stream::output, Ink::faint, row.label) +
                        std::string(column - columnsOf(row.label), ' ') + printable(row.text));
    }
    for (const std::string& name : package.strangers) {
        frontend.remark(Ink::warning, localized("Warning:"),
                        localizedFormat("metadata.xml does not tell of %@", name));
    }
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    InspectedPackage package;
    if (!package.read(invocation.operands.front(), failure)) {
        return frontend.fail(failure);
    }
    Job job(frontend, {velto::make<PackageInspection>(package)}, localized("Ended at once."));
    const JobOutcome outcome = job.run();
    if (outcome.isStopped) {
        return frontend.fail({.exitCode = ExitCode::stopped, .what = localized("Stopped.")});
    }
    if (!frontend.printsJSON()) {
        show(frontend, package);
    }
    if (!package.holds()) {
        failure = {.what = localized("The package does not hold what its metadata says."),
                   .why = package.allFaults(),
                   .next = localized("Put the right files into the package, or make it anew: velto "
                                     "package create.")};
        return frontend.fail(failure, details(package));
    }
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).addAll(details(package)));
    }
    return ExitCode::done;
}

}  // namespace

const Command& packageInspectCommand() {
    static const Command command{
        .name = "package inspect",
        .summary = "show what is in a package, and whether it holds",
        .description =
            "Shows what a package's metadata says, computes the checksum of each file and compares "
            "sizes and checksums. Exit code 1 when something does not hold. No store is asked.",
        .operands = {{.name = "PACKAGE", .kind = ArgumentKind::folder}},
        .examples = {{"velto package inspect FILM_1.velmp", "names, sizes and checksums"},
                     {"velto package inspect FILM_1.velmp --json", "the same for a program"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
