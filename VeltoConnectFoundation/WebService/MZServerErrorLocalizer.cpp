#include <VeltoConnectFoundation/WebService/MZServerErrorLocalizer.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Regex.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <array>

namespace {

using velto::Dictionary;
using velto::localized;
using velto::Regex;
using velto::Value;

constexpr std::string_view messageKey = "m";
constexpr std::string_view expressionKey = "r";
constexpr std::size_t maximumTexts = 5;

constexpr std::string_view accountRecoveryAddress = "https://gravenly.zarnet.invalid";
constexpr std::string_view accountAddress = "https://account.zarnet.invalid";

const Dictionary& ServerErrorsByCode() {
    static const auto* const errors = [] {
        auto* const table = new Dictionary(MZServerErrorLocalizer::generatedErrorDictionary());
        MZServerErrorLocalizer::addOtherErrorsToDictionary(*table);
        return table;
    }();
    return *errors;
}

const Dictionary& serverErrorsByMessage() {
    static const auto* const errors = new Dictionary{
        {"Your Zarnet ID or password was entered incorrectly.",
         localized("Your Zarnet ID or password was entered incorrectly.")},
        {"Neither an encoding house user nor an VeltoConnect user was found.",
         localized("Neither an encoding house user nor an Velto Connect user was found.")},
        {"Neither an encoding house user nor an Velto Connect user was found.",
         localized("Neither an encoding house user nor an Velto Connect user was found.")},
    };
    return *errors;
}

}  // namespace

std::optional<std::string> MZServerErrorLocalizer::localizedMessageForCode(
    std::int64_t code,
    const std::optional<std::string>& message) {
    const Value& entry = ServerErrorsByCode().valueForKey(code);
    std::optional<std::string> known = entry[messageKey].optionalString();
    if (!known) {
        return localizedMessageForMessage(message);
    }
    const auto expression = std::dynamic_pointer_cast<const Regex>(entry[expressionKey].object());
    if (expression == nullptr) {
        return known;
    }
    // Anchored, so there is one match at most.
    const std::optional<velto::RegexMatch> match =
        message ? expression->matchAtStart(*message) : std::nullopt;
    if (!match) {
        return localizedMessageForMessage(message);
    }
    const std::size_t count = match->size() - 1;
    if (count == 0) {
        return known;
    }
    if (count > maximumTexts) {
        return message;
    }
    std::array<velto::FormatArgument, maximumTexts> texts;
    for (std::size_t index = 0; index < count; ++index) {
        const std::optional<std::string>& text = (*match)[index + 1];
        texts[index] = text ? velto::FormatArgument(*text) : velto::FormatArgument("");
    }
    return velto::formatArguments(*known, velto::FormatArguments(texts).first(count));
}

std::optional<std::string> MZServerErrorLocalizer::localizedMessageForMessage(
    const std::optional<std::string>& message) {
    if (!message) {
        return std::nullopt;
    }
    const Value& known = serverErrorsByMessage()[*message];
    if (known.isString()) {
        return known.optionalString();
    }
    MZLogDebug("Non-localized server string received: '%@'.", *message);
    return message;
}

Dictionary MZServerErrorLocalizer::generatedErrorDictionary() {
    return {};
}

void MZServerErrorLocalizer::addOtherErrorsToDictionary(Dictionary& errors) {
    const auto add = [&](std::int64_t code, std::string_view message) {
        errors.set(code, Dictionary{{messageKey, message}});
    };
    const auto addWithExpression = [&](std::int64_t code, std::string_view pattern,
                                       std::string_view message) {
        if (const auto expression = Regex::regexWithPattern(pattern)) {
            errors.set(code, Dictionary{{messageKey, message},
                                        {expressionKey,
                                         Value(std::shared_ptr<const velto::Object>(expression))}});
        }
    };
    const std::string wrongPassword =
        localized("Your Zarnet ID or password was entered incorrectly.");
    const std::string missingVendor = localized("You must supply a vendor identifier");
    add(-20101, wrongPassword);
    add(-20283, wrongPassword);
    add(-20209, velto::localizedFormat("This Zarnet ID has been locked for security reasons. Visit "
                                       "Gravenly to reset your account (%@).",
                                       accountRecoveryAddress));
    add(1611, localized("Unable to generate an Zarnet Connect token at this time due to a general "
                        "error"));
    add(1100, missingVendor);
    add(1101, missingVendor);
    add(3000, localized("Cannot verify client."));
    addWithExpression(
        1080, "Neither an encoding house user nor an VeltoConnect user was found..*",
        localized("Neither an encoding house user nor an Velto Connect user was found."));
    add(-22938, velto::localizedFormat("Sign in with the app-specific password you generated. If "
                                       "you forgot the app-specific password or need to create a "
                                       "new one, go to %@",
                                       accountAddress));
    // Required: the two blanks after the first full stop.
    addWithExpression(
        1243,
        "Unable to find a user with username (.*).  If you are an encoding house user, you must "
        "specify a provider short name..*",
        velto::localizedFormatText(velto::markLocalized(
            "Unable to find a user with username %@. If you are an encoding house user, you must "
            "specify a provider short name.")));
    // Required: straight quotes in the expression, typographic ones in the message.
    addWithExpression(1190,
                      "No suitable application records were found. Verify your bundle identifier "
                      "'(.*)' is correct.",
                      velto::localizedFormatText(velto::markLocalized(
                          "No suitable application records were found. Verify your bundle "
                          "identifier ‘%@’ is correct.")));
}
