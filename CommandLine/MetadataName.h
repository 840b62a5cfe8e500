#pragma once

#include <string>
#include <string_view>

namespace velto::cli {

/// Why a name cannot stand in a package's metadata, which holds names as they are; empty when it
/// can.
std::string faultOfMetadataName(std::string_view name);

}  // namespace velto::cli
