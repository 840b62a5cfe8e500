#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstdint>
#include <optional>
#include <string>

/// Replaces the English error texts of the service that are known here by translated ones, and
/// lets every other text through. Any thread; the tables are built at their first use.
class VELTO_EXPORT MZServerErrorLocalizer {
public:
    MZServerErrorLocalizer() = delete;

    /// By code, as far as the text fits the code's expression; else by text.
    static std::optional<std::string> localizedMessageForCode(
        std::int64_t code,
        const std::optional<std::string>& message);

    /// By the exact text; an unknown one comes back unchanged, none for none.
    static std::optional<std::string> localizedMessageForMessage(
        const std::optional<std::string>& message);

    /// The table of codes begins with these entries, so that a generated table has its place.
    static velto::Dictionary generatedErrorDictionary();
    /// Adds the entries kept by hand: under each code "m", the translated message or format, and
    /// where the text must fit, "r", a velto::Regex whose groups fill the format.
    static void addOtherErrorsToDictionary(velto::Dictionary& errors);
};
