#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// The value of "NAME=VALUE", which is taken out of the arguments.
inline std::optional<std::string> takeOption(int& argc, char** argv, std::string_view name) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(name) && argument.substr(name.size()).starts_with('=')) {
            std::copy(argv + i + 1, argv + argc, argv + i);
            --argc;
            return std::string(argument.substr(name.size() + 1));
        }
    }
    return std::nullopt;
}

/// The number of "NAME=NUMBER", else `number`.
inline std::size_t takeNumber(int& argc, char** argv, std::string_view name, std::size_t number) {
    const auto given = takeOption(argc, argv, name);
    return given ? std::stoul(*given) : number;
}
