#include <CommandLine/Paths.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace velto::cli {

std::string absolutePath(std::string_view path) {
    std::error_code problem;
    std::filesystem::path whole = std::filesystem::absolute(path, problem);
    if (problem) {
        return std::string(path);  // without a working folder; whoever uses it says what is wrong
    }
    while (whole != whole.root_path() && (!whole.has_filename() || whole.filename() == ".")) {
        whole = whole.parent_path();
    }
    // Behind a link to a folder, ".." is not the folder that holds the link.
    if (std::ranges::find(whole, "..") != whole.end()) {
        const bool hasName = whole.filename() != "..";
        const std::filesystem::path folder =
            std::filesystem::canonical(hasName ? whole.parent_path() : whole, problem);
        if (problem) {
            return whole.string();
        }
        whole = hasName ? folder / whole.filename() : folder;
    }
    return whole.lexically_normal().string();
}

}  // namespace velto::cli
