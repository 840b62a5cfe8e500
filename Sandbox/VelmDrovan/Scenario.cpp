#include <VelmDrovan/Scenario.h>

#include <VelmDrovan/Documents.h>
#include <VelmDrovan/Failure.h>
#include <VelmDrovan/Files.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace sandbox {
namespace {

[[noreturn]] void misuse(std::string text, std::string detail) {
    throw Failure(BadConfiguration, "The scenario: " + std::move(text), std::move(detail),
                  Failure::Usage);
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

template <typename Number>
Number number(std::string_view text) {
    Number result{};
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), result);
    if (error != std::errc() || stop != text.data() + text.size())
        misuse("a number is expected", std::string(text));
    return result;
}

bool truth(const std::string& value) {
    if (value != "yes" && value != "no")
        misuse("yes or no is expected", value);
    return value == "yes";
}

unsigned signalNumber(std::string_view name) {
    constexpr std::pair<std::string_view, int> names[] = {{"ABRT", SIGABRT}, {"SEGV", SIGSEGV},
                                                          {"BUS", SIGBUS},   {"KILL", SIGKILL},
                                                          {"TERM", SIGTERM}, {"INT", SIGINT}};
    for (const auto& [known, signal] : names)
        if (known == name)
            return static_cast<unsigned>(signal);
    return number<unsigned>(name);
}

[[noreturn]] void dieBySignal(int signal) {
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal);  // The signal is blocked or harmless.
}

/// Numbered lines of 64 bytes, so that a lost or doubled byte shows; both pipes in turn, so that
/// a reader of only one of them stands still.
void flood(unsigned mebibytes) {
    constexpr std::size_t blockLines = 1024;
    std::size_t number = 0;
    for (std::size_t block = 0; block < mebibytes * std::size_t{16}; ++block) {
        std::string text;
        text.reserve(blockLines * 64);
        for (std::size_t i = 0; i < blockLines; ++i) {
            std::string line = "flood " + std::to_string(++number) + ' ';
            line.resize(63, '.');
            text.append(line) += '\n';
        }
        writeAll(STDOUT_FILENO, text);
        writeAll(STDERR_FILENO, text);
    }
}

/// What no driver should stumble over.
void printGarbage() {
    using namespace std::string_view_literals;
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        writeAll(descriptor, "\xff\xfe not UTF-8 \xc3\x28 \xed\xa0\x80 \xf8\x88\x80\x80\x80\n"sv);
        writeAll(descriptor, "a NUL \0 inside, a bell \a, an escape \x1b[31m\n"sv);
        writeAll(descriptor, "ends with CR LF\r\n\r\n\n\r\n"sv);
        writeAll(descriptor, std::string(1 << 20, 'x') + "\n");
        writeAll(descriptor,
                 "Setting total size of files for upload to: many\n"
                 "adding file for % complete logging: \n"
                 "The file named  has been skipped because\n"
                 "movie.mov 99999999999999999999/0, 5% completed\n"
                 "movie.mov /, % completed\n, % completed\n% completed\n"
                 "JSON: {\"messageType\": \"VerifyProgress\", \"count\":\n"
                 "JSON: [1, 2\nJSON:\n"
                 "JSON: {\"messageType\": 1, \"count\": \"many\", \"index\": {}}\n"
                 "<<JSON-END JSON-START>>\n"
                 "NewPackageName = \n"sv);
    }
}

}  // namespace

Scenario Scenario::read() {
    Scenario scenario;
    const char* path = std::getenv("VELM_SANDBOX_SCENARIO");
    if (!path || !*path)
        return scenario;
    const auto text = readSmallFile(path);
    if (!text)
        misuse("the file cannot be read", path);
    std::string_view rest = *text;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = trimmed(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos)
            misuse("a line is not key=value", std::string(line));
        scenario.take(std::string(trimmed(line.substr(0, equals))),
                      std::string(trimmed(line.substr(equals + 1))));
    }
    return scenario;
}

void Scenario::take(const std::string& key, const std::string& value) {
    constexpr std::pair<std::string_view, Kind> kinds[] = {
        {"crash", Kind::Crash},    {"exit", Kind::Exit},       {"hang", Kind::Hang},
        {"flood", Kind::Flood},    {"garbage", Kind::Garbage}, {"grandchild", Kind::Grandchild},
        {"restart", Kind::Restart}};
    constexpr std::pair<std::string_view, Moment> moments[] = {{"start", Moment::Start},
                                                               {"signed-in", Moment::SignedIn},
                                                               {"checked", Moment::Checked},
                                                               {"transfer", Moment::Transfer},
                                                               {"end", Moment::End}};
    constexpr std::pair<std::string_view, ErrorStyle> styles[] = {
        {"block", ErrorStyle::Block},
        {"output-block", ErrorStyle::OutputBlock},
        {"lines", ErrorStyle::Lines},
        {"none", ErrorStyle::None}};
    const auto choose = [&](const auto& table, std::string_view name) {
        for (const auto& [known, meaning] : table)
            if (known == name)
                return meaning;
        misuse("a value is not known", key + "=" + value);
    };

    if (const auto* const kind =
            std::ranges::find(kinds, key, &std::pair<std::string_view, Kind>::first);
        kind != std::end(kinds)) {
        const std::size_t at = std::min(value.find('@'), value.size());
        const std::string_view what = std::string_view(value).substr(0, at);
        Action action{kind->second, 0, Moment::SignedIn, 50};
        if (action.kind == Kind::Restart)
            action.moment = Moment::Transfer;
        if (at < value.size()) {
            const std::string_view where = std::string_view(value).substr(at + 1);
            const std::size_t colon = std::min(where.find(':'), where.size());
            action.moment = choose(moments, where.substr(0, colon));
            if (colon < where.size())
                action.percent = number<unsigned>(where.substr(colon + 1));
        }
        if (action.kind == Kind::Crash)
            action.value = signalNumber(what);
        else if (action.kind == Kind::Hang || action.kind == Kind::Garbage)
            action.value = truth(std::string(what));
        else
            action.value = number<unsigned>(what);
        actions_.push_back(action);
    } else if (key == "slow") {
        slow = number<std::uint64_t>(value);
    } else if (key == "skip") {
        skipped.insert(value);
    } else if (key == "warning") {
        warnings.push_back(value);
    } else if (key == "info") {
        infos.push_back(value);
    } else if (key == "error") {
        errors.push_back(value);
    } else if (key == "verify-count") {
        verifyCount = truth(value);
    } else if (key == "error-style") {
        errorStyle = choose(styles, value);
    } else if (key == "unterminated") {
        unterminated = value;
    } else if (key == "ignore-terminate") {
        ignoreTerminate_ = truth(value);
    } else if (key == "grandchild-session") {
        grandchildSession_ = truth(value);
    } else if (key == "record") {
        recordPath_ = value;
    } else if (key == "record-values") {
        recordValues_ = truth(value);
    } else {
        misuse("a key is not known", key);
    }
}

void Scenario::prepare(const std::vector<std::string>& arguments) const {
    if (ignoreTerminate_)
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            std::signal(signal, SIG_IGN);
    if (recordPath_.empty())
        return;
    std::vector<std::string> shown = arguments;
    constexpr std::string_view hidden = "**hidden value**";
    for (std::size_t i = 0; i < shown.size() && !recordValues_; ++i) {
        constexpr std::string_view secrets[] = {"-p", "-sessionid", "-sharedsecret", "-dsToken",
                                                "-hsa2headers"};
        if (shown[i].starts_with("-DTxHeaders="))
            shown[i] = std::string("-DTxHeaders=").append(hidden);
        else if (i > 0 && std::ranges::find(secrets, arguments[i - 1]) != std::end(secrets) &&
                 !shown[i].starts_with("@env:"))
            shown[i] = hidden;
    }
    std::vector<std::pair<std::string, std::string>> variables;
    for (char** entry = environ; *entry; ++entry) {
        const std::string_view text(*entry);
        const std::size_t equals = std::min(text.find('='), text.size());
        variables.emplace_back(text.substr(0, equals),
                               text.substr(std::min(equals + 1, text.size())));
    }
    const Descriptor file(
        open(recordPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file)
        misuse("the record cannot be written", recordPath_ + ": " + systemReason());
    writeAll(file.get(), recordText(shown, variables, recordValues_) + "\n");
}

bool Scenario::isDue(const Action& action, Moment moment, double percent) const {
    return !action.done && action.moment == moment &&
           (moment != Moment::Transfer || percent >= action.percent);
}

void Scenario::reach(Moment moment, const Console& console, double percent) {
    for (Action& action : actions_) {
        if (!isDue(action, moment, percent) || action.kind == Kind::Restart)
            continue;
        action.done = true;
        switch (action.kind) {
            case Kind::Crash:
                dieBySignal(static_cast<int>(action.value));
            case Kind::Exit:
                if (moment != Moment::End)
                    std::_Exit(static_cast<int>(action.value));
                break;
            case Kind::Hang:
                if (action.value)
                    console.detail("hanging");
                while (action.value)
                    pause();
                break;
            case Kind::Grandchild:
                leaveGrandchild(action.value, console);
                break;
            case Kind::Flood:
                flood(action.value);
                break;
            case Kind::Garbage:
                if (action.value)
                    printGarbage();
                break;
            case Kind::Restart:
                break;
        }
    }
}

std::optional<unsigned> Scenario::takeRestart(double percent) {
    for (Action& action : actions_) {
        if (action.kind == Kind::Restart && isDue(action, Moment::Transfer, percent)) {
            action.done = true;
            return action.value;
        }
    }
    return std::nullopt;
}

int Scenario::exitCode(int exitCode) const {
    for (const Action& action : actions_)
        if (action.kind == Kind::Exit && action.moment == Moment::End)
            exitCode = static_cast<int>(action.value);
    return exitCode;
}

void Scenario::leaveGrandchild(unsigned seconds, const Console& console) const {
    const pid_t child = fork();
    if (child != 0) {
        console.result("Left a process behind: " + std::to_string(child));
        return;
    }
    if (grandchildSession_)
        setsid();
    close_range(3, ~0U, 0);  // Only the pipes are meant to stay open.
    while (seconds > 0)
        seconds = sleep(seconds);
    std::_Exit(0);
}

}  // namespace sandbox
