#pragma once

#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/HTTPHeaders.h>

#include <string>

namespace velto {

/// What is sent to a server.
struct VELTO_EXPORT URLRequest {
    std::string url{};  ///< Absolute.
    std::string method = "GET";
    HTTPHeaders headers{};
    Data body{};
    Seconds timeout{60};  ///< The longest time without any traffic.
};

}  // namespace velto
