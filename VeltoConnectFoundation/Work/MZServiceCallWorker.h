#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>
#include <optional>
#include <string>

/// What a series reports of a worker's call to a service.
struct MZServiceCallReport {
    std::string method;
    std::int64_t httpStatusCode = 0;
    velto::Dictionary responseHeaders;
};

/// Implemented by workers that call a service, so that a series can collect the outcomes without
/// knowing them. Any thread.
class VELTO_EXPORT MZServiceCallWorker {
public:
    virtual ~MZServiceCallWorker();
    /// none for a worker whose operation does not report its calls
    virtual std::optional<MZServiceCallReport> serviceCallReport() const = 0;
};
