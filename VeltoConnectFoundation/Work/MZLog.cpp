#include <VeltoConnectFoundation/Work/MZLog.h>

#include <VeltoConnectFoundation/Platform/DisplayText.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/SecretRegistry.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

namespace velto::detail {
constinit std::atomic<std::uint32_t> logGate{0x3F};
}

namespace {

using velto::Array;
using velto::Dictionary;
using velto::findIgnoringCase;
using velto::FormatArguments;
using velto::Guard;
using velto::hiddenValue;
using velto::Lock;
using velto::replaceAll;
using velto::Setting;
using velto::SettingKind;
using velto::utf16Length;
using velto::utf16Prefix;
using velto::Value;

const Setting debugLoggingEnabled("VeltoConnectDebugLoggingEnabled",
                                  SettingKind::boolean,
                                  {},
                                  "Log debug lines from the first line on");
const Setting debugLogFullOutput(
    "VeltoConnectDebugLogFullOutput",
    SettingKind::boolean,
    {},
    "Log values whole: nothing is cut, and only known passwords are hidden");
const Setting passwords("VeltoPasswords",
                        SettingKind::array,
                        {},
                        "Texts that are hidden in every log line");

void DefaultLogFunction(std::int32_t level, std::string_view format, FormatArguments arguments);

/// The switches by level, with the gate that the inline functions ask derived from them.
struct Switches {
    static constexpr std::uint32_t initialized = 1U << 31;
    static constexpr std::uint32_t defaults = (1U << MZLogLevelInfo) | (1U << MZLogLevelWarning) |
                                              (1U << MZLogLevelError) | (1U << MZLogLevelCritical);

    std::atomic<std::uint32_t> bits{defaults};

    bool isOn(std::int32_t level) const { return ((bits.load() >> level) & 1U) != 0; }

    void set(std::int32_t level, bool enabled) {
        if (enabled) {
            bits.fetch_or(1U << level);
        } else {
            bits.fetch_and(~(1U << level));
        }
        openGate();
    }

    void openGate() {
        std::uint32_t now = bits.load();
        std::uint32_t shown = 0;
        do {
            shown = now;
            const std::uint32_t stderrBit = ((now >> MZLogLevelError) & 1U) << MZLogLevelStderr;
            const bool ready = (now & initialized) != 0;
            velto::detail::logGate.store(ready ? ((now & 0x2FU) | stderrBit) : 0x3FU);
            now = bits.load();
        } while (now != shown);  // changed by another thread, whose gate this may have replaced
    }
};

struct Registry {
    Lock lock;
    std::vector<std::shared_ptr<MZWeakLogger>> loggers VELTO_GUARDED_BY(lock);
};

Switches& switches() {
    static constinit Switches instance;
    return instance;
}

Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

std::atomic<MZLogFunction> loggingFunction{&DefaultLogFunction};
std::atomic<bool> skipObjectTruncation{false};

void initializeIfNeeded() {
    if ((switches().bits.load(std::memory_order_acquire) & Switches::initialized) != 0) {
        return;
    }
    static std::once_flag once;
    std::call_once(once, [] {
        const bool debug = debugLoggingEnabled.boolValue();
        skipObjectTruncation = debugLogFullOutput.boolValue();
        switches().bits.fetch_or(Switches::initialized);
        switches().set(MZLogLevelDebug, debug);
    });
}

bool hasSwitch(std::int32_t level) {
    return level >= MZLogLevelDebug && level <= MZLogLevelCritical && level != MZLogLevelStderr;
}

void emit(std::int32_t level, std::string_view format, FormatArguments arguments) {
    loggingFunction.load()(level, format, arguments);
}

void emitIfOn(std::int32_t level,
              std::int32_t gate,
              std::string_view format,
              FormatArguments arguments) {
    initializeIfNeeded();
    if (switches().isOn(gate)) {
        emit(level, format, arguments);
    }
}

/// What stands before a line of the level, in both log functions.
std::string_view levelPrefix(std::int32_t level) {
    switch (level) {
        case MZLogLevelWarning:
            return "*** Warning: ";
        case MZLogLevelError:
            return "*** Error: ";
        case MZLogLevelCritical:
            return "*** Critical: ";
        default:
            return {};
    }
}

void DefaultLogFunction(std::int32_t level, std::string_view format, FormatArguments arguments) {
    const std::string message = MZLogMaskedMessage(format, arguments);
    velto::systemLog(level, std::string(levelPrefix(level)) + message);
    MZForwardMessageToLoggers(message, level);
}

/// Without the secrets that are registered, then without those of the setting, to the letter.
std::string withoutSecrets(std::string text) {
    std::string hidden = velto::hidingSecrets(std::move(text));
    for (const Value& secret : passwords.arrayValue()) {
        if (const std::string_view password = secret.string(); !password.empty()) {
            hidden = replaceAll(hidden, password, hiddenValue);
        }
    }
    return hidden;
}

/// Hides the value of one key where the text is JSON; only the first, and only if its closing
/// quotation mark is there.
std::string hidingJSONValue(std::string text, std::string_view marker) {
    const std::size_t found = findIgnoringCase(text, marker);
    if (found == std::string::npos) {
        return text;
    }
    const std::size_t start = found + marker.size();
    const std::size_t end = text.find('"', start);
    if (end != std::string::npos) {
        text.replace(start, end - start, hiddenValue);
    }
    return text;
}

/// Builds the loggable copy of a tree without recursion: one frame for each open container.
class LoggableCopy {
public:
    Value copy(const Value& object, std::size_t level) {
        begin(object, level);
        while (!frames_.empty()) {
            step();
        }
        return std::move(result_);
    }

private:
    static constexpr std::size_t maxEntries = 20;
    static constexpr std::size_t maxElements = 10;
    static constexpr std::size_t maxUnits = 80;

    struct Frame {
        Value source{};
        std::size_t level = 0;
        std::size_t index = 0;
        bool hasKey = false;
        Value key{};
        Array elements{};
        Dictionary entries{};
    };

    /// Either answers a leaf at once or opens a frame, whose end answers.
    void begin(const Value& object, std::size_t level) {
        if (object.isArray() || object.isDictionary()) {
            frames_.push_back(Frame{.source = object, .level = level});
        } else if (object.isNone()) {
            answer({});
        } else {
            answer(MZLoggableStringForStringWithMaxLength(
                object.isString() ? std::string(object.string()) : object.description(level),
                maxUnits));
        }
    }

    void answer(Value value) {
        if (frames_.empty()) {
            result_ = std::move(value);
            return;
        }
        Frame& frame = frames_.back();
        if (frame.source.isArray()) {
            frame.elements.append(std::move(value));
            ++frame.index;
        } else if (!frame.hasKey) {
            frame.key = std::move(value);
            frame.hasKey = true;
        } else {
            frame.entries.set(std::move(frame.key), std::move(value));
            frame.hasKey = false;
            ++frame.index;
        }
    }

    void step() {
        Frame& frame = frames_.back();
        if (frame.source.isArray()) {
            const Array source = frame.source.array();
            if (frame.index < std::min(source.size(), maxElements)) {
                begin(source[frame.index], frame.level + 1);
                return;
            }
            if (source.size() > maxElements) {
                frame.elements.append("…");
            }
            close(frame.elements);
            return;
        }
        const Dictionary source = frame.source.dictionary();
        if (frame.index < std::min(source.size(), maxEntries)) {
            const velto::DictionaryEntry& entry = source.begin()[frame.index];
            if (!frame.hasKey) {
                begin(entry.key, 0);
            } else if (isSecretKey(frame.key)) {
                answer(hiddenValue);
            } else {
                begin(entry.value, 0);  // Required: nested values restart at level 0.
            }
            return;
        }
        if (frame.entries.size() < source.size()) {
            frame.entries.set("…", "… truncated …");
        }
        close(frame.entries);
    }

    void close(Value finished) {
        frames_.pop_back();
        answer(std::move(finished));
    }

    static bool isSecretKey(const Value& key) {
        const std::string_view text = key.string();
        return text == "Password" || text == "SharedSecret" || text == "SessionId";
    }

    std::vector<Frame> frames_;
    Value result_;
};

/// Lines of the platform layer that have no caller to log them.
const bool platformLogHooked = [] {
    velto::setPlatformLogHook([](int level, std::string_view line) {
        const velto::FormatArgument argument(line);
        const std::int32_t gate = level == MZLogLevelStderr ? MZLogLevelError : level;
        emitIfOn(level, gate, "%@", FormatArguments(&argument, 1));
    });
    return true;
}();

}  // namespace

MZLogger::~MZLogger() = default;

std::shared_ptr<MZWeakLogger> MZWeakLogger::WeakLoggerWithLogger(
    const std::shared_ptr<MZLogger>& logger) {
    auto wrapper = std::make_shared<MZWeakLogger>();
    wrapper->setLogger(logger);
    return wrapper;
}

bool MZWeakLogger::containsLogger(const std::shared_ptr<MZLogger>& logger) const {
    return logger_.lock() == logger;
}

void MZLogDebugv(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelDebug, MZLogLevelDebug, format, arguments);
}

void MZLogInfov(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelInfo, MZLogLevelInfo, format, arguments);
}

void MZLogWarningv(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelWarning, MZLogLevelWarning, format, arguments);
}

void MZLogErrorv(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelError, MZLogLevelError, format, arguments);
}

void MZLogStderrv(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelStderr, MZLogLevelError, format, arguments);
}

void MZLogCriticalv(std::string_view format, FormatArguments arguments) {
    emitIfOn(MZLogLevelCritical, MZLogLevelCritical, format, arguments);
}

void MZLogv(std::string_view format, FormatArguments arguments) {
    initializeIfNeeded();
    emit(MZLogLevelInfo, format, arguments);  // Required: without asking the info switch.
}

void MZLoggingSetLogLevelEnabled(std::int32_t level, bool enabled) {
    if (hasSwitch(level)) {
        switches().set(level, enabled);
    } else {
        MZLogWarning("Unknown log level: %d", level);
    }
}

bool MZLoggingIsLogLevelEnabled(std::int32_t level) {
    if (hasSwitch(level)) {
        return switches().isOn(level);
    }
    MZLogWarning("Unknown log level: %d", level);
    return false;
}

MZLogFunction MZSetLogFunction(MZLogFunction function) {
    initializeIfNeeded();
    return function == nullptr ? loggingFunction.load() : loggingFunction.exchange(function);
}

void MZStdoutStderrLogFunction(std::int32_t level,
                               std::string_view format,
                               FormatArguments arguments) {
    const std::string message = MZLogMaskedMessage(format, arguments);
    const bool toOutput = level == MZLogLevelInfo || level > MZLogLevelCritical;
    std::FILE* const stream = toOutput ? stdout : stderr;
    std::string line(levelPrefix(level));
    line += velto::escapedLogLine(message);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fflush(stream);
    MZForwardMessageToLoggers(message, level);
}

void MZAddLogger(const std::shared_ptr<MZLogger>& logger) {
    initializeIfNeeded();
    Registry& all = registry();
    Guard guard(all.lock);
    all.loggers.push_back(MZWeakLogger::WeakLoggerWithLogger(logger));
}

void MZRemoveLogger(const std::shared_ptr<MZLogger>& logger) {
    if (logger == nullptr) {
        return;
    }
    Registry& all = registry();
    Guard guard(all.lock);
    const auto wrappers = all.loggers;  // a logger may end here, and log or remove others
    for (const std::shared_ptr<MZWeakLogger>& wrapper : wrappers) {
        if (wrapper->logger() == nullptr || wrapper->containsLogger(logger)) {
            std::erase(all.loggers, wrapper);
        }
    }
}

std::vector<std::shared_ptr<MZLogger>> MZGetLoggers() {
    std::vector<std::shared_ptr<MZLogger>> alive;
    Registry& all = registry();
    Guard guard(all.lock);
    for (const std::shared_ptr<MZWeakLogger>& wrapper : all.loggers) {
        if (std::shared_ptr<MZLogger> logger = wrapper->logger()) {
            alive.push_back(std::move(logger));
        }
    }
    return alive;
}

std::string MZLogMaskedMessage(std::string_view format, FormatArguments arguments) {
    return withoutSecrets(velto::formatArguments(format, arguments));
}

void MZForwardMessageToLoggers(std::string_view message, std::int32_t level) {
    Registry& all = registry();
    Guard guard(all.lock);
    if (all.loggers.empty()) {
        return;
    }
    const auto wrappers = all.loggers;  // a logger may add or remove loggers
    for (const std::shared_ptr<MZWeakLogger>& wrapper : wrappers) {
        try {
            if (const std::shared_ptr<MZLogger> logger = wrapper->logger()) {
                logger->LogMessage(message, level);
            }
        } catch (...) {  // a failing logger must not keep the line from the others
        }
    }
}

std::string MZLoggableStringForStringWithMaxLength(std::string_view string, std::size_t maxLength) {
    // Before the cut, which would leave the beginning of one.
    const std::string hidden = withoutSecrets(std::string(string));
    std::string result;
    if (hidden.size() <= maxLength || utf16Length(hidden) <= maxLength) {
        result = hidden;
    } else {
        try {
            result = utf16Prefix(hidden, maxLength) + "…";
        } catch (const std::exception& exception) {
            MZLogError("Exception getting loggable string from string %@ with index %lu: %@",
                       hidden, maxLength, std::string_view(exception.what()));
            throw;
        }
    }
    result = hidingJSONValue(std::move(result), R"("SharedSecret":")");
    return hidingJSONValue(std::move(result), R"("SessionId":")");
}

Value MZLoggableObjectForObjectAtLevel(const Value& object, std::size_t level) {
    return skipObjectTruncation.load() ? object : LoggableCopy().copy(object, level);
}

Value MZLoggableObjectForObject(const Value& object) {
    return MZLoggableObjectForObjectAtLevel(object, 0);
}
