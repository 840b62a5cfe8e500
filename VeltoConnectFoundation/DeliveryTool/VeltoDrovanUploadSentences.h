#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <optional>
#include <string>

/// The texts of the upload worker that name the storefront.
enum class VeltoDrovanUploadSentence : std::uint8_t {
    errorOccurred,
    upload,
    uploading,
    uploaded,
    errorSendingData,
    finalizingDelivery,
    verifyingAssets,
    verifyingMetadata,
};

/// What the worker calls its work; the last four sentences are the same for all.
enum class VeltoDrovanUploadVerb : std::uint8_t { verify, upload, deliver, any };

/// Localized; none for a store type that is not 0 to 4. Store type 0 is worded as the Ovalis here.
std::optional<std::string> VeltoDrovanUploadSentenceText(VeltoDrovanUploadSentence sentence,
                                                         VeltoDrovanUploadVerb verb,
                                                         std::int64_t storeType);
