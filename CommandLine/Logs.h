#pragma once

#include <CommandLine/Failure.h>

#include <memory>

class MZLogger;

namespace velto::cli {

class Console;
class Invocation;

/// Where log lines go while it lives: to standard error with --verbose, to the file of --log-file;
/// what is critical always to standard error. Never to the system's log.
class Logs {
public:
    explicit Logs(Console& console);
    ~Logs();
    Logs(const Logs&) = delete;
    Logs& operator=(const Logs&) = delete;

    bool open(const Invocation& invocation, Console& console, Failure& failure);

private:
    std::shared_ptr<MZLogger> consoleLogger_;
    std::shared_ptr<MZLogger> fileLogger_;
};

}  // namespace velto::cli
