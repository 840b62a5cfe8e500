#include <CommandLine/Tool.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovan.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>

namespace velto::cli {

std::optional<std::string> findTool(const Invocation& invocation, Failure& failure) {
    failure = {.exitCode = ExitCode::toolNotFound,
               .what = localized("The delivery tool VelmDrovan was not found."),
               .next = localized("Install the tool, or name it with --tool PATH or with "
                                 "velto config set VeltoDrovanExecutablePath PATH.")};
    if (const auto path = invocation.value(toolOption)) {
        if (FileManager::isExecutable(FileManager::expandingTilde(*path))) {
            return FileManager::expandingTilde(*path);
        }
        failure.why.push_back(localizedFormat("There is no program at %@.", printable(*path)));
        return std::nullopt;
    }
    if (auto path = VeltoDrovan::overridenDrovanPath()) {
        return path;
    }
    for (const std::string& path : VeltoDrovan::drovanPaths()) {
        std::string why = localizedFormat("There is no program at %@.", printable(path));
        if (std::ranges::find(failure.why, why) == failure.why.end()) {
            failure.why.push_back(std::move(why));
        }
    }
    return std::nullopt;
}

}  // namespace velto::cli
