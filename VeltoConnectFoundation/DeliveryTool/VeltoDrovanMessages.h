#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Errors made from the delivery tool's messages.
inline constexpr std::string_view VeltoDrovanErrorDomain = "VeltoDrovanErrorDomain";

/// The code is the number between the message's first parentheses, -18000 without one (or for 0);
/// the message is description, failure reason and recovery suggestion at once.
VELTO_EXPORT velto::Error ConvertMessageToError(std::string_view message);

/// The readers of what the delivery tool prints. Markers are found in any case; what is found is
/// without white space and line breaks at both ends. Bad input gives none, never a failure.
class VELTO_EXPORT VeltoDrovanMessages {
public:
    static std::string_view trimError(std::string_view text);

    /// From "ERROR:" to the end of the line, else the whole line; none for an empty line.
    static std::optional<std::string> extractErrorFromLine(std::string_view line);
    /// What follows "ERROR:", "WARN:" and "INFO-X:"; none without the marker.
    static std::optional<std::string> extractErrorFromLineOnlyIfPresent(std::string_view line);
    static std::optional<std::string> extractWarningFromLineOnlyIfPresent(std::string_view line);
    static std::optional<std::string> extractInfoMessageFromLineOnlyIfPresent(
        std::string_view line);

    /// The lines below the last "Error Messages:", in their order; none without such a line.
    static std::optional<std::vector<std::string>> extractMultipleErrorsFromString(
        std::string_view output);
    /// The same as errors; empty when there were none.
    static std::vector<velto::Error> parseErrorsFromString(std::string_view output);
    /// Every marked line of the output as an error; empty when there were none.
    static std::vector<velto::Error> parseAllErrorsFromString(std::string_view output);
    static std::vector<velto::Error> parseAllWarningsFromString(std::string_view output);
    static std::vector<velto::Error> parseAllInfoMessagesFromString(std::string_view output);

    /// The messages of an XML answer's "Error" elements, one a line; none without any. Text that
    /// is no XML gives a text that says so.
    static std::optional<std::string> parseErrorFromXMLString(std::string_view xml);
};
