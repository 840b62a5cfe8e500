#include <CommandLine/Secrets.h>

#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <sys/prctl.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace velto::cli {

namespace {

Secret takeVariable(const char* name) {
    char* value = std::getenv(name);
    if (value == nullptr) {
        return {};
    }
    Secret secret{std::string(value)};
    ::explicit_bzero(value, std::strlen(value));
    ::unsetenv(name);
    return secret;
}

/// A copy, since those that are secrets are taken.
Dictionary takeSettings() {
    Dictionary settings = UserDefaults::valuesFromEnvironment(ProcessInfo::environment());
    for (const char* name : {"VELTO_VELTOPASSWORD", "VELTO_VELTOPASSWORDS"}) {
        takeVariable(name);
    }
    return settings;
}

}  // namespace

void forbidMemoryDumps() {
    ::prctl(PR_SET_DUMPABLE, 0);
    constexpr rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
}

Secret& Secret::operator=(Secret&& other) noexcept {
    std::swap(text_, other.text_);
    wipe(other.text_);
    return *this;
}

EnvironmentSecrets EnvironmentSecrets::take() {
    return {.password = takeVariable("VELTO_PASSWORD"),
            .sessionID = takeVariable("VELTO_SESSION_ID"),
            .sharedSecret = takeVariable("VELTO_SHARED_SECRET"),
            .settings = takeSettings()};
}

}  // namespace velto::cli
