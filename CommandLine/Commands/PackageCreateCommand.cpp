#include <CommandLine/Frontend.h>
#include <CommandLine/Interrupts.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Job.h>
#include <CommandLine/MetadataName.h>
#include <CommandLine/Paths.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Files/VeltoVideoMetadataWorker.h>
#include <VeltoConnectFoundation/Files/VeltoVideoPackageBuilderWorker.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>
#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <utility>

namespace velto::cli {

namespace {

constexpr std::array<std::string_view, 2> mediaTypes{"film", "movie"};
constexpr std::array<std::string_view, 2> assetTypes{"main", "trailer"};

constexpr Option providerOption{.name = "provider",
                                .letter = 'p',
                                .value = "NAME",
                                .help = "the provider's short name (VeltoProviderShortname)"};
constexpr Option vendorOption{.name = "vendor-id",
                              .value = "ID",
                              .help = "the vendor identifier of the title; needed"};
constexpr Option mediaTypeOption{.name = "media-type",
                                 .value = "TYPE",
                                 .help = "film, if left out; or movie",
                                 .choices = mediaTypes};
constexpr Option assetOption{.name = "asset",
                             .value = "TYPE",
                             .help = "main, if left out; or trailer",
                             .choices = assetTypes};

/// "film" as metadata and builder have it: "Film".
std::string capitalized(std::string text) {
    text.front() = static_cast<char>(text.front() - 'a' + 'A');
    return text;
}

/// Why no copy of the video would get into its folder: what shows only while it is copied
/// otherwise.
Error faultOfFolder(const std::filesystem::path& video) {
    const std::filesystem::path folder = video.parent_path();
    struct stat status {};
    struct statfs system {};
    if (::stat(video.c_str(), &status) != 0 || ::access(video.c_str(), R_OK) != 0) {
        return Error::posix(errno, video.string());
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0 || ::statfs(folder.c_str(), &system) != 0) {
        return Error::posix(errno, folder.string());
    }
    // Any other may share the blocks of both files. Holes take no room.
    constexpr std::array withoutClones{EXT4_SUPER_MAGIC, TMPFS_MAGIC, MSDOS_SUPER_MAGIC};
    const auto needed = static_cast<std::uint64_t>(
        std::min<std::int64_t>(status.st_size, std::int64_t{status.st_blocks} * 512));
    const auto room = std::uint64_t{::geteuid() == 0 ? system.f_bfree : system.f_bavail} *
                      static_cast<std::uint64_t>(system.f_frsize);
    // A tmpfs without a limit has no blocks to count.
    const bool needsRoom = system.f_blocks != 0 &&
                           std::ranges::find(withoutClones, system.f_type) != withoutClones.end();
    return needsRoom && room < needed ? Error::posix(ENOSPC, folder.string()) : Error();
}

/// What a package is made of, as the command line says.
struct Plan {
    std::string video;  ///< Absolute.
    std::string provider;
    std::string vendorID;
    std::string mediaType;
    std::string asset;

    /// False, with the reason, when no package can be made of it.
    bool make(const Invocation& invocation, Failure& failure) {
        provider = invocation.value(providerOption).value_or(VeltoProviderShortname.stringValue());
        vendorID = invocation.value(vendorOption).value_or(std::string());
        mediaType = capitalized(
            invocation.value(mediaTypeOption).value_or(std::string(mediaTypes.front())));
        asset =
            capitalized(invocation.value(assetOption).value_or(std::string(assetTypes.front())));
        for (const auto& [option, value] :
             {std::pair(&providerOption, &provider), std::pair(&vendorOption, &vendorID)}) {
            const std::string name = "--" + std::string(option->name);
            if (value->empty()) {
                failure = usageFailure(localizedFormat("velto package create needs %@.", name),
                                       localizedFormat("See %@.", "velto package create --help"));
                return false;
            }
            if (std::string fault = faultOfMetadataName(*value); !fault.empty()) {
                failure = usageFailure(
                    localizedFormat("‘%@’ cannot be used for %@.", printable(*value), name),
                    localized("Give the name as the store knows it."));
                failure.why.push_back(std::move(fault));
                return false;
            }
        }
        return findVideo(invocation.operands.front(), failure);
    }

private:
    bool findVideo(const std::string& path, Failure& failure) {
        video = absolutePath(path);
        const std::filesystem::path whole(video);
        const std::string name = whole.filename().string();
        Error error;
        const auto attributes = FileManager::linkAttributes(video, &error);
        std::string why;
        failure = {.what = localizedFormat("No package can be made of %@.", printable(path)),
                   .next = localized("Give the path of a video file.")};
        if (!attributes) {
            why = error.localizedDescription();
        } else if (attributes->kind == FileAttributes::Kind::symbolicLink) {
            std::error_code problem;
            why = localized("It is a symbolic link, and a package holds files.");
            failure.next = localizedFormat(
                "Give the file that it leads to: %@",
                printable(std::filesystem::weakly_canonical(whole, problem).string()));
        } else if (attributes->kind != FileAttributes::Kind::regular) {
            why = localized("It is not a file.");
        } else if (VeltoVideoPackageBuilderWorker::isMetadataName(name)) {
            why = localized("A package's own metadata bears this name.");
            failure.next = localized("Rename the video, then try again.");
        } else if (const std::string fault = faultOfMetadataName(name); !fault.empty()) {
            why = localizedFormat("Its name cannot stand in a package: %@", fault);
            failure.next = localized("Rename the video, then try again.");
        } else if (attributes->size == 0) {
            why = localized("It is empty.");
        } else if (static_cast<void>(FileManager::linkAttributes(
                       VeltoVideoPackageBuilderWorker::exampleDirectoryForVideo(video), &error)),
                   error.code() == ENAMETOOLONG) {
            why =
                localized("Its name, or its path, is too long for the package's folder beside it.");
            failure.next = localized(
                "Rename the video, or move it to where the path is shorter, then try again.");
        } else if (const Error problem = faultOfFolder(whole)) {
            why = problem.localizedDescription();
            failure.next = localized(failureKind(problem).next);
        } else {
            return true;
        }
        failure.why.push_back(printable(why));
        return false;
    }
};

Dictionary details(const Plan& plan,
                   const VeltoVideoPackageBuilderWorker& builder,
                   const JobOutcome& outcome) {
    Dictionary details{{"video", plan.video},
                       {"provider", plan.provider},
                       {"vendorID", plan.vendorID},
                       {"mediaType", plan.mediaType},
                       {"assetType", builder.xmlAssetType()},
                       {"size", builder.size()},
                       {"seconds", std::round(outcome.seconds * 1000) / 1000}};
    if (const auto text = builder.md5()) {
        details.set("md5", *text);
    }
    return details;
}

/// Removes what an unfinished build left, and says so in the sentence that is answered.
std::string cleanUp(Frontend& frontend, VeltoVideoPackageBuilderWorker& builder) {
    const std::string directory = builder.createdDirectory();
    if (directory.empty()) {
        return localized("Nothing was made.");
    }
    frontend.interrupts().setHandler(
        [](unsigned) { return false; });  // A part of it would be left.
    const Error error = builder.discard();
    frontend.interrupts().setHandler({});
    if (error) {
        return localizedFormat("The unfinished package could not be removed: %@",
                               printable(error.localizedDescription()));
    }
    return localizedFormat("The unfinished package was removed: %@", printable(directory));
}

void showSuccess(Frontend& frontend, const std::string& package, const JobOutcome& outcome) {
    Console& console = frontend.console();
    const auto output = Console::Stream::output;
    std::string text = console.successHeadline(
        output, localizedFormat("Generated package: %@", printable(package)));
    text += " " + MZHumanReadableStringFromBytes(outcome.size) +
            localizedFormat(" in %@", durationText(std::max(outcome.seconds, 1.0)));
    console.line(output, text);
}

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Failure failure;
    Plan plan;
    if (!plan.make(invocation, failure)) {
        return frontend.fail(failure);
    }
    const auto builder = VeltoVideoPackageBuilderWorker::builderForVideo(
        std::make_shared<VeltoGivenVideoMetadata>(plan.mediaType, plan.provider, plan.vendorID),
        plan.video, plan.asset);
    Job job(frontend, {builder},
            localized("Ended at once; an unfinished package may be left beside the video."));
    // The sentence that ends the job is printed at its end.
    job.hidePhase([&](const std::string& text) {
        return text == localizedFormat("Generated package: %@", builder->createdDirectory()) ||
               text == localized("Creation of video package cancelled");
    });
    const JobOutcome outcome = job.run();
    Dictionary known = details(plan, *builder, outcome);

    if (outcome.isStopped) {
        const std::string left = localizedFormat("Stopped. %@", cleanUp(frontend, *builder));
        if (frontend.printsJSON()) {
            return frontend.fail({.exitCode = ExitCode::stopped, .what = left}, known);
        }
        frontend.console().line(Console::Stream::errors, left);
        return ExitCode::stopped;
    }
    if (!outcome.errors.empty()) {
        failure = failureOfErrors(localized("The package could not be made."), outcome.errors);
        const Error& last = outcome.errors.back();
        if (last.domain() == GeneralErrorDomain && last.code() == ESTALE) {
            failure.next = localized(
                "Let nobody change the video or its folder while the package is made, then try "
                "again.");
        } else if (last.domain() == WorkerErrorDomain) {
            // The builder's own error is about the folder that it could not make.
            failure.exitCode = ExitCode::failed;
            failure.next = localized("Check the folder of the video, then try again.");
        }
        failure.why.push_back(cleanUp(frontend, *builder));
        return frontend.fail(failure, known);
    }
    if (frontend.printsJSON()) {
        frontend.answer(
            frontend.result(ExitCode::done).add("package", builder->packagePath()).addAll(known));
    } else if (frontend.style() == Frontend::Style::human) {
        showSuccess(frontend, builder->packagePath(), outcome);
    }
    return ExitCode::done;
}

}  // namespace

const Command& packageCreateCommand() {
    static const Command command{
        .name = "package create",
        .summary = "make a package of a video",
        .description =
            "Makes a package of a video, beside it: a new folder "
            "NAME-UntitledVeltoStoreDelivery.velmp that holds a copy of the video, and "
            "metadata.xml with its names, size and checksum. Where the file system can, the copy "
            "takes no room of its own. Names that could not stand in the metadata are refused. "
            "Ctrl-C stops it and takes away what there is of the package; what a killed one left, "
            "the "
            "next one takes over.",
        .operands = {{.name = "VIDEO", .kind = ArgumentKind::file}},
        .groups = {{"What it is",
                    {&providerOption, &vendorOption, &mediaTypeOption, &assetOption}}},
        .examples =
            {{"velto package create Film.mov --provider Studio --vendor-id FILM_1",
              "Film-UntitledVeltoStoreDelivery.velmp"},
             {"velto package create Teaser.mov -p Studio --vendor-id FILM_1 --asset trailer",
              "a package of the film's trailer"}},
        .run = &run,
        .acts = true,
    };
    return command;
}

}  // namespace velto::cli
