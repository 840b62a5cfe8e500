#include <VeltoConnectFoundation/Platform/Secret.h>

#include <cstring>

namespace velto {

void wipe(std::string& secret) noexcept {
    secret.resize(secret.capacity());  // Within the room that is there: nothing moves.
    explicit_bzero(secret.data(), secret.size());
    secret.clear();
}

}  // namespace velto
