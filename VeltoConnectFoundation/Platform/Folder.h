#pragma once

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// A folder that is held open: what is done in it is done in that very folder, whatever its path
/// leads to meanwhile. Names are without a slash, and no link is followed but in open(). Any
/// thread; errors are of the POSIX domain and name the folder's path and the name.
class VELTO_EXPORT Folder {
public:
    /// One that may not be read is opened too: its names cannot be told.
    [[nodiscard]] static std::optional<Folder> open(std::string_view path, Error* error = nullptr);
    [[nodiscard]] std::optional<Folder> openFolder(std::string_view name,
                                                   Error* error = nullptr) const;
    /// A new one: whatever is there already is an error (EEXIST).
    [[nodiscard]] bool createFolder(std::string_view name,
                                    std::uint32_t mode,
                                    Error* error = nullptr) const;

    const std::string& path() const noexcept { return path_; }  ///< When it was opened.
    std::string pathOf(std::string_view name) const;
    int number() const noexcept { return descriptor_.number(); }

    [[nodiscard]] std::optional<FileAttributes> attributes(Error* error = nullptr) const;
    [[nodiscard]] std::optional<FileAttributes> attributesOf(std::string_view name,
                                                             Error* error = nullptr) const;
    /// Without "." and "..", in no order.
    [[nodiscard]] std::optional<std::vector<std::string>> names(Error* error = nullptr) const;
    [[nodiscard]] bool removeFile(std::string_view name, Error* error = nullptr) const;
    [[nodiscard]] bool removeEmptyFolder(std::string_view name, Error* error = nullptr) const;
    /// Returns once its names are on the disk, where that can be asked for.
    [[nodiscard]] bool synchronize(Error* error = nullptr) const;

private:
    Folder(std::string path, FileDescriptor descriptor);

    std::string path_;
    FileDescriptor descriptor_;
};

}  // namespace velto
