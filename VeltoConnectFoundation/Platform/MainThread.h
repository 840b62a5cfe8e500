#pragma once

#include <chrono>

struct _GMainContext;

namespace velto {

/// GLib's default main context. Null where it is not there yet and the system has no descriptor for
/// it: GLib would end the host. Ask again later.
_GMainContext* defaultContext();

/// Whether the calling thread's loop runs the default context: it does that just now, or is the
/// process's first thread while the main queue has no thread of its own.
bool isThreadOfDefaultContext();

/// Gives the main queue its home, if it has none yet.
void settleMainQueue();

/// A thread that may run a context, while another one does, looks so often whether that has
/// stopped: GLib tells nobody.
constexpr std::chrono::milliseconds contextSlice{50};

}  // namespace velto
