#include <VelmDrovan/Accounts.h>

#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Failure.h>
#include <VelmDrovan/Files.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace sandbox {

Accounts readAccounts() {
    const char* set = std::getenv("VELM_SANDBOX_ACCOUNTS");
    const std::string path =
        set && *set
            ? set
            : std::filesystem::read_symlink("/proc/self/exe").replace_filename("accounts.json");
    const auto text = readSmallFile(path);
    if (!text)
        throw Failure(BadConfiguration, "The accounts file cannot be read", path, Failure::Usage);
    try {
        return parseAccounts(*text);
    } catch (const std::runtime_error& error) {
        throw Failure(BadConfiguration, "The accounts file cannot be understood",
                      path + ": " + error.what(), Failure::Usage);
    }
}

}  // namespace sandbox
