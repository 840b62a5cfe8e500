#pragma once

#include <VeltoConnectFoundation/Platform/Format.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Every component reports through these functions: six levels, each with its own switch, one
/// replaceable log function, and loggers that receive every line. Any thread.
///
/// Formats are in the platform's string-format syntax. A call whose level is off costs one
/// atomic load and formats nothing. Both log functions of the library hide registered secrets (see
/// SecretRegistry.h) and the strings of the setting "VeltoPasswords" in every line before it goes
/// anywhere, and write it as escapedLogLine has it; loggers get it unescaped.
enum MZLogLevel : std::int32_t {
    MZLogLevelDebug = 0,  ///< Off unless the setting "VeltoConnectDebugLoggingEnabled" is true.
    MZLogLevelInfo = 1,
    MZLogLevelWarning = 2,
    MZLogLevelError = 3,
    MZLogLevelStderr = 4,  ///< Has no switch of its own: the error switch gates it.
    MZLogLevelCritical = 5,
};

/// Receives every line that is emitted, without level prefix and with secrets hidden.
///
/// Lines come one at a time, under the registry's lock: never wait there for a thread that logs.
/// What it throws is dropped.
class VELTO_EXPORT MZLogger {
public:
    virtual ~MZLogger();
    virtual void LogMessage(std::string_view message, std::int32_t level) = 0;
};

/// Writes one line; gets the format and its arguments unexpanded. See MZLogMaskedMessage.
using MZLogFunction = void (*)(std::int32_t level,
                               std::string_view format,
                               velto::FormatArguments arguments);

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"  // C++ callers only; the names are C's
#endif
extern "C" {

VELTO_EXPORT void MZLogDebugv(std::string_view format, velto::FormatArguments arguments);
VELTO_EXPORT void MZLogInfov(std::string_view format, velto::FormatArguments arguments);
VELTO_EXPORT void MZLogWarningv(std::string_view format, velto::FormatArguments arguments);
VELTO_EXPORT void MZLogErrorv(std::string_view format, velto::FormatArguments arguments);
VELTO_EXPORT void MZLogStderrv(std::string_view format, velto::FormatArguments arguments);
VELTO_EXPORT void MZLogCriticalv(std::string_view format, velto::FormatArguments arguments);
/// Level 1 whatever the info switch says.
VELTO_EXPORT void MZLogv(std::string_view format, velto::FormatArguments arguments);

/// Levels 0, 1, 2, 3 and 5; any other logs the warning "Unknown log level: %d". A debug switch
/// that is set before the first line is overwritten when the first line reads the settings.
VELTO_EXPORT void MZLoggingSetLogLevelEnabled(std::int32_t level, bool enabled);
VELTO_EXPORT bool MZLoggingIsLogLevelEnabled(std::int32_t level);

/// Returns the function that was in place; null only asks.
VELTO_EXPORT MZLogFunction MZSetLogFunction(MZLogFunction function);
/// For command-line hosts: info to standard output, the rest to standard error.
VELTO_EXPORT void MZStdoutStderrLogFunction(std::int32_t level,
                                            std::string_view format,
                                            velto::FormatArguments arguments);

/// The registry holds loggers weakly and does not look for duplicates.
VELTO_EXPORT void MZAddLogger(const std::shared_ptr<MZLogger>& logger);
/// Removes every entry of the logger and of loggers that are gone; null is ignored.
VELTO_EXPORT void MZRemoveLogger(const std::shared_ptr<MZLogger>& logger);
VELTO_EXPORT std::vector<std::shared_ptr<MZLogger>> MZGetLoggers();

/// The finished line with secrets hidden, for a host's own log function.
VELTO_EXPORT std::string MZLogMaskedMessage(std::string_view format,
                                            velto::FormatArguments arguments);
/// Hands a finished line to the loggers, for a host's own log function.
VELTO_EXPORT void MZForwardMessageToLoggers(std::string_view message, std::int32_t level);

/// With secrets hidden as in a log line; at most `maxLength` UTF-16 units and "…"; hides the first
/// JSON value of each of the keys SharedSecret and SessionId (in any case).
VELTO_EXPORT std::string MZLoggableStringForStringWithMaxLength(std::string_view string,
                                                                std::size_t maxLength);
/// A copy fit for a log line: large values cut, "Password", "SharedSecret" and "SessionId"
/// entries hidden. The object itself when the setting "VeltoConnectDebugLogFullOutput" is true.
VELTO_EXPORT velto::Value MZLoggableObjectForObjectAtLevel(const velto::Value& object,
                                                           std::size_t level);
VELTO_EXPORT velto::Value MZLoggableObjectForObject(const velto::Value& object);

}  // extern "C"
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

/// A registry entry: a weak reference with the identity of its own.
class VELTO_EXPORT MZWeakLogger {
public:
    static std::shared_ptr<MZWeakLogger> WeakLoggerWithLogger(
        const std::shared_ptr<MZLogger>& logger);

    bool containsLogger(const std::shared_ptr<MZLogger>& logger) const;
    std::shared_ptr<MZLogger> logger() const { return logger_.lock(); }
    void setLogger(const std::shared_ptr<MZLogger>& logger) { logger_ = logger; }

private:
    std::weak_ptr<MZLogger> logger_;
};

namespace velto::detail {
/// Bits 0 to 5: the level goes on to its v form (4 follows 3); all are set until the first line
/// has read the settings.
extern VELTO_EXPORT std::atomic<std::uint32_t> logGate;

inline bool logGateOpen(std::int32_t level) noexcept {
    return ((logGate.load(std::memory_order_relaxed) >> level) & 1U) != 0;
}
}  // namespace velto::detail

#define VELTO_LOG_FUNCTION(name, level)                                                  \
    template <class... Arguments>                                                        \
    void name(velto::FormatString<Arguments...> format, const Arguments&... arguments) { \
        if (velto::detail::logGateOpen(level)) [[unlikely]] {                            \
            const std::array<velto::FormatArgument, sizeof...(Arguments)> packed{        \
                velto::FormatArgument(arguments)...};                                    \
            name##v(format.get(), packed);                                               \
        }                                                                                \
    }
VELTO_LOG_FUNCTION(MZLogDebug, MZLogLevelDebug)
VELTO_LOG_FUNCTION(MZLogInfo, MZLogLevelInfo)
VELTO_LOG_FUNCTION(MZLogWarning, MZLogLevelWarning)
VELTO_LOG_FUNCTION(MZLogError, MZLogLevelError)
VELTO_LOG_FUNCTION(MZLogStderr, MZLogLevelStderr)
VELTO_LOG_FUNCTION(MZLogCritical, MZLogLevelCritical)
#undef VELTO_LOG_FUNCTION

/// Cannot be silenced by turning info off, unlike MZLogInfo.
template <class... Arguments>
void MZLog(velto::FormatString<Arguments...> format, const Arguments&... arguments) {
    const std::array<velto::FormatArgument, sizeof...(Arguments)> packed{
        velto::FormatArgument(arguments)...};
    MZLogv(format.get(), packed);
}
