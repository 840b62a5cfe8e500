#pragma once

#include <filesystem>

namespace velto::testing {

/// For tests of a full file system: runs the current test again with a file system of its own, of
/// `mebibytes`, which only that process sees. Skips the test where the system forbids that.
///
///     if (ranOnSmallDisk(4)) {
///         return;  // Its failures have been reported here.
///     }
///     … smallDisk() …
bool ranOnSmallDisk(unsigned mebibytes);

/// The same with a file system whose files can share blocks; TemporaryDirectory lies there. Only
/// root can mount one.
bool ranOnCloningDisk();

/// Its folder.
std::filesystem::path smallDisk();

}  // namespace velto::testing
