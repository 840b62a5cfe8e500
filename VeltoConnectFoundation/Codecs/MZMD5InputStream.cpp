#include <VeltoConnectFoundation/Codecs/MZMD5InputStream.h>

#include <utility>

MZMD5InputStream::MZMD5InputStream(std::shared_ptr<velto::InputStream> stream)
    : MZMD5Stream(std::move(stream)) {
}

MZMD5InputStream::~MZMD5InputStream() = default;

std::shared_ptr<MZMD5InputStream> MZMD5InputStream::streamWithInputStream(
    std::shared_ptr<velto::InputStream> stream) {
    return std::make_shared<MZMD5InputStream>(std::move(stream));
}

std::ptrdiff_t MZMD5InputStream::read(std::uint8_t* buffer, std::size_t length) {
    return passed(buffer, wrapped().read(buffer, length));
}

bool MZMD5InputStream::hasBytesAvailable() const {
    return wrapped().hasBytesAvailable();
}

bool MZMD5InputStream::getBuffer(const std::uint8_t*& bytes, std::size_t& length) {
    return wrapped().getBuffer(bytes, length);
}
