#pragma once

#include <VeltoConnectFoundation/Platform/DraftFilePrivate.h>
#include <VeltoConnectFoundation/Platform/Folder.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// The folder of a package in the making. It is held open, as the one that it lies in is, so that
/// all is made in the folder that was made, whatever others do with its path meanwhile.
///
/// While a marked one is made, it holds the file that becomes its metadata.xml: locked, and under a
/// name by which a later build knows what one that was killed left. One thread at a time.
class VeltoPackageFolder {
public:
    enum class Kind : std::uint8_t { unmarked, marked };

    /// A new one, with the folders above it: whatever is at `path` already is an error (EEXIST).
    static std::unique_ptr<VeltoPackageFolder> create(const std::string& path,
                                                      Kind kind,
                                                      velto::Error& error);
    /// Empties what a killed build of the video `name` left; null when there is anything else, or
    /// when the build still runs.
    static std::unique_ptr<VeltoPackageFolder> takeOver(const std::string& path,
                                                        std::string_view name);
    /// A folder that may be there already, unmarked.
    static std::unique_ptr<VeltoPackageFolder> at(const std::string& path, velto::Error& error);
    ~VeltoPackageFolder();
    VeltoPackageFolder(const VeltoPackageFolder&) = delete;
    VeltoPackageFolder& operator=(const VeltoPackageFolder&) = delete;

    const velto::Folder& folder() const { return folder_; }
    const std::string& path() const { return path_; }

    /// Writes metadata.xml. Returns once all is on the disk, and the path leads to this folder.
    velto::Error finish(std::string_view metadata);
    /// Removes the video `name` unless that is empty, what is of the metadata, and the folder; an
    /// error when it holds more.
    velto::Error remove(std::string_view name);

private:
    VeltoPackageFolder(std::string path, velto::Folder parent, velto::Folder folder);

    static std::unique_ptr<VeltoPackageFolder> opened(const std::string& path, velto::Error& error);
    velto::Error beginDraft(const std::string& name);
    velto::Error faultOfPlace() const;
    void dropUnmarkedDraft();

    const std::string path_;
    const velto::Folder parent_;
    const velto::Folder folder_;
    std::optional<velto::DraftFile> draft_;  ///< metadata.xml, once it is whole.
    bool keepsDraft_ = false;                ///< When this ends: as the mark, or since it is whole.
};
