#pragma once

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <optional>
#include <string>
#include <vector>

/// What the values of settings may be, wherever they are given.
namespace velto::cli {

/// Typed words as the kind that the setting has; none when they cannot be.
std::optional<Value> typedValue(const Setting& setting, const std::vector<std::string>& words);

/// The same for the one text of an option or a variable, in which a list or a table is TOML's.
std::optional<Value> typedValue(const Setting& setting, const std::string& text);

/// Whether a value is of the setting's kind and in its range.
bool isAllowed(const Setting& setting, const Value& value);

/// What its values are: "It is a number from 1 to 65535."
std::string wordsForValues(const Setting& setting);

}  // namespace velto::cli
