#pragma once

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

namespace velto::testing {

/// Settings for one scope: starts with registered defaults alone (whatever the user's own file
/// says), and puts all layers back at its end.
class ScopedUserDefaults {
public:
    explicit ScopedUserDefaults(const Dictionary& values = {});
    ~ScopedUserDefaults();
    ScopedUserDefaults(const ScopedUserDefaults&) = delete;
    ScopedUserDefaults& operator=(const ScopedUserDefaults&) = delete;

    void set(std::string_view key, const Value& value);  ///< none removes it again.

private:
    std::shared_ptr<const UserDefaults::Layers> before_;
    Dictionary values_;
};

}  // namespace velto::testing
