#include <CommandLine/Completion.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>

#include <array>

namespace velto::cli {

namespace {

constexpr std::array<std::string_view, 3> shells{"bash", "zsh", "fish"};

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    const std::string& shell = invocation.operands.front();
    frontend.console().print(Console::Stream::output, shell == "bash"  ? bashCompletion()
                                                      : shell == "zsh" ? zshCompletion()
                                                                       : fishCompletion());
    return ExitCode::done;
}

}  // namespace

const Command& completionCommand() {
    static const Command command{
        .name = "completion",
        .summary = "print the completion of a shell",
        .description =
            "Prints the script that completes velto in a shell. An installation brings all three.",
        .operands = {{.name = "bash|zsh|fish", .choices = shells}},
        .examples = {{"source <(velto completion bash)", "completion in this shell"},
                     {"velto completion fish > ~/.config/fish/completions/velto.fish", "for good"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
