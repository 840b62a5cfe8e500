#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanMessages.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/XMLDocument.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <algorithm>

using velto::Error;

namespace {

constexpr std::int64_t unnumberedCode = -18000;

/// Calls `visit` with each line of the output, without its line feed; also with the empty rest.
template <class Visit>
void eachLine(std::string_view output, const Visit& visit) {
    for (;;) {
        const std::size_t end = output.find('\n');
        visit(output.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        output.remove_prefix(end + 1);
    }
}

std::optional<std::string> textAfter(std::string_view marker, std::string_view line) {
    const std::size_t found = velto::findIgnoringCase(line, marker);
    if (found == std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(VeltoDrovanMessages::trimError(line.substr(found + marker.size())));
}

std::vector<Error> markedLines(std::string_view marker, std::string_view output) {
    std::vector<Error> all;
    eachLine(output, [&](std::string_view line) {
        if (const std::optional<std::string> message = textAfter(marker, line)) {
            all.push_back(ConvertMessageToError(*message));
        }
    });
    return all;
}

bool isKnownOptionWarning(const Error& warning) {
    const std::string text = warning.localizedDescription();
    return text == "The following option was specified but is not recognized: -TxHeaders" ||
           text == "The following option was specified but is not recognized: -DTxHeaders";
}

}  // namespace

Error ConvertMessageToError(std::string_view message) {
    std::int64_t code = unnumberedCode;
    const std::size_t open = message.find('(');
    const std::size_t close = message.find(')');
    if (open != std::string_view::npos && close != std::string_view::npos && open < close) {
        const std::int64_t number =
            velto::leadingInteger(message.substr(open + 1, close - open - 1));
        code = number != 0 ? number : code;
    }
    return Error(VeltoDrovanErrorDomain, code,
                 {{velto::LocalizedDescriptionKey, message},
                  {velto::LocalizedFailureReasonKey, message},
                  {velto::LocalizedRecoverySuggestionKey, message}});
}

std::string_view VeltoDrovanMessages::trimError(std::string_view text) {
    return velto::trimmed(text);
}

std::optional<std::string> VeltoDrovanMessages::extractErrorFromLine(std::string_view line) {
    if (line.empty()) {
        return std::nullopt;
    }
    // Required: the marker stays part of the message here, unlike below.
    const std::size_t found = velto::findIgnoringCase(line, "ERROR:");
    return std::string(trimError(found == std::string_view::npos ? line : line.substr(found)));
}

std::optional<std::string> VeltoDrovanMessages::extractErrorFromLineOnlyIfPresent(
    std::string_view line) {
    return textAfter("ERROR:", line);
}

std::optional<std::string> VeltoDrovanMessages::extractWarningFromLineOnlyIfPresent(
    std::string_view line) {
    return textAfter("WARN:", line);
}

std::optional<std::string> VeltoDrovanMessages::extractInfoMessageFromLineOnlyIfPresent(
    std::string_view line) {
    return textAfter("INFO-X:", line);
}

std::optional<std::vector<std::string>> VeltoDrovanMessages::extractMultipleErrorsFromString(
    std::string_view output) {
    // The header first: an output without one may be very long.
    std::size_t end = output.size();
    while (!output.substr(0, end).ends_with("Error Messages:")) {
        end = end == 0 ? std::string_view::npos : output.rfind('\n', end - 1);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
    }
    std::vector<std::string> messages;
    eachLine(output.substr(end), [&](std::string_view line) {
        if (std::optional<std::string> message = extractErrorFromLine(line)) {
            messages.push_back(std::move(*message));
        }
    });
    return messages;
}

std::vector<Error> VeltoDrovanMessages::parseErrorsFromString(std::string_view output) {
    std::vector<Error> errors;
    for (const std::string& message :
         extractMultipleErrorsFromString(output).value_or(std::vector<std::string>())) {
        errors.push_back(ConvertMessageToError(message));
    }
    return errors;
}

std::vector<Error> VeltoDrovanMessages::parseAllErrorsFromString(std::string_view output) {
    return markedLines("ERROR:", output);
}

std::vector<Error> VeltoDrovanMessages::parseAllWarningsFromString(std::string_view output) {
    std::vector<Error> warnings = markedLines("WARN:", output);
    std::erase_if(warnings, isKnownOptionWarning);
    return warnings;
}

std::vector<Error> VeltoDrovanMessages::parseAllInfoMessagesFromString(std::string_view output) {
    return markedLines("INFO-X:", output);
}

std::optional<std::string> VeltoDrovanMessages::parseErrorFromXMLString(std::string_view xml) {
    const std::optional<velto::XMLDocument> document = velto::XMLDocument::parse(xml);
    if (!document) {
        // Required: formatted without a value, so the text ends in the rendering of a missing one.
        return velto::formatArguments(velto::localized("Error parsing return XML:\n%@"), {});
    }
    std::string messages;
    bool any = false;
    for (const velto::XMLElement* error : document->root().childrenNamed("Error")) {
        const velto::XMLElement* message = error->child("Message");
        const std::string text = message == nullptr ? std::string() : message->stringValue();
        if (text.empty()) {
            MZLogError("Missing error message!");
            continue;
        }
        messages += any ? "\n" : "";
        messages += text;
        any = true;
    }
    return any ? std::optional(messages) : std::nullopt;
}
