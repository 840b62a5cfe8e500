#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <functional>

namespace velto {

/// Starts a thread of the library's own, which takes none of the host's signals and lives until
/// `body` returns. `name` has at most 15 characters; `body` must not throw. Throws
/// std::system_error when the system gives no more threads.
VELTO_EXPORT_INTERNAL void startThread(const char* name, std::function<void()> body);

}  // namespace velto
