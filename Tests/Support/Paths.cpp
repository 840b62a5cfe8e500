#include <Tests/Support/Paths.h>

namespace velto::testing {

std::filesystem::path sourceFolder() {
    return VELTO_SOURCE_FOLDER;
}

std::filesystem::path buildFolder() {
    return VELTO_BUILD_FOLDER;
}

std::filesystem::path childProgram(std::string_view name) {
    return buildFolder() / "tests/children" / name;
}

std::filesystem::path veltoProgram() {
    return buildFolder() / "bin/velto";
}

std::filesystem::path sandboxFolder() {
    return buildFolder() / "sandbox";
}

}  // namespace velto::testing
