#pragma once

#include <CommandLine/Failure.h>
#include <CommandLine/Secrets.h>

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <string>
#include <string_view>
#include <vector>

namespace velto::cli {

class Invocation;

inline constexpr std::string_view hiddenText = "**hidden**";

/// Fills the layers of the settings that are the front end's: another user's file, what the
/// environment sets (`variables`, by key), and what stands on the command line. Sentences about
/// what is odd in the file go to `warnings`.
bool applySettings(const Invocation& invocation,
                   const Dictionary& variables,
                   std::vector<std::string>& warnings,
                   Failure& failure);

/// That a setting could not be written, and why.
Failure failureOfWriting(const Error& error);

/// The value that holds when nobody set another.
Value defaultOf(const Setting& setting);

/// From now to the end no output and no log shows them. On the main thread.
void hideInLogs(const std::vector<const std::string*>& secrets);

/// Private keys are read from there, whatever was set.
void useKeyFolder(const std::string& folder);

/// Null, with a suggestion, when no setting has the key.
const Setting* declaredSetting(std::string_view key, Failure& failure);

/// Whether its values are secrets, which no answer shows.
bool isSecret(const Setting& setting);
/// False, with what to do instead, for a secret: no command line holds its value.
bool mayBeTyped(const Setting& setting, Failure& failure);

/// A value with secrets hidden, of the kind that the setting has; null when it is not set.
Value shownSetting(const Setting& setting, const Value& value);
/// The same as one types it.
std::string settingBytes(const Setting& setting, const Value& value);
/// The same, fit for a terminal.
std::string settingText(const Setting& setting, const Value& value);
std::string_view layerName(SettingLayer layer);

}  // namespace velto::cli
