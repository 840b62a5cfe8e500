#include <VelmDrovan/CommandLine.h>

#include <VelmDrovan/Crypto.h>
#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Failure.h>

#include <algorithm>
#include <charconv>

namespace sandbox {
namespace {

[[noreturn]] void misuse(std::string text, std::string detail = {}) {
    throw Failure(BadCommandLine, std::move(text), std::move(detail), Failure::Usage);
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::string unquoted(std::string_view option, std::string_view value) {
    auto text = withoutQuotes(value);
    if (!text)
        misuse("An argument has a quote that is not closed", std::string(option));
    return *std::move(text);
}

bool truth(std::string_view option, const std::string& value) {
    const std::string lower = lowerCase(value);
    if (lower != "true" && lower != "false")
        misuse("An option takes true or false", std::string(option) + " " + value);
    return lower == "true";
}

std::uint64_t number(std::string_view option, const std::string& value) {
    std::uint64_t result = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, result);
    // The limit keeps kbit/s x 125 within 64 bits.
    if (error != std::errc() || stop != end || result > 1'000'000'000'000)
        misuse("An option takes a whole number", std::string(option) + " " + value);
    return result;
}

void takeVerbosity(CommandLine& line, const std::string& value) {
    const std::string lower = lowerCase(value);
    if (lower == "off")
        line.verbosity = Console::Verbosity::Off;
    else if (lower == "informational")
        line.verbosity = Console::Verbosity::Normal;
    else if (lower == "detailed" || lower == "extreme")
        line.verbosity = Console::Verbosity::Detailed;
    else
        line.warnings.push_back("The value of -v is not recognized: " + value);
}

void takeProperty(CommandLine& line, std::string_view definition) {
    const std::size_t equals = definition.find('=');
    std::string name(definition.substr(0, equals));
    if (name.empty() || equals == std::string_view::npos)
        misuse("A property takes the form -Dname=value", "-D" + std::string(definition));
    const std::string_view value = definition.substr(equals + 1);
    if (name == "TxHeaders") {
        const auto text = decodeBase64Lines(value);
        if (!text || !parseHeaders(*text))
            misuse("The value of -DTxHeaders is not base64 text of a JSON object of headers");
    }
    line.properties[std::move(name)] = unquoted("-D", value);
}

struct Text {
    std::string_view option;
    std::string CommandLine::*member;
};
constexpr Text texts[] = {
    {"-m", &CommandLine::mode},          {"-f", &CommandLine::package},
    {"-u", &CommandLine::user},          {"-t", &CommandLine::transport},
    {"-vp", &CommandLine::verifyFormat}, {"-serviceAddress", &CommandLine::serviceAddress},
};

struct Credential {
    std::string_view option;
    std::optional<std::string> CommandLine::*member;
};
constexpr Credential credentials[] = {
    {"-p", &CommandLine::password},          {"-sessionid", &CommandLine::sessionID},
    {"-dsToken", &CommandLine::token},       {"-sharedsecret", &CommandLine::sharedSecret},
    {"-apiKey", &CommandLine::apiKey},       {"-apiIssuer", &CommandLine::apiIssuer},
    {"-hsa2headers", &CommandLine::headers},
};

/// Options that mean nothing here, as no service is called; each takes a value.
constexpr std::string_view ignored[] = {"-vTPServiceAddress", "-encodingHouseServiceAddress"};

/// False when the option is not known.
bool takeOption(CommandLine& line, std::string_view option, const std::string& raw) {
    for (const auto& text : texts) {
        if (text.option == option) {
            line.*text.member = unquoted(option, raw);
            return true;
        }
    }
    for (const auto& credential : credentials) {
        if (credential.option == option) {
            line.*credential.member = unquoted(option, raw);
            return true;
        }
    }
    const std::string value = unquoted(option, raw);
    if (option == "-vtc_provider" || (option == "-s" && line.provider.empty()))
        line.provider = value;
    else if (option == "-k")
        line.throttle = number(option, value);
    else if (option == "-checksumValidation")
        line.checksums = truth(option, value);
    else if (option == "-indicator")
        line.indicator = truth(option, value);
    else if (option == "-v")
        takeVerbosity(line, value);
    else if (option != "-s" && std::ranges::find(ignored, option) == std::end(ignored))
        return false;
    return true;
}

}  // namespace

std::optional<std::string> withoutQuotes(std::string_view argument) {
    if (argument.empty() || (argument.front() != '\'' && argument.front() != '"'))
        return std::string(argument);
    std::string result;
    char quote = 0;
    for (std::size_t i = 0; i < argument.size(); ++i) {
        const char c = argument[i];
        if (quote) {
            if (c == quote)
                quote = 0;
            else
                result += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '\\' && i + 1 < argument.size()) {
            result += argument[++i];
        } else {
            result += c;
        }
    }
    if (quote)
        return std::nullopt;
    return result;
}

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
    CommandLine line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "-version") {
            line.version = true;
            continue;
        }
        if (option.starts_with("-D")) {
            takeProperty(line, std::string_view(option).substr(2));
            continue;
        }
        const bool hasValue = i + 1 < arguments.size();
        if (option.starts_with('-') && takeOption(line, option, hasValue ? arguments[i + 1] : "")) {
            if (!hasValue)
                misuse("An option lacks its value", option);
            ++i;
            continue;
        }
        line.warnings.push_back("The following option was specified but is not recognized: " +
                                option);
        // What stands behind an unknown option is its value, whatever it is: it may be a secret.
        if (option.starts_with('-') && hasValue && !arguments[i + 1].starts_with('-'))
            ++i;
    }
    return line;
}

}  // namespace sandbox
