#include <CommandLine/Secrets.h>

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

}  // namespace

Secret& Secret::operator=(Secret&& other) noexcept {
    std::swap(text_, other.text_);
    wipe(other.text_);
    return *this;
}

EnvironmentSecrets EnvironmentSecrets::take() {
    return {.password = takeVariable("VELTO_PASSWORD"),
            .sessionID = takeVariable("VELTO_SESSION_ID"),
            .sharedSecret = takeVariable("VELTO_SHARED_SECRET")};
}

}  // namespace velto::cli
