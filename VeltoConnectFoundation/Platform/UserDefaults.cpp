#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/SettingsFilePrivate.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace velto {

namespace {

/// `value` as a setting of that kind reads it; none when it cannot be.
Value coerced(const Value& value, SettingKind kind) {
    const bool readable = value.isNumber() || value.isString();
    switch (kind) {
        case SettingKind::boolean:
            return readable ? Value(value.boolValue()) : Value();
        case SettingKind::integer:
            return readable ? Value(value.integerValue()) : Value();
        case SettingKind::number:
            return readable ? Value(value.doubleValue()) : Value();
        case SettingKind::string:
            return value.isNumber()   ? Value(value.description())
                   : value.isString() ? value
                                      : Value();
        case SettingKind::array:
            if (!value.isString()) {
                return value.isArray() ? value : Value();
            }
            if (value.string().empty()) {
                return Array();
            }
            if (value.string().front() == '[') {
                if (const auto parsed = valueFromInlineTOML(value.string());
                    parsed && parsed->isArray()) {
                    return *parsed;
                }
            }
            return Array{value};
        case SettingKind::stringOrArray:
            return value.isString() || value.isArray() ? value : Value();
        case SettingKind::dictionary:
            if (value.isString() && value.string().starts_with('{')) {
                const auto parsed = valueFromInlineTOML(value.string());
                return parsed && parsed->isDictionary() ? *parsed : Value();
            }
            return value.isDictionary() ? value : Value();
    }
    return {};
}

template <class Number>
bool isWholeNumber(std::string_view text) {
    Number number{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size();
}

/// Whether all of a value is of the kind: lenient reading is no way to write.
bool fits(const Value& value, SettingKind kind) {
    if (!value.isString()) {
        return !coerced(value, kind).isNone();
    }
    const std::string_view text = value.string();
    constexpr std::array<std::string_view, 8> truths = {"YES",  "NO",    "yes", "no",
                                                        "true", "false", "1",   "0"};
    switch (kind) {
        case SettingKind::boolean:
            return std::ranges::find(truths, text) != truths.end();
        case SettingKind::integer:
            return isWholeNumber<std::int64_t>(text);
        case SettingKind::number:
            return isWholeNumber<double>(text);
        default:
            return !coerced(value, kind).isNone();
    }
}

std::string_view nameOfKind(SettingKind kind) {
    constexpr std::array<std::string_view, 7> names = {
        "YES or NO", "a whole number", "a number", "text", "a list", "a table", "text or a list"};
    return names[static_cast<std::size_t>(kind)];
}

std::string inCapitals(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return result;
}

struct Resolved {
    Value value;
    SettingLayer layer = SettingLayer::none;
};

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>{}(text);
    }
};

/// Every key's winner; never changed once it is published.
struct Snapshot {
    std::uint64_t generation = 0;
    std::vector<Resolved> declared;  ///< By index of declaration.
    std::unordered_map<std::string, Resolved, TextHash, std::equal_to<>> byKey;
};

/// The snapshot that a thread read last. It is plain data, so that it can still be asked while
/// the thread's other variables go away; then it is null and reading takes the slow way.
struct Cache {
    std::uint64_t generation = 0;
    const Snapshot* snapshot = nullptr;
    bool ended = false;
};
constinit thread_local Cache cache;

struct CacheOwner {
    std::shared_ptr<const Snapshot> snapshot;
    CacheOwner() = default;
    CacheOwner(const CacheOwner&) = delete;
    CacheOwner& operator=(const CacheOwner&) = delete;
    ~CacheOwner() { cache = {.generation = 0, .snapshot = nullptr, .ended = true}; }
};

}  // namespace

class UserDefaults::Layers {
public:
    Dictionary arguments;
    Dictionary environment;
    Dictionary user;
    std::vector<SettingsFile::Key> userKeys;
    Dictionary priority;
    Dictionary registered;
    std::string userPath;
    Error loadError;
    bool loaded = false;
};

class UserDefaults::State {
public:
    static State& shared() {
        static auto* state = new State;
        return *state;
    }

    std::size_t declare(const Setting& setting) {
        const std::lock_guard guard(mutex_);
        declared_.push_back({&setting, setting.registeredDefault()});
        changed();
        return declared_.size() - 1;
    }

    std::vector<const Setting*> declaredSettings() const {
        std::vector<const Setting*> result;
        {
            const std::lock_guard guard(mutex_);
            result.reserve(declared_.size());
            for (const Declared& declared : declared_) {
                result.push_back(declared.setting);
            }
        }
        std::ranges::sort(result, {}, &Setting::key);
        return result;
    }

    /// `read` is given the current snapshot.
    template <class Read>
    auto read(const Read& read) {
        if (cache.snapshot != nullptr &&
            cache.generation == generation_.load(std::memory_order_acquire)) [[likely]] {
            return read(*cache.snapshot);
        }
        const std::shared_ptr<const Snapshot> snapshot = current();
        if (!cache.ended) {
            thread_local CacheOwner owner;
            owner.snapshot = snapshot;
            cache.generation = snapshot->generation;
            cache.snapshot = snapshot.get();
        }
        return read(*snapshot);
    }

    /// `change` is given the layers, which it may change, under the lock.
    template <class Change>
    void change(const Change& change) {
        const std::lock_guard guard(mutex_);
        change(layers_);
        changed();
    }

    /// What a function makes of the layers, which are not copied for it.
    template <class Use>
    auto withLayers(const Use& use) {
        const std::lock_guard guard(mutex_);
        load();
        return use(std::as_const(layers_));
    }

    bool loadFile(std::string path, Error* error) {
        const std::lock_guard guard(mutex_);
        load(std::move(path));
        changed();
        return !layers_.loadError || fail(error, layers_.loadError);
    }

    bool write(std::string_view key, const Value& value, Error* error) {
        const std::string path = withLayers([](const Layers& layers) { return layers.userPath; });
        SettingsFileLock lock;
        if (!lock.take(path, error)) {
            return false;
        }
        const std::lock_guard guard(mutex_);
        // What another process wrote meanwhile stays.
        const auto text = load(path);
        changed();
        if (!text) {
            return fail(error, layers_.loadError);
        }
        Dictionary wanted = layers_.user;
        wanted.set(key, value);
        if (wanted == layers_.user) {
            return true;
        }
        const auto edited = settingsTextWithChange(*text, wanted, key, error);
        if (!edited || !FileManager::writeAtomically(path, *edited, 0600, error)) {
            return false;
        }
        return load(path) || fail(error, layers_.loadError);
    }

    std::uint64_t generation() const noexcept {
        return generation_.load(std::memory_order_acquire);
    }

private:
    /// The default is kept here too: at the end of the process settings go before threads do.
    struct Declared {
        const Setting* setting;
        Value registeredDefault;
    };

    void changed() { generation_.fetch_add(1, std::memory_order_release); }

    std::shared_ptr<const Snapshot> current() {
        const std::lock_guard guard(mutex_);
        load();
        const std::uint64_t generation = generation_.load(std::memory_order_relaxed);
        if (snapshot_ == nullptr || snapshot_->generation != generation) {
            auto snapshot = std::make_shared<Snapshot>();
            snapshot->generation = generation;
            resolveUndeclared(*snapshot);
            resolveDeclared(*snapshot);
            snapshot_ = std::move(snapshot);
        }
        return snapshot_;
    }

    /// Reads the user's file unless that has been done. Locked.
    void load() {
        if (!layers_.loaded) {
            load(layers_.userPath.empty() ? FileManager::configurationFolder() + "/config.toml"
                                          : layers_.userPath);
        }
    }

    /// Reads a file and answers its text; none, and no settings, when it cannot be used. Locked.
    std::optional<std::string> load(std::string path) {
        layers_.loaded = true;
        layers_.user.clear();
        layers_.userKeys.clear();
        layers_.loadError = {};
        layers_.userPath = std::move(path);
        auto text = readSettingsFile(layers_.userPath, &layers_.loadError);
        auto file =
            text ? settingsFromText(*text, layers_.userPath, &layers_.loadError) : std::nullopt;
        if (!file) {
            return std::nullopt;
        }
        layers_.user = std::move(file->values);
        layers_.userKeys = std::move(file->keys);
        return text;
    }

    struct Layer {
        const Dictionary& values;
        SettingLayer name;
    };
    std::array<Layer, 5> inOrder() const {
        return {{{layers_.arguments, SettingLayer::arguments},
                 {layers_.environment, SettingLayer::environment},
                 {layers_.user, SettingLayer::user},
                 {layers_.priority, SettingLayer::priority},
                 {layers_.registered, SettingLayer::registered}}};
    }

    void resolveUndeclared(Snapshot& snapshot) const {
        for (const Layer& layer : inOrder()) {
            for (const DictionaryEntry& entry : layer.values) {
                if (entry.key.isString()) {
                    snapshot.byKey.try_emplace(std::string(entry.key.string()),
                                               Resolved{entry.value, layer.name});
                }
            }
        }
    }

    void resolveDeclared(Snapshot& snapshot) const {
        snapshot.declared.reserve(declared_.size());
        for (const Declared& declared : declared_) {
            const Setting& setting = *declared.setting;
            Resolved winner;
            for (const Layer& layer : inOrder()) {
                if (layer.name == SettingLayer::priority &&
                    setting.reach() == SettingReach::local) {
                    continue;
                }
                winner = {coerced(layer.values[setting.key()], setting.kind()), layer.name};
                if (!winner.value.isNone()) {
                    break;
                }
            }
            if (winner.value.isNone()) {
                winner = {coerced(declared.registeredDefault, setting.kind()),
                          SettingLayer::registered};
            }
            if (winner.value.isNone()) {
                winner.layer = SettingLayer::none;
            }
            snapshot.byKey.insert_or_assign(std::string(setting.key()), winner);
            snapshot.declared.push_back(std::move(winner));
        }
    }

    mutable std::mutex mutex_;
    std::vector<Declared> declared_;
    Layers layers_;
    std::shared_ptr<const Snapshot> snapshot_;
    std::atomic<std::uint64_t> generation_{1};
};

namespace {

std::string textOfSetting(const Value& value) {
    return value.isNumber() ? value.description() : std::string(value.string());
}

}  // namespace

Setting::Setting(std::string_view key,
                 SettingKind kind,
                 Value registeredDefault,
                 std::string_view meaning,
                 SettingReach reach)
    : key_(key),
      kind_(kind),
      registeredDefault_(*new Value(std::move(registeredDefault))),
      meaning_(meaning),
      reach_(reach),
      index_(UserDefaults::State::shared().declare(*this)) {
}

Value Setting::value() const {
    return UserDefaults::State::shared().read(
        [this](const Snapshot& snapshot) { return snapshot.declared[index_].value; });
}

SettingLayer Setting::layer() const {
    return UserDefaults::State::shared().read(
        [this](const Snapshot& snapshot) { return snapshot.declared[index_].layer; });
}

std::string Setting::stringValue() const {
    return textOfSetting(value());
}

Array Setting::arrayValue() const {
    return value().array();
}

UserDefaults::UserDefaults() : state_(&State::shared()) {
}

UserDefaults& UserDefaults::shared() {
    static auto* defaults = new UserDefaults;
    return *defaults;
}

Value UserDefaults::value(std::string_view key) const {
    return state_->read([key](const Snapshot& snapshot) {
        const auto found = snapshot.byKey.find(key);
        return found == snapshot.byKey.end() ? Value() : found->second.value;
    });
}

std::string UserDefaults::stringValue(std::string_view key) const {
    return textOfSetting(value(key));
}

Array UserDefaults::arrayValue(std::string_view key) const {
    return value(key).array();
}

SettingLayer UserDefaults::layer(std::string_view key) const {
    return state_->read([key](const Snapshot& snapshot) {
        const auto found = snapshot.byKey.find(key);
        return found == snapshot.byKey.end() ? SettingLayer::none : found->second.layer;
    });
}

bool Setting::accepts(const Value& value) const {
    return fits(value, kind_);
}

bool UserDefaults::setValue(std::string_view key, const Value& value, Error* error) {
    Value written = value;
    if (!value.isNone()) {
        const auto settings = declaredSettings();
        const auto found = std::ranges::find(settings, key, &Setting::key);
        if (found != settings.end()) {
            if (!(*found)->accepts(value)) {
                return fail(error, unfitSettingError(
                                       key, "Its value must be " +
                                                std::string(nameOfKind((*found)->kind())) + "."));
            }
            written = coerced(value, (*found)->kind());
        }
    }
    return state_->write(key, written, error);
}

void UserDefaults::registerDefaults(const Dictionary& defaults) {
    state_->change([&](Layers& layers) { layers.registered.merge(defaults); });
}

void UserDefaults::setPriorityDefaults(const Dictionary& defaults) {
    state_->change([&](Layers& layers) { layers.priority.merge(defaults); });
}

void UserDefaults::setArguments(const Dictionary& arguments) {
    state_->change([&](Layers& layers) { layers.arguments = arguments; });
}

void UserDefaults::setEnvironment(const Dictionary& environment) {
    state_->change([&](Layers& layers) { layers.environment = environment; });
}

std::uint64_t UserDefaults::generation() const noexcept {
    return state_->generation();
}

std::string UserDefaults::environmentName(const Setting& setting) {
    return "VELTO_" + inCapitals(setting.key());
}

Dictionary UserDefaults::valuesFromEnvironment(const Dictionary& environment) {
    Dictionary result;
    for (const Setting* setting : declaredSettings()) {
        const Value& value = environment[environmentName(*setting)];
        if (!value.isNone()) {
            result.set(setting->key(), value);
        }
    }
    return result;
}

std::vector<const Setting*> UserDefaults::declaredSettings() {
    return State::shared().declaredSettings();
}

std::string UserDefaults::userFilePath() const {
    return state_->withLayers([](const Layers& layers) { return layers.userPath; });
}

Error UserDefaults::loadError() const {
    return state_->withLayers([](const Layers& layers) { return layers.loadError; });
}

std::vector<UserDefaults::UserFileKey> UserDefaults::userFileKeys() const {
    const auto settings = declaredSettings();
    std::vector<UserFileKey> keys;
    for (const SettingsFile::Key& key :
         state_->withLayers([](const Layers& layers) { return layers.userKeys; })) {
        const auto found = std::ranges::find(settings, key.name, &Setting::key);
        keys.push_back({key.name, key.line, found == settings.end() ? nullptr : *found});
    }
    return keys;
}

Value UserDefaults::userFileValue(std::string_view key) const {
    return state_->withLayers([&](const Layers& layers) { return Value(layers.user[key]); });
}

bool UserDefaults::loadUserFile(std::string_view path, Error* error) {
    return state_->loadFile(std::string(path), error);
}

std::shared_ptr<const UserDefaults::Layers> UserDefaults::layers() const {
    return state_->withLayers(
        [](const Layers& layers) { return std::make_shared<const Layers>(layers); });
}

void UserDefaults::setLayers(const std::shared_ptr<const Layers>& layers) {
    state_->change([&](Layers& current) { current = *layers; });
}

}  // namespace velto
