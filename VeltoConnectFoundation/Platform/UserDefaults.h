#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

enum class SettingKind : std::uint8_t {
    boolean,
    integer,
    number,
    string,
    array,
    dictionary,
    stringOrArray
};

/// Whether what a server sends may set it.
enum class SettingReach : std::uint8_t { local, remote };

enum class SettingLayer : std::uint8_t { arguments, environment, user, priority, registered, none };

inline constexpr std::string_view SettingsErrorDomain = "VeltoSettingsErrorDomain";
inline constexpr std::int64_t SettingsErrorMalformedFile = 1;
inline constexpr std::int64_t SettingsErrorUnfitValue = 2;
inline constexpr std::int64_t SettingsErrorUnsafeFile = 3;  ///< Others may write it.

/// One key that the library reads, declared once beside its class as a constant; declarations
/// register when the library is loaded. `key` and `meaning` are literals, and a declared setting
/// lives as long as the process.
///
/// Whatever layer a value comes from, it is read as the declared kind: text as the number or the
/// truth it begins with ("NO", "10"), an array or a dictionary from text in TOML's inline form
/// (other text is an array of one). A value that cannot be of the kind counts as not set.
class VELTO_EXPORT Setting {
public:
    Setting(std::string_view key,
            SettingKind kind,
            Value registeredDefault,
            std::string_view meaning,
            SettingReach reach = SettingReach::local);
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    std::string_view key() const { return key_; }
    SettingKind kind() const { return kind_; }
    const Value& registeredDefault() const {
        return registeredDefault_;
    }                                                      ///< none when there is none
    std::string_view meaning() const { return meaning_; }  ///< One line, English.
    SettingReach reach() const { return reach_; }

    /// Whether all of a value is of the setting's kind: reading is more lenient.
    bool accepts(const Value& value) const;

    /// The setting's value in UserDefaults::shared(); takes no lock while nothing has changed.
    Value value() const;
    SettingLayer layer() const;
    bool boolValue() const { return value().boolValue(); }
    std::int64_t integerValue() const { return value().integerValue(); }
    double doubleValue() const { return value().doubleValue(); }
    std::string stringValue()
        const;  ///< Empty unless set to a string (numbers read as their text).
    Array arrayValue() const;

private:
    std::string_view key_;
    SettingKind kind_;
    const Value& registeredDefault_;  ///< Never destroyed: threads outlive the end of main.
    std::string_view meaning_;
    SettingReach reach_;
    std::size_t index_;  ///< Its place among the declared ones.
};

/// The layered settings: arguments, environment, the user's file, priority defaults (what a
/// server sent; never read for local declared keys), registered defaults; the first that holds
/// the key wins. Any thread; neither logs nor notifies while loading or locked.
class VELTO_EXPORT UserDefaults {
public:
    static UserDefaults& shared();  ///< Loads the user's file on first use; never destroyed.

    Value value(std::string_view key) const;  ///< none when no layer holds it
    bool boolValue(std::string_view key) const { return value(key).boolValue(); }
    std::int64_t integerValue(std::string_view key) const { return value(key).integerValue(); }
    std::string stringValue(std::string_view key) const;
    Array arrayValue(std::string_view key) const;
    SettingLayer layer(std::string_view key) const;

    /// Writes the user's file (TOML, mode 0600, atomically, other lines as they were, one writer
    /// after the other); none removes the key. A declared key takes its own kind only; a file that
    /// could not be loaded is never overwritten. A link stays one.
    [[nodiscard]] bool setValue(std::string_view key, const Value& value, Error* error = nullptr);
    /// Supplies values nobody set; later registrations win over earlier ones.
    void registerDefaults(const Dictionary& defaults);
    void setPriorityDefaults(const Dictionary& defaults);  ///< Merged into what is there.
    void setArguments(const Dictionary& arguments);        ///< The front end only; replaces.
    void setEnvironment(const Dictionary& environment);    ///< The front end only; replaces.

    /// A number that grows with each change of any layer, so that a reader may keep what it
    /// derived.
    std::uint64_t generation() const noexcept;

    /// "VELTO_" and the key in capitals.
    static std::string environmentName(const Setting& setting);
    /// What a process environment (name to text) sets.
    static Dictionary valuesFromEnvironment(const Dictionary& environment);

    /// Every declared setting, sorted by key.
    static std::vector<const Setting*> declaredSettings();
    std::string userFilePath() const;
    /// What was wrong with the user's file when it was loaded, so that nothing of it holds: none,
    /// or an error with its line; or that others than root and the process's user may write it.
    Error loadError() const;
    struct UserFileKey {
        std::string key;
        std::size_t line;        ///< From 1.
        const Setting* setting;  ///< Null when none is declared.
    };
    /// The keys of the user's file, in the order of its lines.
    std::vector<UserFileKey> userFileKeys() const;
    /// What the user's file holds, whatever goes before it; none without the key.
    Value userFileValue(std::string_view key) const;
    /// Reads another file instead (tests, `velto --config`); a missing file is empty.
    bool loadUserFile(std::string_view path, Error* error = nullptr);

    class Layers;
    /// Tests: what all layers hold, to be put back.
    std::shared_ptr<const Layers> layers() const;
    void setLayers(const std::shared_ptr<const Layers>& layers);

private:
    friend class Setting;
    UserDefaults();
    class State;
    State* state_;
};

}  // namespace velto
