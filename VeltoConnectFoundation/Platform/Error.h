#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

namespace velto {

inline constexpr std::string_view LocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr std::string_view LocalizedFailureReasonKey = "NSLocalizedFailureReason";
inline constexpr std::string_view LocalizedRecoverySuggestionKey = "NSLocalizedRecoverySuggestion";
inline constexpr std::string_view UnderlyingErrorKey = "NSUnderlyingError";

/// The domain of failures that have no component of their own.
inline constexpr std::string_view GeneralErrorDomain = "NSCocoaErrorDomain";
/// Codes are errno values.
inline constexpr std::string_view POSIXErrorDomain = "NSPOSIXErrorDomain";

/// One failure: an immutable, nullable handle that is cheap to copy; false means no error.
class VELTO_EXPORT Error {
public:
    Error() noexcept = default;
    Error(std::string_view domain, std::int64_t code, Dictionary userInfo = {});
    /// `description` and `reason` become the two standard entries.
    static Error make(std::string_view domain,
                      std::int64_t code,
                      std::string_view description,
                      std::string_view reason);
    /// POSIXErrorDomain with the system's text; `what` (for example a path) stands before it.
    static Error posix(int errorNumber, std::string_view what = {});
    static Error fromValue(const Value& value);  ///< none unless the value holds an error

    explicit operator bool() const noexcept { return object_ != nullptr; }
    std::string_view domain() const noexcept;  ///< Empty for no error.
    std::int64_t code() const noexcept;        ///< 0 for no error.
    const Dictionary& userInfo() const noexcept;

    /// The stated description, else "The operation couldn’t be completed. (DOMAIN error CODE.)".
    std::string localizedDescription() const;
    std::optional<std::string> localizedFailureReason() const;
    std::optional<std::string> localizedRecoverySuggestion() const;
    Error underlyingError() const;

    operator Value() const;
    /// "Error Domain=… Code=… “description” UserInfo={…}"
    std::string description() const;
    friend VELTO_EXPORT bool operator==(const Error& left, const Error& right) noexcept;

private:
    class Content;
    explicit Error(std::shared_ptr<const Content> content) noexcept;
    std::shared_ptr<const Content> object_;
};

/// Fills an optional out-parameter and answers false, so that "return fail(error, …)" reads well.
inline bool fail(Error* out, Error error) {
    if (out != nullptr) {
        *out = std::move(error);
    }
    return false;
}

}  // namespace velto
