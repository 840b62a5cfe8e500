#pragma once

#include <filesystem>

namespace velto::testing {

/// Whether a file there can be copied as a clone, which shares its blocks.
bool clonesFiles(const std::filesystem::path& folder);

/// Whether all that two files hold lies in the same blocks of the disk, holes at the same places.
bool shareBlocks(const std::filesystem::path& one, const std::filesystem::path& other);

}  // namespace velto::testing
