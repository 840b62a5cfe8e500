#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto {

struct FileAttributes {
    enum class Kind : std::uint8_t { regular, folder, symbolicLink, other };

    Kind kind = Kind::other;
    std::uint64_t size = 0;   ///< Bytes.
    std::uint32_t mode = 0;   ///< Permission bits, such as 0644.
    std::uint32_t owner = 0;  ///< User id.
    Date modified;
    /// Seconds since 1970 and nanoseconds: when content or attributes last changed, by the system's
    /// own clock. Unlike `modified`, nobody can set it back.
    std::pair<std::int64_t, std::int64_t> changed;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    /// Whether it is the same file, and has not changed.
    bool isUnchangedSince(const FileAttributes& before) const {
        return isSameFile(before) && size == before.size && changed == before.changed;
    }
    bool isSameFile(const FileAttributes& other) const {
        return device == other.device && inode == other.inode;
    }
};

/// Files and folders. Any thread; errors are of the POSIX domain and name the path.
class VELTO_EXPORT FileManager {
public:
    /// Of what the path leads to: links are followed.
    [[nodiscard]] static std::optional<FileAttributes> attributes(std::string_view path,
                                                                  Error* error = nullptr);
    /// Of the path itself: a link is a link.
    [[nodiscard]] static std::optional<FileAttributes> linkAttributes(std::string_view path,
                                                                      Error* error = nullptr);
    static bool exists(std::string_view path);  ///< A dangling link does not.
    static bool isFolder(std::string_view path);
    /// A regular file that this process may execute.
    static bool isExecutable(std::string_view path);

    /// A whole regular file; a longer one than `limit` bytes is an error (EFBIG).
    [[nodiscard]] static std::optional<Data> read(std::string_view path,
                                                  std::size_t limit,
                                                  Error* error = nullptr);
    /// The same into the caller's buffer, and nowhere else: for what must be wiped.
    [[nodiscard]] static bool read(std::string_view path,
                                   std::size_t limit,
                                   std::vector<std::uint8_t>& bytes,
                                   Error* error = nullptr);
    /// The same from its start in blocks of `blockSize` bytes, the last one of fewer; until `use`
    /// answers false, which is then the result.
    [[nodiscard]] static bool readBlocks(std::string_view path,
                                         std::size_t blockSize,
                                         const std::function<bool(std::string_view block)>& use,
                                         Error* error = nullptr);
    /// The file has either its old content or all of `bytes`, also after a power failure. Written
    /// beside the target under another name with `mode` (less the process's mask) from the start,
    /// synchronized, then renamed; a link stays a link.
    [[nodiscard]] static bool writeAtomically(std::string_view path,
                                              std::string_view bytes,
                                              std::uint32_t mode = 0666,
                                              Error* error = nullptr);

    /// With the folders above it; a folder that exists is fine.
    [[nodiscard]] static bool createFolder(std::string_view path,
                                           std::uint32_t mode = 0777,
                                           Error* error = nullptr);
    /// Names without "." and "..", in no order.
    [[nodiscard]] static std::optional<std::vector<std::string>> namesInFolder(
        std::string_view path,
        Error* error = nullptr);
    /// A file, a link, or a folder with all it holds; links are never followed.
    [[nodiscard]] static bool remove(std::string_view path, Error* error = nullptr);

    /// "~" and "~/…" by HOME (else the account's folder), "~name/…" by that account; unchanged
    /// when there is no such account.
    static std::string expandingTilde(std::string_view path);
    static std::string homeFolder();  ///< Empty when there is none.
    /// $XDG_CONFIG_HOME/velto, else ~/.config/velto; it need not exist.
    static std::string configurationFolder();
    /// $XDG_CACHE_HOME/velto, else ~/.cache/velto; it need not exist.
    static std::string cacheFolder();
    static std::string temporaryFolder();  ///< $TMPDIR, else "/tmp".
};

}  // namespace velto
