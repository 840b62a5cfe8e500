#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

/// A folder of the process's own, removed with all that is in it.
class TemporaryFolder {
public:
    explicit TemporaryFolder(
        const std::filesystem::path& parent = std::filesystem::temp_directory_path())
        : path_(parent / ("velto-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directory(path_);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string at(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};
