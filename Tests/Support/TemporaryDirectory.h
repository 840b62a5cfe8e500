#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace velto::testing {

/// A folder of its own, removed with all it holds at the end of the scope.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// The path of something in it.
    std::string at(std::string_view name) const { return path_ / name; }
    /// Writes a file, with the folders above it, and answers its path.
    std::string write(std::string_view name, std::string_view bytes) const;

private:
    std::filesystem::path path_;
};

/// A file's bytes; a failure of the test when there is no such file.
std::string contentsOfFile(const std::filesystem::path& path);

}  // namespace velto::testing
