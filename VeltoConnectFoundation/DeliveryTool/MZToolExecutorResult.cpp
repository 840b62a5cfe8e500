#include <VeltoConnectFoundation/DeliveryTool/MZToolExecutorResult.h>

#include <VeltoConnectFoundation/DeliveryTool/MZAbstractToolExecutor.h>
#include <VeltoConnectFoundation/Platform/Format.h>

std::shared_ptr<MZToolExecutorResult> MZToolExecutorResult::resultWithTask(
    const MZAbstractToolExecutor& executor) {
    return std::make_shared<MZToolExecutorResult>(executor);
}

MZToolExecutorResult::MZToolExecutorResult(const MZAbstractToolExecutor& executor)
    : outputEncoding_(executor.outputEncoding()),
      standardOutput_(executor.standardOut()),
      standardError_(executor.standardError()) {
}

MZToolExecutorResult::~MZToolExecutorResult() = default;

std::optional<std::string> MZToolExecutorResult::standardOutputString() const {
    if (standardOutput_.isEmpty()) {
        return std::nullopt;
    }
    std::optional<std::string> text = velto::decodeText(standardOutput_.view(), outputEncoding_);
    if (!text || text->empty()) {
        text = velto::decodeText(standardOutput_.view(), velto::TextEncoding::isoLatin1);
    }
    return text;
}

std::optional<std::string> MZToolExecutorResult::standardErrorString() const {
    // Required: no second encoding here, unlike standard output.
    return velto::decodeText(standardError_.view(), outputEncoding_);
}

std::string MZToolExecutorResult::errorCodeString() const {
    return velto::format("%ld", errorCode_.value_or(0));
}

std::optional<velto::Dictionary> MZToolExecutorResult::describeAsPlist() const {
    if (!errorCode_) {
        return std::nullopt;
    }
    velto::Dictionary plist;
    const auto setText = [&plist](std::string_view key, const std::optional<std::string>& text) {
        if (text && !text->empty()) {
            plist.set(key, *text);
        }
    };
    if (commandString_) {
        plist.set("command", *commandString_);
    }
    setText("stdout", standardOutputString());
    setText("stderr", standardErrorString());
    // Required: the low 32 bits decide.
    if (static_cast<std::int32_t>(*errorCode_) != 0) {
        plist.set("error-code", errorCodeString());
    }
    plist.set("seconds-to-execute", timeToExecute_);
    if (toolName_) {
        plist.set("tool-name", *toolName_);
    }
    return plist;
}
