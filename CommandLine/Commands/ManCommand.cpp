#include <CommandLine/Frontend.h>
#include <CommandLine/Help.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Settings.h>
#include <VeltoConnectFoundation/Platform/Clock.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

namespace velto::cli {

namespace {

struct Entry {
    std::string_view term;
    std::string_view meaning;
};

constexpr Entry objects[] = {
    {"phase",
     "A phase begins: id (the same in every language), phase (its text), elapsed (seconds since "
     "the start)."},
    {"progress",
     "At most twice a second: id, phase, elapsed; and as far as it is known percent (0 to 100), "
     "completed and size (bytes), rate (bytes a second), remaining (seconds)."},
    {"message", "Something worth knowing: level (warning or info), text."},
    {"digest", "The sum of a file: file, md5."},
    {"check",
     "An entry of a list of sums: file, expected, md5 (if it could be read), outcome (ok, wrong or "
     "unreadable)."},
    {"result",
     "The last object of every run, and the only one of its type: command (empty when none was "
     "understood), outcome (done, failed, stopped, or unconfirmed: the delivery tool ended without "
     "saying that the work is done), exitCode. Of what is not done also what, why (a list), next, "
     "and errors (a list of domain, code and text)."},
};

/// What the result of a command holds besides.
constexpr Entry results[] = {
    {"verify, upload",
     "package, store, seconds, size, completed, and its parts sent and skipped (bytes, as the tool "
     "told them; skipped was at the store before), packageName (as the store named it), warnings, "
     "notes, output (what the tool answered)."},
    {"package create",
     "package, video, provider, vendorID, mediaType, assetType, size, md5, seconds."},
    {"package inspect",
     "package, provider, vendorID, mediaType, holds, files (a list of name, assetType, role, "
     "statedSize, statedMd5, size, md5 and holds), undescribedFiles."},
    {"digest --check", "checked, wrong, unreadable and malformed (counts)."},
    {"tool locate, tool version, tool command",
     "path; of --all places (a list of path and found), of the others version or arguments."},
    {"config list", "settings: a list of key, value, layer and meaning."},
    {"config get, config set, config unset, config path",
     "key, value and layer; key and file; key; path. A value is of the kind that its setting has, "
     "null when it is not set."},
    {"man, completion, --help, --version", "page; script; help; version."},
};

constexpr Entry variables[] = {
    {"VELTO_PASSWORD", "The user's password."},
    {"VELTO_SESSION_ID, VELTO_SHARED_SECRET", "A session, instead of a password."},
    {"NO_COLOR", "When it is not empty, no colours are used."},
    {"LANGUAGE, LC_ALL, LC_MESSAGES, LANG", "The language of the messages."},
};

constexpr Entry files[] = {
    {"~/.config/velto/config.toml",
     "The user's settings, in TOML; see velto config path. At most a mebibyte, and 64 levels deep. "
     "It is not used when somebody other than root or you may have put it there, or may write it. "
     "A "
     "key that is no setting is a warning, a value that a setting cannot have an error that names "
     "its line."},
    {"token file (--token-file)",
     "A property list, in XML or binary, of at most a mebibyte: the dictionary that the store's "
     "sign-in answered. Its text rovquill is the token. Whatever else it holds is not used, but an "
     "answer of a failed sign-in (userString or resultString) is shown."},
    {"ID.p8 (--api-key ID)",
     "The private key of an API key, as the store gave it: a PEM file with an unencrypted key of "
     "the curve P-256, of at most 64 kibibytes. It is looked for in the folder of --key-folder or "
     "VeltoPrivateKeysPath, then in ~/.config/velto/private-keys. A token or key file that cannot "
     "be used ends with 4; one that other users may read gets a warning."},
    {"~/.config/velm/private-keys/ID.p8",
     "Where the delivery tool itself looks for the key, unless VELM_PRIVATE_KEYS names another "
     "folder. When it is there the tool signs with it. When it lies elsewhere velto signs, and the "
     "signed token, good for 20 minutes, is one of the tool's arguments, which every user of the "
     "machine can read while the tool runs."},
};

/// Text in the language of manual pages.
class Page {
public:
    void section(std::string_view title) { head(".SH", title); }
    void subsection(std::string_view title) { head(".SS", title); }
    void paragraph(std::string_view words) {
        for (const std::string_view part : split(words, "\n")) {
            beginParagraph();
            filled(part);
        }
    }
    void entry(std::string_view term, std::string_view meaning) {
        text += ".TP\n\\fB" + escaped(term) + "\\fR\n";
        filled(meaning);
        isAfterTitle_ = false;
    }
    void code(std::string_view words) {
        beginParagraph();
        text += ".nf\n\\&" + escaped(words) + "\n.fi\n";
    }

    std::string text;

private:
    void head(std::string_view request, std::string_view title) {
        text.append(request).append(" \"").append(escaped(title)).append("\"\n");
        isAfterTitle_ = true;
    }
    /// A title begins one by itself.
    void beginParagraph() {
        text += isAfterTitle_ ? "" : ".PP\n";
        isAfterTitle_ = false;
    }
    /// In lines that an editor can show.
    void filled(std::string_view words) {
        constexpr std::size_t widest = 78;
        std::string line;
        const auto end = [&] {
            // A full stop at the start of a line would be a request.
            text += (line.starts_with('.') ? "\\&" : "") + line + "\n";
            line.clear();
        };
        for (const std::string_view word : split(words, " ")) {
            const std::string next = escaped(word);
            if (!line.empty() && line.size() + 1 + next.size() > widest) {
                end();
            }
            line.append(line.empty() ? "" : " ").append(next);
        }
        end();
    }
    static std::string escaped(std::string_view words) {
        constexpr std::pair<char, std::string_view> special[] = {
            {'\\', "\\e"},  {'-', "\\-"},   {'"', "\\(dq"}, {'\'', "\\(aq"},
            {'`', "\\(ga"}, {'^', "\\(ha"}, {'~', "\\(ti"}};
        std::string result;
        for (const char character : words) {
            const auto* const found =
                std::ranges::find(special, character, &std::pair<char, std::string_view>::first);
            found == std::end(special) ? result += character : result += found->second;
        }
        return result;
    }

    bool isAfterTitle_ = false;
};

/// With its full stop.
std::string sentence(std::string_view words) {
    return std::string(words) + (words.ends_with('.') ? "" : ".");
}

/// The day on which the page is written; packagers may set it.
std::string today() {
    using namespace std::chrono;
    auto seconds = static_cast<std::int64_t>(Clock::wallTime().unixSeconds());
    const Dictionary environment = ProcessInfo::environment();
    const std::string_view given = environment["SOURCE_DATE_EPOCH"].string();
    std::from_chars(given.data(), given.data() + given.size(), seconds);
    const year_month_day date(floor<days>(sys_seconds(std::chrono::seconds(seconds))));
    return format("%04d-%02u-%02u", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

void writeOptions(Page& page, const OptionGroup& group) {
    for (const Option* option : group.options) {
        page.entry(optionText(*option), sentence(option->help));
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
    page.text = ".TH VELTO 1 " + today() + " \"velto " + std::string(libraryVersion()) +
                "\" \"User Commands\"\n";
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
        "Each object has time, when it was printed; the first one also schema, the number 1. The "
        "results hold further:");
    for (const Entry& result : results) {
        page.entry(result.term, result.meaning);
    }
    page.paragraph(
        "With --quiet only the result. Objects and keys may be added; what is here stays. An "
        "installation brings a JSON Schema of it all, share/velto/velto-output.schema.json.");
    page.section("LOG FILE");
    page.paragraph(
        "Each record of --log-file begins with the time, in UTC, and a level: debug, info, "
        "warning, "
        "error or critical. Further lines of a record begin with a tab. Secrets are hidden, also "
        "encoded ones, and control characters stand as escapes such as \\x1b. The first record "
        "tells the version and the command line, the last one the outcome and the exit code; the "
        "lines of the delivery tool are of the level debug. A symbolic link is not followed, but "
        "/dev/stderr and its like are.");
    page.section("ENVIRONMENT");
    for (const Entry& variable : variables) {
        page.entry(variable.term, variable.meaning);
    }
    page.entry("VELTO_KEY", "The setting KEY, in capitals: see SETTINGS.");
    page.section("SETTINGS");
    page.paragraph(configCommand().description);
    page.paragraph("velto takes no password from a setting: see ENVIRONMENT.");
    for (const Setting* setting : UserDefaults::declaredSettings()) {
        const std::string value = settingText(*setting, defaultOf(*setting));
        std::string meaning = sentence(setting->meaning());
        if (!value.empty()) {
            meaning.insert(meaning.size() - 1, " (" + value + ")");
        }
        page.entry(setting->key(), meaning);
    }
    page.section("FILES");
    for (const Entry& file : files) {
        page.entry(file.term, file.meaning);
    }
    page.section("EXAMPLES");
    for (const Command* command : allCommands()) {
        for (const Example& example : command->examples) {
            page.entry(example.line, example.meaning);
        }
    }
    return page.text;
}

ExitCode run(Frontend& frontend, const Invocation&) {
    frontend.answerWithOwnText("page", manualPage());
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
