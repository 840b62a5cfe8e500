#include <VeltoConnectFoundation/Platform/Version.h>

namespace velto {

std::string_view libraryVersion() noexcept {
    return VELTO_VERSION;
}

}  // namespace velto
