#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velto {
class InputStream;
}

inline constexpr std::string_view MZMD5OperationErrorDomain = "MZMD5OperationErrorDomain";

/// Digests a file or a stream on the caller's thread, in blocks of 8192 bytes. Meanwhile any
/// thread may ask bytesAnalyzed and cancel.
///
/// Every MD5 is 32 lower-case digits, or none with an error; that of no bytes is the digest of
/// nothing. What made a stream fail stands in the error as the underlying one.
class VELTO_EXPORT MZMD5Operation final {
public:
    MZMD5Operation(velto::PassKey, std::optional<std::string> file);  ///< Use a factory.

    static std::shared_ptr<MZMD5Operation> operation();
    /// Required: the spelling.
    static std::shared_ptr<MZMD5Operation> operationWthFile(std::string_view file);

    [[nodiscard]] static std::optional<std::string> md5ForFilename(std::string_view path,
                                                                   velto::Error* error = nullptr);
    [[nodiscard]] static std::optional<std::string> md5ForData(const velto::Data& data,
                                                               velto::Error* error = nullptr);
    /// `stream` is open; it is not closed.
    [[nodiscard]] static std::optional<std::string> md5ForStream(velto::InputStream* stream,
                                                                 velto::Error* error = nullptr);
    /// Of the text's bytes in `encoding`; an error when it has none there.
    [[nodiscard]] static std::optional<std::string> md5ForString(std::string_view string,
                                                                 velto::TextEncoding encoding,
                                                                 velto::Error* error = nullptr);

    [[nodiscard]] std::optional<std::string> computeMD5WithError(velto::Error* error = nullptr);
    /// `stream` is open; it is not closed. Forgets an earlier cancel and count. A cancelled one
    /// answers the MD5 of what it had read: ask isCancelled.
    [[nodiscard]] std::optional<std::string> computeMD5WithStream(velto::InputStream* stream,
                                                                  velto::Error* error = nullptr);

    /// Ends the digest at the next block.
    void cancel() noexcept { cancelled_.store(true, std::memory_order_relaxed); }
    bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_relaxed); }
    std::uint64_t bytesAnalyzed() const noexcept {
        return bytesAnalyzed_.load(std::memory_order_relaxed);
    }

    std::optional<std::string> file() const;
    void setFile(std::optional<std::string> file);

private:
    std::optional<std::string> compute(velto::InputStream* stream,
                                       std::size_t readSize,
                                       velto::Error* error);

    mutable velto::Lock lock_;
    std::optional<std::string> file_ VELTO_GUARDED_BY(lock_);
    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> bytesAnalyzed_ = 0;
};
