#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace sandbox {

/// An open file; closed with the object.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor();
    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// What tells that a file is still the one that was looked at.
struct FileStamp {
    ino_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;  ///< ns
    bool operator==(const FileStamp&) const = default;
};

/// Opens a regular file for reading, never through a symbolic link; errno tells what failed.
Descriptor openRegular(const std::string& path, FileStamp& stamp);

/// None when unreadable or longer than 16 MiB.
std::optional<std::string> readSmallFile(const std::string& path);
std::optional<std::string> readSmallFile(const Descriptor& file);  ///< The same, with errno.

/// Hands a file's bytes over in blocks until the end or until `take` answers false. False with
/// errno when reading fails.
bool readBlocks(int descriptor,
                std::size_t blockSize,
                const std::function<bool(std::string_view)>& take);

/// The digest of a file's bytes; none when it cannot be read.
std::optional<std::string> md5OfFile(const std::string& path);

/// A name that stands for an entry of one folder: not empty, no "/", neither "." nor "..", and no
/// control character.
bool isPlainName(std::string_view name);

/// The folder that an XDG variable names, else `fallback` in the home folder. The environment may
/// lack HOME as well: the user database answers then.
std::string homeFolder(const char* variable, const char* fallback);

/// The system's word for errno.
std::string systemReason();

/// Why a path could not be read: what is there when it is no regular file, else errno's word.
std::string unreadableReason(const std::string& path);

}  // namespace sandbox
