#pragma once

#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <sys/stat.h>

namespace velto {

FileAttributes attributesOfStatus(const struct stat& status);

}  // namespace velto
