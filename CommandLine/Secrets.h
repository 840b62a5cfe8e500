#pragma once

#include <VeltoConnectFoundation/Platform/Secret.h>
#include <VeltoConnectFoundation/Platform/Value.h>

#include <string>
#include <string_view>

namespace velto::cli {

/// Lets nothing write this process's memory to a file, nor another process of the user read it;
/// children inherit the bound of zero on core files. To be called first.
void forbidMemoryDumps();

/// A text whose bytes are overwritten when it goes.
class Secret {
public:
    Secret() = default;
    explicit Secret(std::string&& text) : text_(std::move(text)) { wipe(text); }
    Secret(Secret&& other) noexcept : text_(std::move(other.text_)) { wipe(other.text_); }
    Secret& operator=(Secret&& other) noexcept;
    ~Secret() { wipe(text_); }

    const std::string& text() const { return text_; }
    bool isEmpty() const { return text_.empty(); }

private:
    std::string text_;
};

/// The secrets of the process's environment, taken out of it.
struct EnvironmentSecrets {
    Secret password;      ///< VELTO_PASSWORD
    Secret sessionID;     ///< VELTO_SESSION_ID
    Secret sharedSecret;  ///< VELTO_SHARED_SECRET
    Dictionary settings;  ///< All that the environment sets, secret or not, by their keys.

    /// Overwrites and removes the variables, so that neither a child nor /proc shows them. Only
    /// while there is one thread.
    static EnvironmentSecrets take();
};

}  // namespace velto::cli
