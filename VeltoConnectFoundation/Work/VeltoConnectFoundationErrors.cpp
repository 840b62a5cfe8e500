#include <VeltoConnectFoundation/Work/VeltoConnectFoundationErrors.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

namespace {

std::string unableToValidate() {
    return velto::localized("Unable to validate your application.");
}

}  // namespace

velto::Error VeltoConnectFoundationGenerateFullErrorWithUnderlying(
    std::string_view description,
    std::string_view reason,
    std::int64_t code,
    const velto::Error& underlyingError) {
    velto::Dictionary userInfo;
    // Required: never a half-filled dictionary, so a missing text drops the underlying error too.
    if (!description.empty() && !reason.empty()) {
        userInfo.set(velto::LocalizedDescriptionKey, description);
        userInfo.set(velto::LocalizedFailureReasonKey, reason);
        if (underlyingError) {
            userInfo.set(velto::UnderlyingErrorKey, underlyingError);
        }
    }
    return velto::Error(VeltoConnectFoundationErrorDomain, code, std::move(userInfo));
}

velto::Error VeltoConnectFoundationGenerateFullError(std::string_view description,
                                                     std::string_view reason,
                                                     std::int64_t code) {
    return VeltoConnectFoundationGenerateFullErrorWithUnderlying(description, reason, code, {});
}

velto::Error VeltoConnectFoundationGenerateError(std::string_view description, std::int64_t code) {
    return VeltoConnectFoundationGenerateFullError(description, unableToValidate(), code);
}

velto::Error VeltoConnectFoundationGenerateErrorWithHttpSatusCode(std::string_view description,
                                                                  std::int64_t code,
                                                                  std::int64_t httpStatusCode) {
    return VeltoConnectFoundationGenerateFullErrorWithUnderlying(
        description, unableToValidate(), code,
        VeltoConnectFoundationGenerateFullError("HttpStatusCode", {}, httpStatusCode));
}

velto::Error VeltoConnectFoundationErrorFromException(const velto::Exception& exception,
                                                      std::int64_t code) {
    return VeltoConnectFoundationGenerateError(
        velto::localizedFormat("An unexpected error occurred: %@", exception.reason()), code);
}
