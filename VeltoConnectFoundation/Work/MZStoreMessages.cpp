#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

namespace {

using velto::localized;
using velto::markLocalized;

/// One sentence in the words of each storefront, and what an unknown type gives.
struct Sentence {
    const char* veltoStore;
    const char* ovalis;
    const char* zarnetBooks;
    const char* zarnetServices;
    const char* logText;
    const char* fallback;  ///< Never translated.
};

std::string sentenceForStoreType(const Sentence& sentence, std::int64_t storeType) {
    switch (storeType) {
        case MZStoreTypeNone:
        case MZStoreTypeVeltoStore:
            return localized(sentence.veltoStore);
        case MZStoreTypeOvalis:
            return localized(sentence.ovalis);
        case MZStoreTypeZarnetBooks:
            return localized(sentence.zarnetBooks);
        case MZStoreTypeZarnetServices:
            return localized(sentence.zarnetServices);
        default:
            MZLogDebug("%@", sentence.logText);
            return sentence.fallback;
    }
}

constexpr bool isKnownStoreType(std::int64_t storeType) {
    return storeType >= MZStoreTypeNone && storeType <= MZStoreTypeZarnetServices;
}

constexpr Sentence authenticateWithStore{
    markLocalized("Authenticate with the Velto Store"),
    markLocalized("Authenticate with the Ovalis"),
    markLocalized("Authenticate with Zarnet Books"),
    markLocalized("Authenticate with Zarnet Services"),
    "authenticateWithStoreMessage: unknown store type.",
    "Authenticate with the Store",
};
constexpr Sentence authenticatingWithStore{
    markLocalized("Authenticating with the Velto Store…"),
    markLocalized("Authenticating with the Ovalis…"),
    markLocalized("Authenticating with Zarnet Books…"),
    markLocalized("Authenticating with Zarnet Services…"),
    "authenticatingWithStoreMessage: unknown store type.",
    "Authenticating with the Store…",
};
// Required: the fallback's spelling.
constexpr Sentence authenticatedWithStore{
    markLocalized("Authenticated with the Velto Store"),
    markLocalized("Authenticated with the Ovalis"),
    markLocalized("Authenticated with Zarnet Books"),
    markLocalized("Authenticated with Zarnet Services"),
    "authenticatedWithStoreMessage: unknown store type.",
    "Authenticatd with the Store.",
};
constexpr Sentence cancelledOperationWithStore{
    markLocalized("Cancelled Velto Store operation."),
    markLocalized("Cancelled Ovalis operation."),
    markLocalized("Cancelled Zarnet Books operation."),
    markLocalized("Cancelled Zarnet Services operation."),
    "cancelledOperationWithStoreMessage: unknown store type.",
    "Cancelled Store operation.",
};
constexpr Sentence completedOperationWithStore{
    markLocalized("Completed Velto Store operation."),
    markLocalized("Completed Ovalis operation."),
    markLocalized("Completed Zarnet Books operation."),
    markLocalized("Completed Zarnet Services operation."),
    "completedOperationWithStoreMessage: unknown store type.",
    "Completed Store operation.",
};
constexpr Sentence errorCommunicatingWithStore{
    markLocalized("Error communicating with the Velto Store."),
    markLocalized("Error communicating with the Ovalis."),
    markLocalized("Error communicating with Zarnet Books."),
    markLocalized("Error communicating with Zarnet Services."),
    "errorCommunicatingWithStoreMessage: unknown store type.",
    "Error communicating with the Store.",
};
constexpr Sentence errorTalkingWithStore{
    markLocalized("An error occurred talking to the Velto Store."),
    markLocalized("An error occurred talking to the Ovalis."),
    markLocalized("An error occurred talking to Zarnet Books."),
    markLocalized("An error occurred talking to Zarnet Services."),
    "errorTalkingWithStoreMessage: unknown store type.",
    "An error occurred talking to the Store.",
};
constexpr Sentence operationFailedWithStore{
    markLocalized("Velto Store operation failed."),
    markLocalized("Ovalis operation failed."),
    markLocalized("Zarnet Books operation failed."),
    markLocalized("Zarnet Services operation failed."),
    "operationFailedWithStoreMessage: unknown store type.",
    "Store operation failed.",
};
constexpr Sentence operationSucceededWithAWarningWithStore{
    markLocalized("Velto Store operation succeeded with a warning."),
    markLocalized("Ovalis operation succeeded with a warning."),
    markLocalized("Zarnet Books operation succeeded with a warning."),
    markLocalized("Zarnet Services operation succeeded with a warning."),
    "operationSucceededWithAWarningWithStoreMessage: unknown store type.",
    "Store operation succeeded with a warning.",
};
// Required: only the fallback ends in a full stop.
constexpr Sentence performOperationWithStore{
    markLocalized("Perform Velto Store operation"),
    markLocalized("Perform Ovalis operation"),
    markLocalized("Perform Zarnet Books operation"),
    markLocalized("Perform Zarnet Services operation"),
    "performOperationWithStoreMessage: unknown store type.",
    "Perform Store operation.",
};
constexpr Sentence performingOperationWithStore{
    markLocalized("Performing Velto Store operation…"),
    markLocalized("Performing Ovalis operation…"),
    markLocalized("Performing Zarnet Books operation…"),
    markLocalized("Performing Zarnet Services operation…"),
    "performingOperationWithStoreMessage: unknown store type.",
    "Performing Store operation…",
};
// Required: the last one names no storefront, and the log text is that of another family.
constexpr Sentence uploadingPackageToStore{
    markLocalized("Uploading package to the Velto Store…"),
    markLocalized("Uploading package to the Ovalis…"),
    markLocalized("Uploading package to Zarnet Books…"),
    markLocalized("Uploading package for notarization…"),
    "performingOperationWithStoreMessage: unknown store type.",
    "Uploading package…",
};

}  // namespace

MZStoreMessages::MZStoreMessages(velto::PassKey, std::int64_t storeType) : storeType_(storeType) {
}
MZStoreMessages::~MZStoreMessages() = default;

std::shared_ptr<MZStoreMessages> MZStoreMessages::sharedStoreMessages() {
    static const auto* const shared =
        new std::shared_ptr<MZStoreMessages>(velto::make<MZStoreMessages>(MZStoreTypeNone));
    return *shared;
}

void MZStoreMessages::setStoreType(std::int64_t storeType) {
    const SetterTurn turn(*this);
    const Change change(*this, {"storeType"});
    const velto::Guard guard(lock_);
    storeType_ = storeType;
}

std::string MZStoreMessages::localizedNameForStoreType(std::int64_t storeType) {
    switch (storeType) {
        case MZStoreTypeVeltoStore:
            return localized("Velto Store");
        case MZStoreTypeOvalis:
            return localized("Ovalis");
        case MZStoreTypeZarnetBooks:
            return localized("Zarnet Books");
        case MZStoreTypeZarnetServices:
            return localized("Zarnet Services");
        default:
            // Required: type 0 too, which the sentences take for the Velto Store.
            MZLogDebug("localizedNameForStoreType: unknown store type: %lld.", storeType);
            return "Store";
    }
}

std::string MZStoreMessages::localizedNameForStore(std::string_view storeName) {
    const std::int64_t storeType = storeTypeFromStoreName(storeName);
    if (storeType != MZStoreTypeNone) {
        return localizedNameForStoreType(storeType);
    }
    MZLogDebug("There is no localized string for the store name ‘%@’.", storeName);
    return std::string(storeName);
}

std::int64_t MZStoreMessages::storeTypeFromStoreName(std::string_view storeName) {
    if (storeName == "Ovalis") {
        return MZStoreTypeOvalis;
    }
    if (storeName == "Pagora Store" || storeName == "Zarnet Books") {  // the old name and the new
        return MZStoreTypeZarnetBooks;
    }
    if (storeName == "Velto Store") {
        return MZStoreTypeVeltoStore;
    }
    return storeName == "Zarnet Services" ? MZStoreTypeZarnetServices : MZStoreTypeNone;
}

std::string MZStoreMessages::authenticateWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(authenticateWithStore, storeType);
}

std::string MZStoreMessages::authenticatingWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(authenticatingWithStore, storeType);
}

std::string MZStoreMessages::authenticatedWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(authenticatedWithStore, storeType);
}

std::string MZStoreMessages::cancelledOperationWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(cancelledOperationWithStore, storeType);
}

std::string MZStoreMessages::completedOperationWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(completedOperationWithStore, storeType);
}

std::string MZStoreMessages::errorCommunicatingWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(errorCommunicatingWithStore, storeType);
}

std::string MZStoreMessages::errorTalkingWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(errorTalkingWithStore, storeType);
}

std::string MZStoreMessages::failedToUploadPackageMessage(std::int64_t) {
    return localized("Failed to upload package.");
}

std::string MZStoreMessages::operationFailedWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(operationFailedWithStore, storeType);
}

std::string MZStoreMessages::operationSucceededWithAWarningWithStoreMessage(
    std::int64_t storeType) {
    return sentenceForStoreType(operationSucceededWithAWarningWithStore, storeType);
}

std::string MZStoreMessages::performOperationWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(performOperationWithStore, storeType);
}

std::string MZStoreMessages::performingOperationWithStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(performingOperationWithStore, storeType);
}

std::string MZStoreMessages::preparingToUploadPackageMessage(std::int64_t storeType) {
    switch (storeType) {
        case MZStoreTypeZarnetServices:
            return localized("Preparing to upload package to Zarnet Services…");
        case MZStoreTypeOvalis:
            return localized("Preparing to upload package to the Ovalis…");
        default:
            return localized("Preparing to upload package…");
    }
}

std::string MZStoreMessages::requestingUploadInstructionsMessage(std::int64_t storeType) {
    switch (storeType) {
        case MZStoreTypeZarnetServices:
            return localized("Requesting upload instructions from Zarnet Services…");
        case MZStoreTypeOvalis:
            return localized("Requesting upload instructions from the Ovalis…");
        default:
            return localized("Requesting upload instructions…");
    }
}

std::string MZStoreMessages::sendingAnalysisMessage(std::int64_t storeType) {
    switch (storeType) {
        case MZStoreTypeZarnetServices:
            return localized("Sending analysis to Zarnet Services…");
        case MZStoreTypeOvalis:
            return localized("Sending analysis to the Ovalis…");
        default:
            return localized("Sending analysis…");
    }
}

std::string MZStoreMessages::uploadingPackageToStoreMessage(std::int64_t storeType) {
    return sentenceForStoreType(uploadingPackageToStore, storeType);
}

std::string MZStoreMessages::waitingForResponseMessage(std::int64_t storeType) {
    // Required: an unknown type logs the text of one family and reads as another.
    if (isKnownStoreType(storeType)) {
        return localized("Waiting for response…");
    }
    MZLogDebug("performingOperationWithStoreMessage: unknown store type.");
    return "Completing upload…";
}

std::string MZStoreMessages::completingUploadMessage(std::int64_t storeType) {
    if (isKnownStoreType(storeType)) {
        return localized("Completing upload…");
    }
    MZLogDebug("performingOperationWithStoreMessage: unknown store type.");
    return "Completing upload…";
}

std::string MZStoreMessages::storeName() const {
    return localizedNameForStoreType(storeType());
}

std::string MZStoreMessages::authenticateWithStoreMessage() const {
    return authenticateWithStoreMessage(storeType());
}

std::string MZStoreMessages::authenticatingWithStoreMessage() const {
    return authenticatingWithStoreMessage(storeType());
}

std::string MZStoreMessages::authenticatedWithStoreMessage() const {
    return authenticatedWithStoreMessage(storeType());
}

std::string MZStoreMessages::cancelledOperationWithStoreMessage() const {
    return cancelledOperationWithStoreMessage(storeType());
}

std::string MZStoreMessages::completedOperationWithStoreMessage() const {
    return completedOperationWithStoreMessage(storeType());
}

std::string MZStoreMessages::errorCommunicatingWithStoreMessage() const {
    return errorCommunicatingWithStoreMessage(storeType());
}

std::string MZStoreMessages::errorTalkingWithStoreMessage() const {
    return errorTalkingWithStoreMessage(storeType());
}

std::string MZStoreMessages::failedToUploadPackageMessage() const {
    return failedToUploadPackageMessage(storeType());
}

std::string MZStoreMessages::operationFailedWithStoreMessage() const {
    return operationFailedWithStoreMessage(storeType());
}

std::string MZStoreMessages::operationSucceededWithAWarningWithStoreMessage() const {
    return operationSucceededWithAWarningWithStoreMessage(storeType());
}

std::string MZStoreMessages::performOperationWithStoreMessage() const {
    return performOperationWithStoreMessage(storeType());
}

std::string MZStoreMessages::performingOperationWithStoreMessage() const {
    return performingOperationWithStoreMessage(storeType());
}

std::string MZStoreMessages::preparingToUploadPackageMessage() const {
    return preparingToUploadPackageMessage(storeType());
}

std::string MZStoreMessages::requestingUploadInstructionsMessage() const {
    return requestingUploadInstructionsMessage(storeType());
}

std::string MZStoreMessages::sendingAnalysisMessage() const {
    return sendingAnalysisMessage(storeType());
}

std::string MZStoreMessages::uploadingPackageToStoreMessage() const {
    return uploadingPackageToStoreMessage(storeType());
}

std::string MZStoreMessages::waitingForResponseMessage() const {
    return waitingForResponseMessage(storeType());
}

std::string MZStoreMessages::completingUploadMessage() const {
    return completingUploadMessage(storeType());
}
