#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class MZAbstractToolExecutor;

/// What one run of a tool gave: command, output, status, time. One thread at a time.
class VELTO_EXPORT MZToolExecutorResult {
public:
    /// The executor's output so far, without a status.
    static std::shared_ptr<MZToolExecutorResult> resultWithTask(
        const MZAbstractToolExecutor& executor);
    explicit MZToolExecutorResult(const MZAbstractToolExecutor& executor);
    virtual ~MZToolExecutorResult();

    velto::TextEncoding outputEncoding() const { return outputEncoding_; }
    void setOutputEncoding(velto::TextEncoding encoding) { outputEncoding_ = encoding; }
    const std::optional<std::string>& commandString() const { return commandString_; }
    void setCommandString(std::optional<std::string> command) {
        commandString_ = std::move(command);
    }
    const velto::Data& standardOutput() const { return standardOutput_; }
    void setStandardOutput(velto::Data output) { standardOutput_ = std::move(output); }
    const velto::Data& standardError() const { return standardError_; }
    void setStandardError(velto::Data output) { standardError_ = std::move(output); }
    /// The exit status; none when the task never ran.
    std::optional<std::int64_t> errorCode() const { return errorCode_; }
    void setErrorCode(std::optional<std::int64_t> code) { errorCode_ = code; }
    /// Set when the task could not be created.
    const velto::Error& error() const { return error_; }
    void setError(velto::Error error) { error_ = std::move(error); }
    double timeToExecute() const { return timeToExecute_; }  ///< Seconds.
    void setTimeToExecute(double seconds) { timeToExecute_ = seconds; }
    const std::optional<std::string>& toolName() const { return toolName_; }
    void setToolName(std::optional<std::string> name) { toolName_ = std::move(name); }

    /// None without output; output that is not valid in its encoding reads as ISO Latin-1.
    std::optional<std::string> standardOutputString() const;
    /// None for output that is not valid in its encoding.
    std::optional<std::string> standardErrorString() const;
    std::string errorCodeString() const;  ///< "0" without a status.

    /// "command", "stdout", "stderr", "error-code", "seconds-to-execute", "tool-name", each when
    /// there is something to say; none when the task never ran.
    std::optional<velto::Dictionary> describeAsPlist() const;

private:
    velto::TextEncoding outputEncoding_;
    std::optional<std::string> commandString_;
    velto::Data standardOutput_;
    velto::Data standardError_;
    std::optional<std::int64_t> errorCode_;
    velto::Error error_;
    double timeToExecute_ = 0;
    std::optional<std::string> toolName_;
};
