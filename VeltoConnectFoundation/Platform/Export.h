#pragma once

/// Marks what the library exports; everything else is hidden.
#if defined(__GNUC__)
#define VELTO_EXPORT __attribute__((visibility("default")))
#else
#define VELTO_EXPORT
#endif

/// Exported for the tests only: no part of the interface, and not in the kept symbol list.
#define VELTO_EXPORT_INTERNAL VELTO_EXPORT
