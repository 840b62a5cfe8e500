#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string>

namespace velto {

/// Universally unique identifiers. Any thread.
class VELTO_EXPORT UUID {
public:
    /// A random one (version 4), upper case: "F81D4FAE-7DEC-41D0-A765-00A0C91E6BF6".
    static std::string random();
};

}  // namespace velto
