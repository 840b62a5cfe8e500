#pragma once

#include <CommandLine/Failure.h>

#include <memory>

class MZLogger;

namespace velto::cli {

class Frontend;
class Invocation;

/// Where log lines go while it lives: to standard error with --verbose, to the file of --log-file;
/// what is critical always to standard error. Never to the system's log. A record begins with its
/// time and level (in the file) or its level; each further line of it is indented.
class Logs {
public:
    explicit Logs(Frontend& frontend);
    ~Logs();
    Logs(const Logs&) = delete;
    Logs& operator=(const Logs&) = delete;

    /// Where the options say; the log begins with the version and the command line, without the
    /// secrets that may be in it.
    bool open(const Invocation& invocation,
              const std::vector<std::string>& arguments,
              Failure& failure);
    /// The last line of the log. A run that ends at once by the user's wish has it without.
    void end(ExitCode code);

private:
    Frontend& frontend_;
    std::shared_ptr<MZLogger> consoleLogger_;
    std::shared_ptr<MZLogger> fileLogger_;
};

}  // namespace velto::cli
