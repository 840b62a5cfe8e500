#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// A program, a library or a folder that says what it is. Immutable and cheap to copy.
class VELTO_EXPORT Bundle {
public:
    /// The host program: what it said of itself, else its process name as name and no more.
    static Bundle application();
    /// What the host says of itself, best before it uses anything else. `info` holds further
    /// Info values ("MZClientName"); the three texts become its standard ones unless empty.
    static void setApplication(std::string_view identifier,
                               std::string_view name,
                               std::string_view version,
                               const Dictionary& info = {});
    /// This library: its path is the folder of its shared object.
    static Bundle library();

    /// A folder that holds Contents/Info.plist with a dictionary; none otherwise.
    static std::optional<Bundle> atPath(std::string_view folder);
    /// This library first, then those shared objects of the process that lie in a bundle's folder
    /// or its Contents.
    static std::vector<Bundle> loadedBundles();

    const std::string& path() const noexcept;  ///< A folder, without a slash at its end.
    std::string_view identifier() const noexcept { return info()["CFBundleIdentifier"].string(); }
    std::string_view name() const noexcept { return info()["CFBundleName"].string(); }
    /// The short version text, else the version; empty when unknown.
    std::string_view version() const noexcept;
    const Value& infoValue(std::string_view key) const noexcept { return info()[key]; }
    const Dictionary& info() const noexcept;

    /// The folder of the program's executable; empty when the system does not tell.
    static std::string executableFolder();

    /// What the identifiers of the store family's own libraries begin with.
    static constexpr std::string_view storeFamilyPrefix = "velto.";

private:
    struct Content;
    explicit Bundle(std::shared_ptr<const Content> content) noexcept;
    std::shared_ptr<const Content> content_;
};

}  // namespace velto
