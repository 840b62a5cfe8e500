#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

namespace velto {
class Exception;
}

/// The library's generic errors. None of these fail.
inline constexpr std::string_view VeltoConnectFoundationErrorDomain =
    "VeltoConnectFoundationErrorDomain";

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"  // C++ callers only; the names are C's
#endif
extern "C" {

/// With an empty description or reason the error carries no user information at all, and the
/// underlying error is dropped.
VELTO_EXPORT velto::Error VeltoConnectFoundationGenerateFullErrorWithUnderlying(
    std::string_view description,
    std::string_view reason,
    std::int64_t code,
    const velto::Error& underlyingError);
VELTO_EXPORT velto::Error VeltoConnectFoundationGenerateFullError(std::string_view description,
                                                                  std::string_view reason,
                                                                  std::int64_t code);
/// The reason is the translation of "Unable to validate your application.".
VELTO_EXPORT velto::Error VeltoConnectFoundationGenerateError(std::string_view description,
                                                              std::int64_t code);
/// Required: the name lacks a "t". The underlying error carries the status as its code only.
VELTO_EXPORT velto::Error VeltoConnectFoundationGenerateErrorWithHttpSatusCode(
    std::string_view description,
    std::int64_t code,
    std::int64_t httpStatusCode);
VELTO_EXPORT velto::Error VeltoConnectFoundationErrorFromException(
    const velto::Exception& exception,
    std::int64_t code);

}  // extern "C"
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
