#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <functional>

namespace velto {

/// Starts a thread of the library's own, which takes none of the host's signals and lives until
/// `body` returns. `name` has at most 15 characters; `body` must not throw. Throws
/// std::system_error when the system gives no more threads.
VELTO_EXPORT_INTERNAL void startThread(const char* name, std::function<void()> body);

/// The calling thread's; never 0, and never given to another, not even when this one has ended (as
/// the system's ids and the addresses of a thread's own objects are).
std::uint64_t currentThreadNumber() noexcept;

}  // namespace velto
