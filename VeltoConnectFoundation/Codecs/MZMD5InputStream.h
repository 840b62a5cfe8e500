#pragma once

#include <VeltoConnectFoundation/Codecs/MZMD5Stream.h>

/// Digests what is read through it. What is taken by getBuffer is not digested.
class VELTO_EXPORT MZMD5InputStream final : public MZMD5Stream<velto::InputStream> {
public:
    explicit MZMD5InputStream(std::shared_ptr<velto::InputStream> stream);
    ~MZMD5InputStream() override;
    static std::shared_ptr<MZMD5InputStream> streamWithInputStream(
        std::shared_ptr<velto::InputStream> stream);

    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override;
    bool hasBytesAvailable() const override;
    bool getBuffer(const std::uint8_t*& bytes, std::size_t& length) override;
};
