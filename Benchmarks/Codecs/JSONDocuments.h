#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

/// The documents (by name) of the folder that --json-folder=DIR says, which is taken out of the
/// arguments. Without it, or with other arguments that are unknown, the program ends.
inline std::map<std::string, std::string> documentsOfArguments(int& argc, char** argv) {
    constexpr std::string_view option = "--json-folder=";
    std::filesystem::path folder;
    int count = 0;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(option)) {
            folder = argument.substr(option.size());
        } else {
            argv[count++] = argv[i];
        }
    }
    argc = count;
    if (folder.empty() || argc > 1) {
        std::fprintf(stderr, "usage: %s --json-folder=DIR [Google Benchmark's options]\n", argv[0]);
        std::exit(2);
    }
    std::map<std::string, std::string> documents;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".json") {
            std::ifstream file(entry.path(), std::ios::binary);
            documents[entry.path().stem()].assign(std::istreambuf_iterator<char>(file), {});
        }
    }
    return documents;
}
