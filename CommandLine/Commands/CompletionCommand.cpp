#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>

#include <array>

namespace velto::cli {

namespace {

constexpr std::array<std::string_view, 3> shells{"bash", "zsh", "fish"};

/// What asks `velto __complete` in each shell, in the same order.
constexpr std::array<std::string_view, 3> scripts{
    R"(# bash completion for velto; written by "velto completion bash"
_velto() {
    local typed="${COMP_WORDS[COMP_CWORD]}" word kind index before
    local -a words=()
    for ((index = 1; index <= COMP_CWORD; index++)); do
        word="${COMP_WORDS[index]}"
        # Readline cuts words at "=" and ":", too.
        if ((index > 1)) && [[ "$word" == [=:]* || "${COMP_WORDS[index - 1]}" == *[=:] ]]; then
            words[${#words[@]} - 1]+="$word"
        else
            words+=("$word")
        fi
    done
    [[ "$typed" == [=:] ]] && typed=""
    before="${words[${#words[@]} - 1]}"
    before="${before%"$typed"}"
    COMPREPLY=()
    {
        read -r kind
        while IFS=$'\t' read -r word _; do COMPREPLY+=("${word#"$before"}"); done
    } < <("${1/#~/$HOME}" __complete "${words[@]}" 2>/dev/null)
    case "$kind" in
        files) compopt -o default 2>/dev/null ;;
        folders) compopt -o dirnames 2>/dev/null ;;
    esac
}
complete -F _velto velto
)",
    R"(#compdef velto
# zsh completion for velto; written by "velto completion zsh"
_velto() {
    local word meaning kind
    local -a found
    {
        read -r kind
        while IFS=$'\t' read -r word meaning; do
            found+=("${word//:/\\:}:$meaning")
        done
    } < <("${(Q)words[1]/#\~/$HOME}" __complete "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)
    [[ "$kind" != words && "$PREFIX" == --*=* ]] && compset -P '*='
    case "$kind" in
        files) _files ;;
        folders) _files -/ ;;
        *) _describe velto found ;;
    esac
}
if [ "$funcstack[1]" = "_velto" ]; then _velto "$@"; else compdef _velto velto; fi
)",
    R"(# fish completion for velto; written by "velto completion fish"
function __velto_complete
    set -l words (commandline -opc)
    set -l typed (commandline -ct)
    set -l answer ($words[1] __complete $words[2..] $typed 2>/dev/null)
    set -l before (string match -r -- '^--[^=]*=' $typed)
    switch "$answer[1]"
        case files
            printf '%s\n' "$before"(__fish_complete_path (string replace -- "$before" '' $typed))
        case folders
            printf '%s\n' "$before"(__fish_complete_directories (string replace -- "$before" '' $typed) '')
        case '*'
            printf '%s\n' $answer[2..]
    end
end
complete -c velto -f -a '(__velto_complete)'
)"};

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    for (std::size_t index = 0; index < shells.size(); ++index) {
        if (invocation.operands.front() == shells[index]) {
            frontend.answerWithOwnText("script", scripts[index]);
        }
    }
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
        .settingsFile = SettingsFileUse::none,
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
