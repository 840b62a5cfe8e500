#include <CommandLine/PhaseIdentifier.h>

#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <utility>

namespace velto::cli {

namespace {

/// Where no store is named.
constexpr std::pair<std::string_view, const char*> plainPhases[] = {
    {"checking-checksums", markLocalized("Verifying asset checksums…")},
    {"negotiating", markLocalized("Negotiating connection…")},
    {"testing-connection", markLocalized("Testing TCP/UDP connectivity…")},
    {"analyzing-metadata", markLocalized("Analyzing metadata")},
    {"adding-asset", markLocalized("Adding asset to analyze: %@")},
    {"validating-assets", markLocalized("Validating assets")},
    {"validation-completed", markLocalized("Validation completed")},
    {"validation-failed", markLocalized("Validation failed")},
    {"computing-checksum", markLocalized("Computing the checksum of %@…")},
    {"creating-package", markLocalized("Creating Velto Store package…")},
    {"copying-media", markLocalized("Copying media to the package…")},
    {"generating-metadata", markLocalized("Generating metadata…")},
};

/// `form` may have one placeholder.
bool hasForm(std::string_view text, std::string_view form) {
    const std::size_t start = form.find('%');
    if (start == std::string_view::npos) {
        return text == form;
    }
    const std::string_view before = form.substr(0, start);
    const std::string_view after = form.substr(form.find('@', start) + 1);
    return text.size() >= before.size() + after.size() && text.starts_with(before) &&
           text.ends_with(after);
}

}  // namespace

std::string_view phaseIdentifier(const MZAbstractWorker& worker, std::string_view text) {
    for (const auto& [identifier, english] : plainPhases) {
        if (hasForm(text, localizedFormatText(english))) {
            return identifier;
        }
    }
    if (const auto* const upload = dynamic_cast<const VeltoDrovanUploadWorker*>(&worker)) {
        const std::pair<std::string_view, std::optional<std::string>> phases[] = {
            {"authenticating", upload->storeMessages()->authenticatingWithStoreMessage()},
            {"verifying-metadata", upload->verifyingMetadataWithStoreMessage()},
            {"verifying-assets", upload->verifyingAssetsWithStoreMessage()},
            {"transferring", upload->uploadingPackageToStoreMessage()},
            {"restarting", upload->errorSendingDataToStoreMessage()},
            {"finalizing", upload->finalizingDeliveryWithStoreMessage()},
        };
        for (const auto& [identifier, phase] : phases) {
            if (phase == text) {
                return identifier;
            }
        }
    }
    return "other";
}

}  // namespace velto::cli
