#pragma once

#include <cstddef>
#include <string_view>

/// What the system knows of a terminal. Any thread.
namespace velto::cli {

/// A terminal that can move its cursor: not a "dumb" one.
bool isTerminal(int descriptor);
/// Asked anew each time, so that a window that changes its size is followed.
std::size_t terminalWidth(int descriptor);

/// All of it, or false. Waits for room in a pipe that never waits by itself.
bool writeAll(int descriptor, std::string_view text);

}  // namespace velto::cli
