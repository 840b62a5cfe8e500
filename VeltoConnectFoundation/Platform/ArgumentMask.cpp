#include <VeltoConnectFoundation/Platform/ArgumentMask.h>

#include <VeltoConnectFoundation/Platform/SecretRegistry.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace velto {
namespace {

constexpr std::array<std::string_view, 6> secretOptions{"-p",       "-sharedsecret", "-sessionid",
                                                        "-dsToken", "-hsa2headers",  "-DTxHeaders"};

bool isSecretOption(std::string_view option) {
    return std::ranges::find(secretOptions, option) != secretOptions.end();
}

std::string_view maskedValue(std::string_view value) {
    return value.starts_with("@env:") ? value : hiddenValue;
}

}  // namespace

std::vector<std::string> maskedArgumentList(std::span<const std::string> arguments) {
    std::vector<std::string> masked;
    masked.reserve(arguments.size());
    bool isValue = false;
    for (const std::string_view argument : arguments) {
        const std::size_t end = argument.find_first_of("= ");
        if (isValue) {
            masked.emplace_back(maskedValue(argument));
        } else if (end != std::string_view::npos && isSecretOption(argument.substr(0, end))) {
            masked.emplace_back(argument.substr(0, end + 1)) +=
                maskedValue(argument.substr(end + 1));
        } else {
            masked.emplace_back(argument);
        }
        isValue = !isValue && isSecretOption(argument);
    }
    return masked;
}

std::string maskedArguments(std::span<const std::string> arguments) {
    std::string line;
    std::string_view separator;
    for (const std::string& argument : maskedArgumentList(arguments)) {
        line.append(std::exchange(separator, " ")).append(argument);
    }
    return line;
}

}  // namespace velto
