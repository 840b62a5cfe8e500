#include <CommandLine/CommonOptions.h>
#include <CommandLine/Completion.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Guardian.h>
#include <CommandLine/Help.h>
#include <CommandLine/Interrupts.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Logs.h>
#include <CommandLine/Settings.h>
#include <CommandLine/Terminal.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <fcntl.h>
#include <libintl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <exception>
#include <span>
#include <system_error>
#include <utility>

namespace velto::cli {

namespace {

/// One that is closed would become that of some other file. In the wrong direction, so that using
/// it is an error.
void keepStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            // The lowest number that is free is this one.
            ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

ExitCode runCommand(Frontend& frontend,
                    const Invocation& invocation,
                    const std::vector<std::string>& arguments) {
    Failure failure;
    std::vector<std::string> warnings;
    const bool isReady = applySettings(invocation, frontend.secrets().settings, warnings, failure);
    for (const std::string& warning : warnings) {
        frontend.warn(warning);
    }
    // Not before: logging reads its settings when it is first touched.
    Logs logs(frontend);
    Failure failureOfLog;
    const bool isLogged = logs.open(invocation, arguments, failureOfLog);
    ExitCode code = ExitCode::failed;
    try {
        code = isReady && isLogged ? invocation.command->run(frontend, invocation)
                                   : frontend.fail(isReady ? failureOfLog : failure);
    } catch (const std::exception& exception) {
        failure = {.what = localized("Something went wrong that should not have."),
                   .why = {printable(exception.what())},
                   .next = localized("Please report it, with what --log-file FILE writes.")};
        code = frontend.fail(failure);
    }
    logs.end(code);
    return code;
}

/// All was well, but standard output could not be written.
ExitCode unheard(Frontend& frontend, const Invocation& invocation) {
    const int problem = frontend.console().problem();
    if (problem == EPIPE) {
        // Who reads has enough: `| head -1`.
        return ExitCode::done;
    }
    const bool isDone = invocation.command != nullptr && invocation.command->acts;
    frontend.complain(
        {.what = localized("Standard output could not be written."),
         .why = {std::generic_category().message(problem)},
         .next = isDone
                     ? localized("Nothing needs to be done again: only the report of it is lost.")
                     : localized("Check where the output goes, such as a full disk.")});
    return isDone ? ExitCode::done : ExitCode::failed;
}

ExitCode run(Frontend& frontend, const std::vector<std::string>& arguments) {
    if (!arguments.empty() && arguments.front() == completionWord) {
        frontend.console().print(Console::Stream::output,
                                 completions(std::span(arguments).subspan(1)));
        return ExitCode::done;
    }
    const Command* command = nullptr;
    Failure failure;
    const auto invocation = Invocation::parse(arguments, command, failure);
    if (!invocation) {
        // A program reads nothing else, also when it has typed something wrong.
        if (std::ranges::find(arguments, "--json") != arguments.end()) {
            frontend.configureForJSON(command);
        }
        return frontend.fail(failure);
    }
    frontend.configure(*invocation);
    Console& console = frontend.console();
    ExitCode code = ExitCode::done;
    if (invocation->has(versionOption)) {
        const std::string version(libraryVersion());
        frontend.answerWithOwnText("version",
                                   frontend.printsJSON() ? version : "velto " + version + "\n");
    } else if (invocation->has(helpOption)) {
        frontend.answerWithOwnText("help", helpText(invocation->command, console));
    } else if (invocation->command == nullptr || invocation->command->run == nullptr) {
        code = ExitCode::usage;
        if (frontend.printsJSON()) {
            frontend.fail(
                usageFailure(localized("A command is missing."), helpHint(invocation->command)));
        } else {
            console.print(Console::Stream::errors, helpText(invocation->command, console));
        }
    } else {
        code = runCommand(frontend, *invocation, arguments);
    }
    if (code == ExitCode::done && !console.isComplete()) {
        return unheard(frontend, *invocation);
    }
    return code;
}

}  // namespace

}  // namespace velto::cli

int main(int count, char** arguments) {
    using namespace velto;
    using namespace velto::cli;
    forbidMemoryDumps();
    if (const auto status = Guardian::runIfMeant(count, arguments)) {
        return *status;
    }
    keepStandardDescriptors();
    EnvironmentSecrets secrets = EnvironmentSecrets::take();
    std::setlocale(LC_ALL, "");  // locale: characters and messages as the user has them
    // The system's own words are texts like ours, until they are printed.
    ::bind_textdomain_codeset("libc", "UTF-8");
    try {
        Interrupts interrupts;
        Bundle::setApplication("commandline.velto.invalid", "velto", libraryVersion());
        MainQueue::runOnOwnThread();
        Frontend frontend(interrupts, std::move(secrets));
        return static_cast<int>(run(frontend, {arguments + std::min(count, 1), arguments + count}));
    } catch (const std::exception& exception) {
        // There is nothing yet to print with.
        writeAll(STDERR_FILENO, "velto: " + localized("The system gives too little to begin:") +
                                    " " + exception.what() + "\n");
        return static_cast<int>(ExitCode::tryAgain);
    }
}
