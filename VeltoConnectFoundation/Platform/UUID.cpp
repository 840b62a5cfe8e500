#include <VeltoConnectFoundation/Platform/UUID.h>

#include <sys/random.h>

#include <array>
#include <cstdint>
#include <random>
#include <string_view>

namespace velto {

namespace {

void fillWithRandomBytes(std::array<std::uint8_t, 16>& bytes) {
    // Up to 256 bytes come whole once the system's generator is seeded.
    if (getrandom(bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size())) {
        return;
    }
    std::random_device device;
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(device());
    }
}

}  // namespace

std::string UUID::random() {
    std::array<std::uint8_t, 16> bytes{};
    fillWithRandomBytes(bytes);
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80);

    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0f];
    }
    return text;
}

}  // namespace velto
