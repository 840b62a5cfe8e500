#include <VeltoConnectFoundation/Codecs/MZMD5OutputStream.h>

#include <utility>

MZMD5OutputStream::MZMD5OutputStream(std::shared_ptr<velto::OutputStream> stream)
    : MZMD5Stream(std::move(stream)) {
}

MZMD5OutputStream::~MZMD5OutputStream() = default;

std::shared_ptr<MZMD5OutputStream> MZMD5OutputStream::streamWithOutputStream(
    std::shared_ptr<velto::OutputStream> stream) {
    return std::make_shared<MZMD5OutputStream>(std::move(stream));
}

std::ptrdiff_t MZMD5OutputStream::write(const std::uint8_t* bytes, std::size_t length) {
    return passed(bytes, wrapped().write(bytes, length));
}

bool MZMD5OutputStream::hasSpaceAvailable() const {
    return wrapped().hasSpaceAvailable();
}
