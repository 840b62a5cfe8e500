#pragma once

#include <VeltoConnectFoundation/Platform/FileDescriptor.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// A file that is open for reading: this very one, whatever its path leads to meanwhile. Errors are
/// of the POSIX domain and name the path. One thread at a time.
class FileReader {
public:
    /// Links are followed. A pipe, a device or a socket is an error (EINVAL): this never waits.
    [[nodiscard]] static std::optional<FileReader> open(std::string_view path,
                                                        Error* error = nullptr);

    [[nodiscard]] std::optional<FileAttributes> attributes(Error* error = nullptr) const;
    /// Bytes read; 0 at the end, negative on failure.
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length, Error* error = nullptr);

private:
    FileReader(std::string path, FileDescriptor descriptor);

    std::string path_;
    FileDescriptor descriptor_;
};

}  // namespace velto
