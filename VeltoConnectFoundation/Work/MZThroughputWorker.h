#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>

/// Implemented by workers that move a known number of bytes; enables rates and estimates.
/// Any thread.
class VELTO_EXPORT MZThroughputWorker {
public:
    virtual ~MZThroughputWorker();
    virtual std::uint64_t size() const = 0;       ///< Bytes in all.
    virtual std::uint64_t completed() const = 0;  ///< Bytes done.
};
