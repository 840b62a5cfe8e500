#include <Tests/Support/CapturedPlatformLog.h>

#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <mutex>
#include <string_view>

namespace velto::testing {

namespace {

std::mutex mutex;
std::vector<std::string> captured;

void capture(int level, std::string_view line) {
    const std::lock_guard guard(mutex);
    captured.push_back(std::to_string(level).append(1, ' ').append(line));
}

}  // namespace

CapturedPlatformLog::CapturedPlatformLog() {
    setPlatformLogHook(capture);
}

CapturedPlatformLog::~CapturedPlatformLog() {
    setPlatformLogHook(nullptr);
    const std::lock_guard guard(mutex);
    captured.clear();
}

std::vector<std::string> CapturedPlatformLog::lines() const {
    const std::lock_guard guard(mutex);
    return captured;
}

}  // namespace velto::testing
