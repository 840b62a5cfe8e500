#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace velto {

class Folder;
struct FileAttributes;

/// What a copy tells while it runs, on the calling thread.
struct CopyFileObserver {
    /// After each step of at most 8 MiB: bytes so far, holes among them. False stops the copy. A
    /// clone has no steps.
    std::function<bool(std::uint64_t copied)> progress = {};
    /// Where set, gets every byte that is copied, in order, holes as zeros; false stops the copy.
    /// Reading and writing go on meanwhile on another thread.
    std::function<bool(const std::uint8_t* bytes, std::size_t count)> bytes = {};
    /// What the opened source is, before the first byte and after the last: a source that stayed
    /// as it was is the same both times.
    std::function<void(const FileAttributes& source)> source = {};
};

/// Copies one file with its permission bits, times and extended attributes: as a clone that shares
/// its blocks where the file system can, else by the kernel, else through memory. Holes stay holes.
/// A symbolic link is copied as a link (with `bytes` that is an error). Owner, set-id bits and
/// security labels stay behind, as do attributes that the destination's file system cannot hold.
///
/// Whatever is at the destination already stays as it is, and the copy fails (EEXIST). After any
/// other failure a part of the copy may stay there, with mode 0600 unless it was complete. Nothing
/// is synchronized with the disk. Errors are of the POSIX domain and name the path they are about:
/// EINVAL for what is no file, EIO also for a source that became shorter meanwhile, ECANCELED for a
/// copy that the observer stopped, ENOMEM where memory lacked; std::bad_alloc where it lacked
/// before anything was begun. Any thread; blocks.
[[nodiscard]] VELTO_EXPORT bool copyFile(std::string_view source,
                                         std::string_view destination,
                                         const CopyFileObserver& observer = {},
                                         Error* error = nullptr);

/// The same for a new file of `folder`, whatever its path leads to meanwhile. A symbolic link is an
/// error. Nobody but the owner may write the copy, and it is synchronized with the disk.
[[nodiscard]] VELTO_EXPORT bool copyFile(std::string_view source,
                                         const Folder& folder,
                                         std::string_view name,
                                         const CopyFileObserver& observer = {},
                                         Error* error = nullptr);

}  // namespace velto
