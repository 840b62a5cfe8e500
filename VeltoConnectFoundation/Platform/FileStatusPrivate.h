#pragma once

#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <sys/stat.h>

#include <string_view>

namespace velto {

FileAttributes attributesOfStatus(const struct stat& status);

/// Of a path that leads to a pipe, a device or a socket, where a file is needed (EINVAL).
Error noFileError(std::string_view path);

}  // namespace velto
