#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <array>
#include <cstdint>
#include <string_view>

/// What an output line of an upload can hold, in no order.
enum class ToolLineMarker : std::uint8_t {
    percentCompleted,        ///< "% completed"
    addingFile,              ///< "adding file for % complete logging: "
    computingTotalSize,      ///< "Computing total size of files to upload"
    settingTotalSize,        ///< "Setting total size of files for upload to: "
    skippedFile,             ///< " has been skipped because it already exists on the remote server"
    checkingChecksum,        ///< "Checking the MD5 checksum"
    doneCheckingChecksum,    ///< "Done checking the md5 checksum."
    diagnosticTest,          ///< "Performing transport diagnostic test"
    json,                    ///< "JSON:"
    authenticating,          ///< "Performing authentication of package"
    analyzingAssets,         ///< "Starting media analysis of assets"
    uploadDone,              ///< "Performing uploadDone notification to Zarnet for package "
    schedulingRestart,       ///< "Scheduling automatic restart in"
    communicatingWithStore,  ///< "Using operation named:"
    error,                   ///< "ERROR:"
    errorList,               ///< "Error Messages:"
    count,
};

/// The markers of one line, found in one pass over it. All searches are case-sensitive.
class VELTO_EXPORT_INTERNAL ToolLineMarkers {
public:
    explicit ToolLineMarkers(std::string_view line) noexcept;

    bool any() const noexcept { return found_ != 0; }
    bool has(ToolLineMarker marker) const noexcept {
        return ((found_ >> static_cast<unsigned>(marker)) & 1U) != 0;
    }
    /// Where its first occurrence begins and what follows it; only for one that was found.
    std::string_view before(ToolLineMarker marker) const noexcept;
    std::string_view after(ToolLineMarker marker) const noexcept;

    std::string_view line() const noexcept { return line_; }
    static std::string_view text(ToolLineMarker marker) noexcept;

private:
    std::string_view line_;
    std::uint32_t found_ = 0;
    std::array<std::uint32_t, static_cast<std::size_t>(ToolLineMarker::count)> positions_;
};
