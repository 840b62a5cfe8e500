#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string_view>

namespace velto {

/// One line to the system's log: the journal when standard error leads there, else standard
/// error, stamped with local time, process and thread. `level` is one of the library's log levels
/// (0 debug, 1 info, 2 warning, 3 error, 4 standard error, 5 critical). Written as escapedLogLine
/// has it: further lines of the text begin with a tab. Any thread.
VELTO_EXPORT void systemLog(int level, std::string_view line);

using PlatformLogHook = void (*)(int level, std::string_view line);

/// Receives the few lines that no caller could be given as an error. Null (the beginning) sends
/// them to systemLog.
VELTO_EXPORT void setPlatformLogHook(PlatformLogHook hook);
VELTO_EXPORT void platformLog(int level, std::string_view line) noexcept;

/// Inside a catch block: logs what was caught as critical. `where` reads well after "in".
VELTO_EXPORT void platformLogUncaught(std::string_view where) noexcept;

}  // namespace velto
