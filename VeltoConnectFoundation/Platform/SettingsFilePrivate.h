#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/FileDescriptor.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// What a settings file holds.
struct SettingsFile {
    struct Key {
        std::string name;
        std::size_t line;  ///< From 1.
    };

    Dictionary values;
    std::vector<Key> keys;  ///< In the order of the lines.
};

inline constexpr std::size_t largestSettingsFile = std::size_t{1} << 20;  ///< Bytes.

/// The settings that a file's text holds, else none. `error` names the place but nothing of the
/// text, for what stands in the file may be a password.
std::optional<SettingsFile> settingsFromText(std::string_view text,
                                             std::string_view path,
                                             Error* error);

/// A file's text that holds `wanted`, which differs from what `text` held in `key` alone. All other
/// lines, comments too, stay as they were. None when a value has no form in the file, and when
/// the text cannot be edited so without losing its comments.
std::optional<std::string> settingsTextWithChange(const std::string& text,
                                                  const Dictionary& wanted,
                                                  std::string_view key,
                                                  Error* error);

/// What a text in the file's inline form ("[…]", "{…}") holds; none for other text.
std::optional<Value> valueFromInlineTOML(std::string_view text);

/// That a setting was not changed, and why.
Error unfitSettingError(std::string_view key, std::string_view reason);

/// The text of a settings file; empty when there is none. An error also when others than root and
/// the process's user may have put it there (PathTrust).
std::optional<std::string> readSettingsFile(const std::string& path, Error* error);

/// Keeps other writers of a settings file away while it lives, of this process and of others; a
/// file system that has no locks does not.
class SettingsFileLock {
public:
    /// Makes the folder. An error when another writer does not end within five seconds, and for a
    /// link that leads nowhere.
    [[nodiscard]] bool take(const std::string& path, Error* error);

private:
    FileDescriptor folder_;
};

}  // namespace velto
