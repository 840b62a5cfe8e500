#include <CommandLine/Delivery.h>
#include <CommandLine/Paths.h>

#include <CommandLine/DeliveryOptions.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Job.h>
#include <CommandLine/Text.h>
#include <CommandLine/Tool.h>
#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>
#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <utility>

namespace velto::cli {

namespace {

std::int64_t storeTypeOf(std::string_view name) {
    // The store types are the names' places, counted from 1.
    return std::ranges::find(storeNames, name) - storeNames.begin() + 1;
}

/// A remark is a text or an error.
std::string remarkText(const Value& remark) {
    const Error error = Error::fromValue(remark);
    return error ? error.localizedDescription() : remark.description();
}

Array remarkTexts(const Array& remarks) {
    Array texts;
    for (const Value& remark : remarks) {
        texts.append(remarkText(remark));
    }
    return texts;
}

std::string nameOf(const std::string& path) {
    return printable(std::filesystem::path(path).filename().string());
}

void showRemarks(Frontend& frontend, const JobOutcome& outcome) {
    const auto show = [&](const Array& remarks, std::string_view level, Ink ink,
                          const std::string& label) {
        for (const Value& remark : remarks) {
            if (frontend.printsJSON() && !frontend.isQuiet()) {
                frontend.answer(
                    JSONLine("message").addWord("level", level).add("text", remarkText(remark)));
            } else {
                frontend.remark(ink, label, remarkText(remark));
            }
        }
    };
    show(outcome.infoMessages, "info", Ink::faint, localized("Note:"));
    show(outcome.warnings, "warning", Ink::warning, localized("Warning:"));
}

/// What is known of the store's side of an upload that was not confirmed: what the tool told.
std::string storeSide(const VeltoDrovanTransfer& transfer) {
    const std::string size = MZHumanReadableStringFromBytes(transfer.size);
    const std::string sent = MZHumanReadableStringFromBytes(transfer.sent);
    const std::string skipped = MZHumanReadableStringFromBytes(transfer.skipped);
    if (transfer.size == 0) {
        return localized("The tool reported nothing as sent.");
    }
    const std::string bytes =
        transfer.skipped == 0
            ? localizedFormat("The tool reported %@ of %@ as sent.", sent, size)
            : localizedFormat("Of %@ the tool reported %@ as sent and %@ as there already.", size,
                              sent, skipped);
    return bytes + " " +
           (transfer.isWhole()
                ? localized("The store may have the delivery, or a part of it.")
                : localized("Files that arrived whole may stay at the store; the next upload sends "
                            "what it lacks."));
}

/// What is left of an upload or a verify that was stopped.
std::string whatWasLeft(const VeltoDrovanUploadWorker& worker, const DeliveryPlan& plan) {
    const std::string package =
        localizedFormat("The package is as it was: %@", printable(plan.packagePath));
    return (worker.isVerifyOnly() ? localized("Stopped. Nothing was sent.")
                                  : localizedFormat("Stopped. %@", storeSide(worker.transfer()))) +
           " " + package;
}

void showSuccess(Frontend& frontend,
                 const VeltoDrovanUploadWorker& worker,
                 const DeliveryPlan& plan,
                 const JobOutcome& outcome) {
    if (frontend.style() != Frontend::Style::human) {
        return;
    }
    Console& console = frontend.console();
    const auto output = Console::Stream::output;
    const std::string headline =
        console.successHeadline(output, printable(worker.statusMessage().value_or(std::string())));
    std::string name = nameOf(plan.packagePath);
    if (const auto uploaded = worker.uploadedPackageName(); uploaded && !uploaded->empty()) {
        name = nameOf(*uploaded);
    }
    std::string details = " " + name;
    const VeltoDrovanTransfer transfer = worker.transfer();
    if (transfer.size != 0) {
        details += ", " + MZHumanReadableStringFromBytes(transfer.size);
    }
    if (transfer.skipped != 0) {
        details += " (" +
                   (transfer.sent == 0
                        ? localized("all of it there already")
                        : localizedFormat("%@ sent, %@ there already",
                                          MZHumanReadableStringFromBytes(transfer.sent),
                                          MZHumanReadableStringFromBytes(transfer.skipped))) +
                   ")";
    }
    details += localizedFormat(" in %@", durationText(std::max(outcome.seconds, 1.0)));
    // What was there already takes no time: no rate could be told by it.
    if (transfer.size != 0 && transfer.skipped == 0 && !outcome.rate.empty()) {
        details += ", " + outcome.rate + "/s";
    }
    console.line(output, headline + details);
}

Dictionary details(const VeltoDrovanUploadWorker& worker,
                   const DeliveryPlan& plan,
                   const JobOutcome& outcome) {
    Dictionary details{{"package", plan.packagePath},
                       {"store", plan.storeName},
                       {"seconds", std::round(outcome.seconds * 1000) / 1000}};
    if (const VeltoDrovanTransfer transfer = worker.transfer(); transfer.size != 0) {
        details.set("completed", transfer.sent + transfer.skipped);
        details.set("size", transfer.size);
        details.set("sent", transfer.sent);
        details.set("skipped", transfer.skipped);
    }
    if (const auto name = worker.uploadedPackageName(); name && !name->empty()) {
        details.set("packageName", *name);
    }
    details.set("warnings", remarkTexts(outcome.warnings));
    details.set("notes", remarkTexts(outcome.infoMessages));
    details.set("output", worker.jsonOutput());
    return details;
}

Failure failureOf(const VeltoDrovanUploadWorker& worker, const JobOutcome& outcome) {
    Failure failure = failureOfErrors(
        printable(worker.errorOccurredUploadingToStoreErrorMessage().value_or(std::string())),
        outcome.errors);
    if (failure.why.empty()) {
        failure.why.push_back(endOfTool(worker.termination()));
    }
    if (const VeltoDrovanTransfer transfer = worker.transfer();
        transfer.size != 0 && !worker.isVerifyOnly()) {
        failure.why.push_back(storeSide(transfer));
    }
    return failure;
}

/// The tool ended well, but never said that the work is done.
Failure unconfirmed(const VeltoDrovanUploadWorker& worker) {
    const bool verifyOnly = worker.isVerifyOnly();
    Failure failure;
    for (const auto& parse : {&VeltoDrovanMessages::parseErrorsFromString,
                              &VeltoDrovanMessages::parseAllErrorsFromString}) {
        for (const Data& text :
             {worker.drovan()->standardErrorText(), worker.drovan()->standardOutText()}) {
            if (worker.reportedErrors() && failure.why.empty()) {
                failure = failureOfErrors({}, parse(text.view()));
            }
        }
    }
    failure.exitCode = ExitCode::tryAgain;
    failure.outcome = "unconfirmed";
    failure.what =
        verifyOnly
            ? localized("The delivery tool ended without confirming that the package is sound.")
            : localized("The delivery tool ended without confirming the delivery.");
    failure.why.push_back(endOfTool(worker.termination()));
    if (verifyOnly) {
        failure.next = localized("Check the tool with velto tool version, then verify again.");
        return failure;
    }
    const VeltoDrovanTransfer transfer = worker.transfer();
    failure.why.back() += " " + storeSide(transfer);
    failure.next =
        transfer.size == 0
            ? localized("Check the tool with velto tool version, then upload again.")
            : localized(
                  "Look whether the store has the package, then upload it again: files that "
                  "it has are not sent twice.");
    return failure;
}

}  // namespace

std::vector<OptionGroup> deliveryOptions(bool isUpload) {
    OptionGroup how{isUpload ? "How to upload" : "How to verify", {}};
    if (isUpload) {
        how.options = {&transportOption, &throttleOption};
    }
    how.options.insert(how.options.end(), {&noChecksumOption, &graceOption, &toolOption});
    return {{"Where to", {&storeOption, &providerOption, &vtcProviderOption}},
            {"Signing in (VELTO_PASSWORD, or VELTO_SESSION_ID with VELTO_SHARED_SECRET, or:)",
             {&userOption, &passwordStdinOption, &tokenFileOption, &apiKeyOption, &issuerOption,
              &keyFolderOption}},
            std::move(how)};
}

bool DeliveryPlan::make(Frontend& frontend,
                        const Invocation& invocation,
                        const std::string& package,
                        Failure& failure) {
    packagePath = absolutePath(package);
    storeName = invocation.value(storeOption).value_or(std::string(storeNames.front()));
    checksChecksums = !invocation.has(noChecksumOption);
    if (!FileManager::isFolder(packagePath)) {
        Error error;
        failure = {.what = localized("There is no package to work on."),
                   .next = localized("Give the path of a package: a folder NAME.velmp.")};
        failure.why.push_back(printable(FileManager::attributes(packagePath, &error)
                                            ? localizedFormat("%@ is not a folder.", packagePath)
                                            : error.localizedDescription()));
        return false;
    }
    const bool isSignedIn = credentials.read(invocation, frontend.secrets(), failure);
    for (const std::string& warning : credentials.warnings) {
        frontend.warn(warning);
    }
    if (!isSignedIn) {
        return false;
    }
    std::shared_ptr<VeltoAuthenticationContextImpl> context;
    if (!credentials.makeContext(context, failure)) {
        return false;
    }
    source = std::make_shared<VeltoPackageSource>();
    source->setStoreType(storeTypeOf(storeName));
    source->setPackagePath(packagePath);
    source->setUsername(credentials.user);
    source->setPassword(credentials.password.text());
    source->setAuthentication(context);
    source->setProviderShortName(VeltoProviderShortname.stringValue());
    source->setVTCProviderShortName(VeltoVTCProviderShortname.stringValue());
    source->setTransport(UserDefaults::shared().stringValue("VeltoTransport"));
    return true;
}

ExitCode runDelivery(Frontend& frontend, const Invocation& invocation, bool verifyOnly) {
    Failure failure;
    DeliveryPlan plan;
    if (!plan.make(frontend, invocation, invocation.operands.front(), failure)) {
        return frontend.fail(failure);
    }
    if (plan.credentials.form == Credentials::Form::none) {
        failure = usageFailure(
            localized("There is nothing to sign in with."),
            localized("Set VELTO_PASSWORD; velto upload --help lists the other ways."));
        return frontend.fail(failure);
    }
    if (!findTool(frontend, invocation, failure)) {
        return frontend.fail(failure);
    }
    const auto worker = velto::make<VeltoDrovanUploadWorker>(plan.source, verifyOnly);
    worker->setChecksumEnabled(plan.checksChecksums);
    Job job(frontend, worker);
    job.hidePhase(worker->uploadedPackageToStoreMessage());
    const JobOutcome outcome = job.run();

    showRemarks(frontend, outcome);
    if (outcome.isStopped) {
        const std::string left = whatWasLeft(*worker, plan);
        if (frontend.printsJSON()) {
            return frontend.fail({.exitCode = ExitCode::stopped, .what = left},
                                 details(*worker, plan, outcome));
        }
        frontend.console().line(Console::Stream::errors, left);
        return ExitCode::stopped;
    }
    if (!outcome.errors.empty()) {
        return frontend.fail(failureOf(*worker, outcome), details(*worker, plan, outcome));
    }
    if (!worker->deliveryConfirmed()) {
        return frontend.fail(unconfirmed(*worker), details(*worker, plan, outcome));
    }
    showSuccess(frontend, *worker, plan, outcome);
    if (frontend.printsJSON()) {
        frontend.answer(frontend.result(ExitCode::done).addAll(details(*worker, plan, outcome)));
    }
    return ExitCode::done;
}

}  // namespace velto::cli
