#include <Tests/Support/FileBlocks.h>

#include <Tests/Support/TemporaryDirectory.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <optional>
#include <vector>

namespace velto::testing {

namespace {

struct Extent {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::uint64_t place = 0;  ///< On the disk.

    bool operator==(const Extent&) const = default;
};

/// Where a file's bytes lie; none where one of them lies in a block that no other file has.
std::optional<std::vector<Extent>> sharedExtents(const std::filesystem::path& path) {
    constexpr std::uint32_t room = 256;
    std::vector<std::uint64_t> memory((sizeof(fiemap) + room * sizeof(fiemap_extent)) / 8 + 1);
    auto* const map = reinterpret_cast<fiemap*>(memory.data());
    const std::uint64_t size = std::filesystem::file_size(path);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<Extent> extents;
    std::uint64_t next = 0;
    bool isShared = file >= 0;
    while (isShared && next < size) {
        std::fill(memory.begin(), memory.end(), 0);
        map->fm_start = next;
        map->fm_length = size - next;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = room;
        isShared = ioctl(file, FS_IOC_FIEMAP, map) == 0;
        if (!isShared || map->fm_mapped_extents == 0) {
            break;
        }
        for (std::uint32_t index = 0; index < map->fm_mapped_extents; ++index) {
            const fiemap_extent& extent = map->fm_extents[index];
            next = extent.fe_logical + extent.fe_length;
            if ((extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0) {
                continue;  // Room that holds nothing yet.
            }
            // What a small file holds may lie in the file's own entry.
            const bool isInline = (extent.fe_flags & FIEMAP_EXTENT_DATA_INLINE) != 0;
            isShared = isShared && (isInline || (extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0);
            const Extent found{extent.fe_logical, std::min<std::uint64_t>(next, size),
                               isInline ? 0 : extent.fe_physical};
            if (!extents.empty() && extents.back().end == found.begin &&
                extents.back().place + (found.begin - extents.back().begin) == found.place) {
                extents.back().end = found.end;
            } else {
                extents.push_back(found);
            }
        }
    }
    close(file);
    return isShared ? std::optional(extents) : std::nullopt;
}

}  // namespace

bool clonesFiles(const std::filesystem::path& folder) {
    const std::filesystem::path names[] = {folder / ".clone-from", folder / ".clone-to"};
    std::ofstream(names[0]) << std::string(4096, 'x');
    const int from = open(names[0].c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(names[1].c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const bool isCloned = ioctl(to, FICLONE, from) == 0;
    close(from);
    close(to);
    for (const std::filesystem::path& name : names) {
        std::filesystem::remove(name);
    }
    return isCloned;
}

bool shareBlocks(const std::filesystem::path& one, const std::filesystem::path& other) {
    const auto extents = sharedExtents(one);
    return extents && extents == sharedExtents(other);
}

}  // namespace velto::testing
