#pragma once

#include <filesystem>
#include <string_view>

/// Where the tests find what is not theirs: absolute paths, all of them.
namespace velto::testing {

std::filesystem::path sourceFolder();
std::filesystem::path buildFolder();

/// The program built from Tests/Children/`name`.cpp.
std::filesystem::path childProgram(std::string_view name);

/// The front end.
std::filesystem::path veltoProgram();

/// The folder that a delivery tool is located in: holds velm/bin/VelmDrovan.
std::filesystem::path sandboxFolder();

}  // namespace velto::testing
