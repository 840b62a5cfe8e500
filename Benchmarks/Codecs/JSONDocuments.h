#pragma once

#include <Benchmarks/Support/Options.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>

/// The documents (by name) of the folder that --json-folder=DIR says, which is taken out of the
/// arguments. Without it the program ends.
inline std::map<std::string, std::string> documentsOfArguments(int& argc, char** argv) {
    const auto folder = takeOption(argc, argv, "--json-folder");
    if (!folder) {
        std::cerr << argv[0] << ": needs --json-folder=DIR\n";
        std::exit(2);
    }
    std::map<std::string, std::string> documents;
    for (const auto& entry : std::filesystem::directory_iterator(*folder)) {
        if (entry.path().extension() == ".json") {
            std::ifstream file(entry.path(), std::ios::binary);
            documents[entry.path().stem()].assign(std::istreambuf_iterator<char>(file), {});
        }
    }
    return documents;
}
