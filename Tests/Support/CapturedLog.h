#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Work/MZLog.h>

#include <string>
#include <utility>
#include <vector>

namespace velto::testing {

/// Collects every emitted line while it lives, whatever the log function, and keeps the lines off
/// the system's log.
class CapturedLog final {
public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    struct Line {
        std::int32_t level;
        std::string message;
        friend bool operator==(const Line&, const Line&) = default;
    };
    std::vector<Line> lines() const;
    std::vector<std::string> messages() const;
    bool contains(std::string_view part) const;  ///< In any line.
    void clear();

private:
    class Sink;
    std::shared_ptr<Sink> sink_;
    MZLogFunction previous_;
    bool debugBefore_;
};

}  // namespace velto::testing
