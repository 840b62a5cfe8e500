#pragma once

struct _GMainContext;

namespace velto {

/// GLib's default main context. Null where it is not there yet and the system has no descriptor for
/// it: GLib would end the host. Ask again later.
_GMainContext* defaultContext();

/// Whether the calling thread's loop runs the default context: it does that just now, or is the
/// process's first thread while the main queue has no thread of its own.
bool isThreadOfDefaultContext();

/// Whether no other thread delivers the main queue from the default context. Gives the queue its
/// home there, if it has none yet.
bool mayRunDefaultContextNow();

}  // namespace velto
