#include <VeltoConnectFoundation/Platform/ArgumentMask.h>

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
    return value.starts_with("@env:") ? value : "**hidden value**";
}

}  // namespace

std::string maskedArguments(std::span<const std::string> arguments) {
    std::string line;
    std::string_view separator;
    bool isValue = false;
    for (const std::string_view argument : arguments) {
        line += std::exchange(separator, " ");
        const std::size_t end = argument.find_first_of("= ");
        if (isValue) {
            line += maskedValue(argument);
        } else if (end != std::string_view::npos && isSecretOption(argument.substr(0, end))) {
            line.append(argument.substr(0, end + 1)).append(maskedValue(argument.substr(end + 1)));
        } else {
            line += argument;
        }
        isValue = !isValue && isSecretOption(argument);
    }
    return line;
}

}  // namespace velto
