#pragma once

#include <string_view>

class MZAbstractWorker;

namespace velto::cli {

/// The name of a phase that is the same in every language, by the status text that the worker shows
/// for it: "uploading", "computing-checksum". "other" for one that has none.
std::string_view phaseIdentifier(const MZAbstractWorker& worker, std::string_view text);

}  // namespace velto::cli
