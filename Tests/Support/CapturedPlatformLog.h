#pragma once

#include <string>
#include <vector>

namespace velto::testing {

/// Takes the platform's caller-less lines instead of the log, for a scope. One at a time.
class CapturedPlatformLog {
public:
    CapturedPlatformLog();
    ~CapturedPlatformLog();
    CapturedPlatformLog(const CapturedPlatformLog&) = delete;
    CapturedPlatformLog& operator=(const CapturedPlatformLog&) = delete;

    /// Each as "LEVEL TEXT", in order.
    std::vector<std::string> lines() const;
};

}  // namespace velto::testing
