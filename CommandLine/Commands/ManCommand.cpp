#include <CommandLine/Frontend.h>
#include <CommandLine/Help.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <algorithm>

namespace velto::cli {

namespace {

struct Entry {
    std::string_view term;
    std::string_view meaning;
};

constexpr Entry objects[] = {
    {"phase", "A phase begins: phase (text), elapsed (seconds since the start)."},
    {"progress",
     "At most twice a second: phase, elapsed; and as far as it is known percent (0 to 100), "
     "completed "
     "and size (bytes), rate (bytes a second), remaining (seconds)."},
    {"message", "Something worth knowing: level (warning or info), text."},
    {"result",
     "The last object, also of every other command: command, outcome (done, failed, stopped, or "
     "unconfirmed: the delivery tool ended without saying that the work is done), exitCode. Of a "
     "failure also what, why (a list), next, and errors (a list of domain, code and "
     "text). Of verify and upload also package, store, seconds, size, completed, and its parts "
     "sent and skipped (bytes, as the tool told them; skipped was at the store before), "
     "packageName (as the store named it), warnings, notes and output (what the tool answered)."},
};

constexpr Entry variables[] = {
    {"VELTO_PASSWORD", "The user's password."},
    {"VELTO_SESSION_ID, VELTO_SHARED_SECRET", "A session, instead of a password."},
    {"NO_COLOR", "When it is not empty, no colours are used."},
    {"LANGUAGE, LC_ALL, LC_MESSAGES, LANG", "The language of the messages."},
};

/// Text in the language of manual pages.
class Page {
public:
    void section(std::string_view title) { text += ".SH \"" + escaped(title) + "\"\n"; }
    void subsection(std::string_view title) { text += ".SS \"" + escaped(title) + "\"\n"; }
    void paragraph(std::string_view words) { text += ".PP\n" + line(words); }
    void entry(std::string_view term, std::string_view meaning) {
        text += ".TP\n\\fB" + escaped(term) + "\\fR\n" + line(meaning);
    }
    void code(std::string_view words) { text += ".PP\n.nf\n" + line(words) + ".fi\n"; }

    std::string text;

private:
    static std::string escaped(std::string_view words) {
        std::string result;
        for (const char character : words) {
            if (character == '\\') {
                result += "\\e";
            } else if (character == '-') {
                result += "\\-";
            } else if (character == '"') {
                result += "\\(dq";
            } else if (character == '\'') {
                result += "\\(aq";
            } else {
                result += character;
            }
        }
        return result;
    }
    /// A full stop at the start of a line would be a request.
    static std::string line(std::string_view words) { return "\\&" + escaped(words) + "\n"; }
};

void writeOptions(Page& page, const OptionGroup& group) {
    for (const Option* option : group.options) {
        page.entry(optionText(*option), std::string(option->help) + ".");
    }
}

void writeCommand(Page& page, const Command& command) {
    page.subsection(usageOf(command));
    page.paragraph(command.description);
    for (const OptionGroup& group : command.groups) {
        writeOptions(page, group);
    }
}

std::string manualPage() {
    Page page;
    page.text =
        ".TH VELTO 1 \"\" \"velto " + std::string(libraryVersion()) + "\" \"User Commands\"\n";
    page.section("NAME");
    page.text += "velto \\- verify content packages and deliver them to their stores\n";
    page.section("SYNOPSIS");
    page.code("velto COMMAND [ARGUMENTS] [OPTIONS]");
    page.section("DESCRIPTION");
    page.paragraph(
        "velto checks content packages with the Velto Store, the Ovalis, Zarnet Books and Zarnet "
        "Services, and delivers them. It drives a delivery tool, the program VelmDrovan, as a "
        "child "
        "process. On a terminal it shows one live line while it works; elsewhere a line for each "
        "phase, "
        "and at least one in 30 seconds.");
    page.section("COMMANDS");
    for (const Command* command : allCommands()) {
        writeCommand(page, *command);
    }
    page.section("COMMON OPTIONS");
    writeOptions(page, commonOptions());
    page.section("EXIT STATUS");
    for (const ExitCodeMeaning& meaning : exitCodeMeanings()) {
        page.entry(std::to_string(static_cast<int>(meaning.code)),
                   std::string(meaning.meaning) + ".");
    }
    page.paragraph(
        "Of several errors, a refused sign-in decides, then one that will not pass by itself. "
        "The codes that do not end with 1:");
    for (const FailureKind& kind : failureKinds()) {
        if (kind.exitCode != ExitCode::failed) {
            page.entry(std::string(kind.domain) + (kind.code == FailureKind::anyCode
                                                       ? std::string()
                                                       : " " + std::to_string(kind.code)),
                       std::to_string(static_cast<int>(kind.exitCode)) + ". " + kind.next);
        }
    }
    page.section("JSON");
    page.paragraph("With --json, standard output holds one object a line, whose type is one of:");
    for (const Entry& object : objects) {
        page.entry(object.term, object.meaning);
    }
    page.paragraph(
        "With --quiet only the result. Objects and keys may be added; what is here stays.");
    page.section("ENVIRONMENT");
    for (const Entry& variable : variables) {
        page.entry(variable.term, variable.meaning);
    }
    page.entry("VELTO_KEY", "The setting KEY, in capitals: see SETTINGS.");
    page.section("SETTINGS");
    page.paragraph(configCommand().description);
    for (const Setting* setting : UserDefaults::declaredSettings()) {
        const std::string value = settingText(*setting, setting->registeredDefault());
        page.entry(setting->key(),
                   std::string(setting->meaning()) + (value.empty() ? "." : " (" + value + ")."));
    }
    page.section("FILES");
    page.entry("~/.config/velto/",
               "The user's settings; see velto config path. Private keys may lie in "
               "its folder private-keys.");
    page.section("EXAMPLES");
    for (const Command* command : allCommands()) {
        for (const Example& example : command->examples) {
            page.entry(example.line, example.meaning);
        }
    }
    return page.text;
}

ExitCode run(Frontend& frontend, const Invocation&) {
    frontend.console().print(Console::Stream::output, manualPage());
    return ExitCode::done;
}

}  // namespace

const Command& manCommand() {
    static const Command command{
        .name = "man",
        .summary = "print the manual page",
        .description =
            "Prints the manual page, in the language of man pages. An installation brings it.",
        .examples = {{"velto man | man -l -", "reads it"}},
        .settingsFile = SettingsFileUse::none,
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
