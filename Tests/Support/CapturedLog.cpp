#include <Tests/Support/CapturedLog.h>

namespace velto::testing {

namespace {

void forwardOnly(std::int32_t level, std::string_view format, velto::FormatArguments arguments) {
    MZForwardMessageToLoggers(MZLogMaskedMessage(format, arguments), level);
}

}  // namespace

class CapturedLog::Sink final : public MZLogger {
public:
    void LogMessage(std::string_view message, std::int32_t level) override {
        Guard guard(lock);
        lines.push_back({level, std::string(message)});
    }

    Lock lock;
    std::vector<Line> lines VELTO_GUARDED_BY(lock);
};

CapturedLog::CapturedLog()
    : sink_(std::make_shared<Sink>()),
      previous_(MZSetLogFunction(&forwardOnly)),
      debugBefore_(MZLoggingIsLogLevelEnabled(MZLogLevelDebug)) {
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, true);
    MZAddLogger(sink_);
}

CapturedLog::~CapturedLog() {
    MZRemoveLogger(sink_);
    MZLoggingSetLogLevelEnabled(MZLogLevelDebug, debugBefore_);
    MZSetLogFunction(previous_);
}

std::vector<CapturedLog::Line> CapturedLog::lines() const {
    Guard guard(sink_->lock);
    return sink_->lines;
}

std::vector<std::string> CapturedLog::messages() const {
    std::vector<std::string> all;
    for (const Line& line : lines()) {
        all.push_back(line.message);
    }
    return all;
}

bool CapturedLog::contains(std::string_view part) const {
    for (const Line& line : lines()) {
        if (line.message.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void CapturedLog::clear() {
    Guard guard(sink_->lock);
    sink_->lines.clear();
}

}  // namespace velto::testing
