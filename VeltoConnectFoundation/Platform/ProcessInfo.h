#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <string>

namespace velto {

/// The process that hosts the library. Any thread.
class VELTO_EXPORT ProcessInfo {
public:
    /// The name of the executable file, whatever the program was called by.
    static const std::string& processName();
    /// Absolute; empty when the system does not tell.
    static const std::string& executablePath();
    /// The environment as it is now, name to text; what is not "NAME=text" is left out.
    static Dictionary environment();
    /// One line, such as "Debian GNU/Linux 12 (bookworm), Linux 6.1.0-18-amd64, x86_64"; empty when
    /// unknown.
    static const std::string& operatingSystemDescription();
};

}  // namespace velto
