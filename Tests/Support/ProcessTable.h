#pragma once

#include <cstddef>

namespace velto::testing {

std::size_t openDescriptors();

/// Children of this process that nobody has reaped, running or ended.
bool hasChildren();

/// Whether a process with that number is there, a zombie not counted.
bool isAlive(int process);

}  // namespace velto::testing
