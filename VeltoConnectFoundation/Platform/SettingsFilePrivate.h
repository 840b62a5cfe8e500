#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <optional>
#include <string>
#include <string_view>

namespace velto {

/// The settings that a file's text holds, else none. `error` names the place but nothing of the
/// text, for what stands in the file may be a password.
std::optional<Dictionary> settingsFromText(std::string_view text,
                                           std::string_view path,
                                           Error* error);

/// A file's text that holds `wanted`, which differs from what `text` held in `key` alone. All other
/// lines, comments too, stay as they were; a text that cannot be edited so is written anew. None
/// when a value has no form in the file.
std::optional<std::string> settingsTextWithChange(std::string text,
                                                  const Dictionary& wanted,
                                                  std::string_view key);

/// What a text in the file's inline form ("[…]", "{…}") holds; none for other text.
std::optional<Value> valueFromInlineTOML(std::string_view text);

/// That a setting was not changed, and why.
Error unfitSettingError(std::string_view key, std::string_view reason);

}  // namespace velto
