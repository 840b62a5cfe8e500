#pragma once

#include <CommandLine/Console.h>
#include <CommandLine/Failure.h>
#include <CommandLine/JSONLine.h>
#include <CommandLine/Secrets.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>

namespace velto::cli {

class Interrupts;
class Invocation;
struct Command;

/// What every command works with: where it prints, how it is told to stop, and what it was given.
class Frontend {
public:
    enum class Style { human, quiet, json };

    Frontend(Interrupts& interrupts, EnvironmentSecrets secrets);
    ~Frontend();
    Frontend(const Frontend&) = delete;
    Frontend& operator=(const Frontend&) = delete;

    /// How to print; from the options.
    void configure(const Invocation& invocation);
    /// The same for a command line that was not understood, but for its command; null without.
    void configureForJSON(const Command* command);

    Console& console() { return console_; }
    Interrupts& interrupts() { return interrupts_; }
    EnvironmentSecrets& secrets() { return secrets_; }
    Style style() const { return style_; }
    bool isQuiet() const { return isQuiet_; }  ///< May hold with JSON, too.
    bool printsJSON() const { return style_ == Style::json; }

    /// What was asked for, on standard output, whatever the style.
    void answer(std::string_view text) { console_.line(Console::Stream::output, text); }
    /// What is made of paths and names: to a program as it is, to a person fit for the terminal.
    void answerName(std::string_view name);
    void answer(const JSONLine& line);  ///< A second result is dropped.
    /// A text of the program's own, such as its manual page: as it is, or in the result of JSON
    /// under `key`.
    void answerWithOwnText(std::string_view key, std::string_view text);
    /// Says what happened, why and what to do next; answers the exit code. `details` are added to
    /// the result of JSON.
    ExitCode fail(const Failure& failure, const Dictionary& details = {});
    /// The same for a person, on standard error, whatever the style.
    void complain(const Failure& failure);
    /// A warning of what was given, on standard error; with JSON a message.
    void warn(std::string_view text);
    /// For JSON, the result of a run that ends at once by the user's wish. Any thread; waits for no
    /// lock of the console and no reader.
    void answerStopAtOnce(std::string_view what) noexcept;
    /// What is still to be done when the program ends at once by the user's wish, on the thread of
    /// the signals. Returns when what was set before does not run any more.
    void setLastWords(std::function<void()> lastWords);
    /// A warning or a note on the way.
    void remark(Ink ink, std::string_view label, std::string_view text);

    /// The object that ends the output of a command.
    JSONLine result(ExitCode code) const { return result(outcomeOf(code), code); }

private:
    JSONLine result(std::string_view outcome, ExitCode code) const;

    Console console_;
    Interrupts& interrupts_;
    EnvironmentSecrets secrets_;
    Style style_ = Style::human;
    bool isQuiet_ = false;
    std::string command_;
    std::atomic<bool> hasAnswered_ = false;  ///< In JSON.
    std::atomic<bool> hasResult_ = false;
};

/// {"domain", "code", "text"}
Value describedError(const Error& error);

}  // namespace velto::cli
