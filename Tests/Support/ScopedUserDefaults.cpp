#include <Tests/Support/ScopedUserDefaults.h>

namespace velto::testing {

// NOLINTNEXTLINE(modernize-pass-by-value): most callers keep their own, and a handle copies cheaply
ScopedUserDefaults::ScopedUserDefaults(const Dictionary& values)
    : before_(UserDefaults::shared().layers()), values_(values) {
    UserDefaults::shared().loadUserFile("/nonexistent/velto/config.toml");
    UserDefaults::shared().setEnvironment({});
    UserDefaults::shared().setArguments(values_);
}

ScopedUserDefaults::~ScopedUserDefaults() {
    UserDefaults::shared().setLayers(before_);
}

void ScopedUserDefaults::set(std::string_view key, const Value& value) {
    values_.set(key, value);
    UserDefaults::shared().setArguments(values_);
}

}  // namespace velto::testing
