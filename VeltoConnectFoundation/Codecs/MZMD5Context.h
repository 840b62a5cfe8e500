#pragma once

#include <VeltoConnectFoundation/Platform/Digest.h>
#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::string_view MZMD5ContextErrorDomain = "MZMD5ContextErrorDomain";

enum class MZMD5ContextState : std::uint32_t { uninitialized, open, closed, error };

/// One MD5, made piece by piece: uninitialized -> open -> closed. The first error is final: every
/// later call answers it. One thread at a time.
class VELTO_EXPORT MZMD5Context {
public:
    static MZMD5Context context();

    velto::Error open();                                                  ///< Once.
    velto::Error updateWithBytes(const void* bytes, std::size_t length);  ///< Opens when needed.
    velto::Error close();
    /// 32 lower-case digits; opens and closes when needed, and may be asked again.
    [[nodiscard]] std::optional<std::string> md5WithError(velto::Error* error = nullptr);

    MZMD5ContextState state() const noexcept { return state_; }
    const velto::Error& error() const noexcept { return error_; }
    void setError(velto::Error error);  ///< Ends the context, with none too.

private:
    velto::Error fail(std::int64_t code, const char* text);

    MZMD5ContextState state_ = MZMD5ContextState::uninitialized;
    std::optional<velto::Digest> context_;
    std::string md5_;  ///< Once closed.
    velto::Error error_;
};
