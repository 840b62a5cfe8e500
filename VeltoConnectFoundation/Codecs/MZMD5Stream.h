#pragma once

#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// What the two pass-through streams share: the stream they wrap, whose status, delegate and
/// properties they show as their own, and the digest of what passes. One thread at a time.
template <class Wrapped>
class VELTO_EXPORT MZMD5Stream : public Wrapped {
public:
    ~MZMD5Stream() override;

    void open() override;
    /// Required: the digest can be closed only once, so closing after md5WithError, or again, is
    /// an error of the stream (-19004).
    void close() override;
    /// The MD5 of what has passed so far, after which nothing more may pass.
    [[nodiscard]] std::optional<std::string> md5WithError(velto::Error* error = nullptr);

    velto::StreamStatus streamStatus() const override;
    velto::Error streamError() const override;  ///< The digest's, else the wrapped stream's.
    velto::Value propertyForKey(std::string_view key) const override;
    bool setProperty(const velto::Value& value, std::string_view key) override;
    std::weak_ptr<velto::StreamDelegate> delegate() const override;
    void setDelegate(std::weak_ptr<velto::StreamDelegate> delegate) override;

protected:
    explicit MZMD5Stream(std::shared_ptr<Wrapped> stream);

    Wrapped& wrapped() const noexcept { return *stream_; }
    /// Digests what a transfer of the wrapped stream moved; answers `count`, or -1.
    std::ptrdiff_t passed(const std::uint8_t* bytes, std::ptrdiff_t count);

private:
    bool failsWith(const velto::Error& error);

    std::shared_ptr<Wrapped> stream_;
    MZMD5Context context_;
    velto::Error error_;
};

extern template class VELTO_EXPORT MZMD5Stream<velto::InputStream>;
extern template class VELTO_EXPORT MZMD5Stream<velto::OutputStream>;
