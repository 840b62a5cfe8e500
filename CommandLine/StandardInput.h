#pragma once

#include <VeltoConnectFoundation/Platform/Stream.h>

namespace velto::cli {

/// Standard input from where it stands; closing it leaves it open.
class StandardInput final : public InputStream {
public:
    void open() override { status_ = StreamStatus::open; }
    void close() override { status_ = StreamStatus::closed; }
    StreamStatus streamStatus() const override { return status_; }
    Error streamError() const override { return error_; }
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override;

private:
    StreamStatus status_ = StreamStatus::notOpen;
    Error error_;
};

}  // namespace velto::cli
