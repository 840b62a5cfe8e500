#pragma once

#include <string>
#include <string_view>

namespace velto::cli {

/// What a path leads to, from the root on, without "." and ".." and a slash at the end. The last
/// name stays, be it a link; the folders of a path with ".." are those that its links lead to. A
/// path with ".." through what is not there stays as it is.
std::string absolutePath(std::string_view path);

}  // namespace velto::cli
