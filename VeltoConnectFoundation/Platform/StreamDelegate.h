#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>

namespace velto {

enum class StreamStatus : std::uint8_t {
    notOpen,
    opening,
    open,
    reading,
    writing,
    atEnd,
    closed,
    error
};

enum class StreamEvent : std::uint32_t {
    none = 0,
    openCompleted = 1,
    hasBytesAvailable = 2,
    hasSpaceAvailable = 4,
    errorOccurred = 8,
    endEncountered = 16
};

class Stream;

/// Held weakly by its stream; called on the thread that uses the stream.
class VELTO_EXPORT StreamDelegate {
public:
    virtual ~StreamDelegate();
    virtual void streamHandleEvent(Stream& stream, StreamEvent event);
};

}  // namespace velto
