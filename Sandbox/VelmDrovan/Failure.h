#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

namespace sandbox {

/// The codes that the tool prints in parentheses; README.md lists them.
enum Code : int {
    WrongPassword = -20101,
    AccountLocked = -20209,
    CredentialRefused = -20283,
    AppPasswordNeeded = -22938,
    ProviderRefused = -24001,
    ProviderNeeded = -24002,
    PackageMissing = -24101,
    MetadataMissing = -24102,
    MetadataMalformed = -24103,
    MetadataIncomplete = -24104,
    FileNameRefused = -24105,
    FileMissing = -24106,
    FileSizeWrong = -24107,
    FileDigestWrong = -24108,
    FileUnreadable = -24109,
    StoreUnwritable = -24201,
    StoreFull = -24202,
    StoreBusy = -24203,
    BadCommandLine = -24301,
    SecretOnCommandLine = -24302,
    BadConfiguration = -24901,  ///< The accounts or the scenario file.
    Unexpected = -24902,
    Unworded = 0,  ///< The text is the whole message.
};

/// One thing that is wrong, printed as one line.
struct Fault {
    int code;
    std::string text;
    std::string detail;  ///< Names and values; they follow the code, as they may hold parentheses.

    std::string message() const {
        if (code == Unworded)
            return text;
        const std::string start = text + " (" + std::to_string(code) + ")";
        return detail.empty() ? start : start + ": " + detail;
    }
    /// What to do against it; empty without a code.
    std::string_view nextStep() const;
};

/// One message for each fault; the first of each code also says what to do next.
std::vector<std::string> messagesOf(const std::vector<Fault>& faults);

/// Ends the run; main prints the faults and exits with `exitCode`.
class Failure : public std::exception {
public:
    static constexpr int Failed = 1;
    static constexpr int Usage = 2;

    explicit Failure(std::vector<Fault> faults, int exitCode = Failed)
        : faults_(std::move(faults)), exitCode_(exitCode) {}
    Failure(int code, std::string text, std::string detail = {}, int exitCode = Failed)
        : Failure({{code, std::move(text), std::move(detail)}}, exitCode) {}

    const std::vector<Fault>& faults() const { return faults_; }
    int exitCode() const { return exitCode_; }
    const char* what() const noexcept override { return "the run failed"; }

private:
    std::vector<Fault> faults_;
    int exitCode_;
};

}  // namespace sandbox
