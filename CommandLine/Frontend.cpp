#include <CommandLine/Frontend.h>

#include <CommandLine/CommonOptions.h>
#include <CommandLine/Interrupts.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <utility>

namespace velto::cli {

namespace {

/// A damaged package of many files has many reasons; the log holds all of them.
constexpr std::size_t reasonsShown = 20;

}  // namespace

Frontend::Frontend(Interrupts& interrupts, EnvironmentSecrets secrets)
    : interrupts_(interrupts), secrets_(std::move(secrets)) {
    interrupts_.setTidying([this](bool) { console_.sayAtOnce(Console::Stream::output, {}); });
}

Frontend::~Frontend() {
    interrupts_.setTidying({});
}

void Frontend::configure(const Invocation& invocation) {
    if (invocation.has(noColorOption)) {
        console_.forbidColours();
    }
    isQuiet_ = invocation.has(quietOption);
    style_ = invocation.has(jsonOption) ? Style::json : isQuiet_ ? Style::quiet : Style::human;
    command_ = invocation.command != nullptr ? invocation.command->name : std::string_view();
    setLastWords({});
}

void Frontend::configureForJSON(const Command* command) {
    style_ = Style::json;
    command_ = command != nullptr ? command->name : std::string_view();
}

void Frontend::setLastWords(std::function<void()> lastWords) {
    interrupts_.setTidying([this, lastWords = std::move(lastWords)](bool isEnd) {
        console_.sayAtOnce(Console::Stream::output, {});
        if (isEnd) {
            answerStopAtOnce(localized("Stopped."));
            if (lastWords) {
                lastWords();
            }
        }
    });
}

void Frontend::answerStopAtOnce(std::string_view what) noexcept {
    try {
        if (printsJSON() && !hasResult_.exchange(true)) {
            const JSONLine line = result(ExitCode::stopped)
                                      .addWord("what", what)
                                      .add("why", Array())
                                      .addWord("next", "")
                                      .add("errors", Array());
            console_.sayAtOnce(Console::Stream::output,
                               line.text(timeStamp(), !hasAnswered_.exchange(true)) + "\n");
        }
    } catch (const std::bad_alloc&) {
        // Then it ends without.
    }
}

void Frontend::answer(const JSONLine& line) {
    if (!line.isResult() || !hasResult_.exchange(true)) {
        console_.lineOfBytes(line.text(timeStamp(), !hasAnswered_.exchange(true)));
    }
}

void Frontend::answerWithOwnText(std::string_view key, std::string_view text) {
    if (printsJSON()) {
        answer(result(ExitCode::done).addWord(key, text));
    } else {
        console_.print(Console::Stream::output, text);
    }
}

void Frontend::answerName(std::string_view name) {
    if (console_.isTerminal(Console::Stream::output)) {
        answer(printable(name));
    } else {
        console_.lineOfBytes(name);
    }
}

ExitCode Frontend::fail(const Failure& failure, const Dictionary& details) {
    // What happens behind the result can only be said to a person.
    if (printsJSON() && !hasResult_) {
        Array why;
        Array errors;
        for (const std::string& reason : failure.why) {
            why.append(reason);
        }
        for (const Error& error : failure.errors) {
            errors.append(describedError(error));
        }
        JSONLine line = result(failure.exitCode == ExitCode::stopped ? "stopped" : failure.outcome,
                               failure.exitCode);
        line.add("what", failure.what)
            .add("why", why)
            .add("next", failure.next)
            .add("errors", errors);
        answer(line.addAll(details));
    } else {
        complain(failure);
    }
    return failure.exitCode;
}

void Frontend::complain(const Failure& failure) {
    const auto errors = Console::Stream::errors;
    std::string text = console_.inked(errors, Ink::bad, "velto:") + " " +
                       console_.inked(errors, Ink::bold, printable(failure.what)) + "\n";
    const std::string why = localized("Why:");
    const std::string next = localized("Next:");
    const std::size_t column = 2 + std::max(columnsOf(why), columnsOf(next)) + 1;
    const auto entry = [&](const std::string& label, std::string_view words) {
        text.append(2, ' ').append(console_.inked(errors, Ink::faint, label));
        text.append(column - 2 - columnsOf(label), ' ').append(printable(words)).append("\n");
    };
    for (std::size_t index = 0; index < std::min(failure.why.size(), reasonsShown); ++index) {
        entry(index == 0 ? why : std::string(), failure.why[index]);
    }
    if (failure.why.size() > reasonsShown) {
        entry("", localizedFormat("… and %lu more", failure.why.size() - reasonsShown));
    }
    if (!failure.next.empty()) {
        entry(next, failure.next);
    }
    console_.print(errors, text);
}

void Frontend::warn(std::string_view text) {
    if (isQuiet_) {
        return;
    }
    if (printsJSON()) {
        answer(JSONLine("message").addWord("level", "warning").add("text", text));
        return;
    }
    const auto errors = Console::Stream::errors;
    console_.line(errors, "velto: " + console_.inked(errors, Ink::warning, localized("Warning:")) +
                              " " + printable(text));
}

void Frontend::remark(Ink ink, std::string_view label, std::string_view text) {
    if (style_ == Style::human) {
        const auto output = Console::Stream::output;
        console_.line(output, console_.inked(output, ink, label) + " " + printable(text));
    }
}

JSONLine Frontend::result(std::string_view outcome, ExitCode code) const {
    JSONLine line("result");
    line.addWord("command", command_)
        .addWord("outcome", outcome)
        .add("exitCode", static_cast<int>(code));
    return line;
}

Value describedError(const Error& error) {
    return Dictionary{
        {"domain", error.domain()}, {"code", error.code()}, {"text", error.localizedDescription()}};
}

}  // namespace velto::cli
