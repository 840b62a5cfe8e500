#pragma once

#include <VeltoConnectFoundation/Platform/Format.h>

namespace velto {

/// The translation of an English text in the library's own table, else the text itself. It
/// follows the messages locale of the process, which the library never sets. Any thread.
VELTO_EXPORT std::string localized(const char* english);

/// The translation of a symbolic key, else `fallback`.
VELTO_EXPORT std::string localizedWithKey(const char* key, const char* fallback);

/// The translation of a text with placeholders, to be filled in later by formatArguments; a
/// translation whose placeholders ask for other arguments is not used.
VELTO_EXPORT std::string localizedFormatText(const char* english);

/// Marks a literal that is looked up later for extraction into the template file.
constexpr const char* markLocalized(const char* english) {
    return english;
}

namespace detail {
/// A translation whose placeholders ask for other arguments than the English text is not used.
VELTO_EXPORT std::string localizedFormatArguments(const char* key,
                                                  const char* english,
                                                  FormatArguments arguments,
                                                  bool inUserLocale);
}  // namespace detail

/// As `format`, with the translation of the literal.
template <class... Arguments>
std::string localizedFormat(FormatString<Arguments...> english, const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> packed{FormatArgument(arguments)...};
    return detail::localizedFormatArguments(english.get(), english.get(), packed, false);
}

/// The same with a symbolic key, numbers with the decimal separator of the user's locale.
template <class... Arguments>
std::string localizedFormatInUserLocale(const char* key,
                                        FormatString<Arguments...> fallback,
                                        const Arguments&... arguments) {
    const std::array<FormatArgument, sizeof...(Arguments)> packed{FormatArgument(arguments)...};
    return detail::localizedFormatArguments(key, fallback.get(), packed, true);
}

}  // namespace velto
