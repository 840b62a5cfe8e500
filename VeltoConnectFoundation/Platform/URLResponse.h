#pragma once

#include <VeltoConnectFoundation/Platform/HTTPHeaders.h>

#include <string>

namespace velto {

/// The head of a server's answer.
struct VELTO_EXPORT URLResponse {
    std::string url{};            ///< Where it came from in the end.
    std::int64_t statusCode = 0;  ///< 0 when it is none of HTTP.
    HTTPHeaders headers{};
};

}  // namespace velto
