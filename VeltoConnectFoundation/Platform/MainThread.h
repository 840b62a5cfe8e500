#pragma once

namespace velto {

/// Whether the calling thread's loop is GLib's default main context: it runs that just now, or is
/// the process's first thread while the main queue has no thread of its own.
bool runsDefaultContext();

}  // namespace velto
