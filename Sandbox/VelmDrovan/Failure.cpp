#include <VelmDrovan/Failure.h>

#include <set>

namespace sandbox {

std::string_view Fault::nextStep() const {
    switch (code) {
        case WrongPassword:
            return "Check the user name and the password.";
        case AccountLocked:
            return "Unlock the account with the store.";
        case CredentialRefused:
            return "Check which credentials were given, or get new ones.";
        case AppPasswordNeeded:
            return "Make an app-specific password for the account, and give that one.";
        case ProviderRefused:
        case ProviderNeeded:
            return "Name one of the account's providers.";
        case PackageMissing:
            return "Give the path of a package: a folder NAME.velmp.";
        case MetadataMissing:
        case MetadataMalformed:
        case MetadataIncomplete:
        case FileNameRefused:
            return "Correct metadata.xml in the package, then verify it again.";
        case FileMissing:
        case FileSizeWrong:
        case FileDigestWrong:
        case FileUnreadable:
            return "Put the right file into the package, or correct metadata.xml, then verify it "
                   "again.";
        case StoreUnwritable:
            return "Check the permissions of the store's folder, then try again.";
        case StoreFull:
            return "Make room in the store, then try again.";
        case StoreBusy:
            return "Wait for the other delivery of this package to end, then try again.";
        case BadCommandLine:
        case SecretOnCommandLine:
            return "Correct the command line that the tool was started with.";
        case BadConfiguration:
            return "Correct the file, or the variable that names it.";
        case Unexpected:
            return "Try again; with -v detailed the tool tells its steps.";
        default:
            return {};
    }
}

std::vector<std::string> messagesOf(const std::vector<Fault>& faults) {
    std::vector<std::string> messages;
    messages.reserve(faults.size());
    std::set<int> told;
    for (const auto& fault : faults) {
        messages.push_back(fault.message());
        if (const auto next = fault.nextStep(); !next.empty() && told.insert(fault.code).second)
            messages.back().append(". ").append(next);
    }
    return messages;
}

}  // namespace sandbox
