#pragma once

#include <VeltoConnectFoundation/Codecs/MZMD5Stream.h>

/// Digests what the stream it wraps takes of what is written to it.
class VELTO_EXPORT MZMD5OutputStream final : public MZMD5Stream<velto::OutputStream> {
public:
    explicit MZMD5OutputStream(std::shared_ptr<velto::OutputStream> stream);
    ~MZMD5OutputStream() override;
    static std::shared_ptr<MZMD5OutputStream> streamWithOutputStream(
        std::shared_ptr<velto::OutputStream> stream);

    std::ptrdiff_t write(const std::uint8_t* bytes, std::size_t length) override;
    bool hasSpaceAvailable() const override;
};
