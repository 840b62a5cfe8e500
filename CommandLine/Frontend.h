#pragma once

#include <CommandLine/Console.h>
#include <CommandLine/Failure.h>
#include <CommandLine/JSONLine.h>
#include <CommandLine/Secrets.h>

#include <string>
#include <string_view>

namespace velto::cli {

class Interrupts;
class Invocation;

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
    void printJSON() { style_ = Style::json; }

    Console& console() { return console_; }
    Interrupts& interrupts() { return interrupts_; }
    EnvironmentSecrets& secrets() { return secrets_; }
    Style style() const { return style_; }
    bool isQuiet() const { return isQuiet_; }  ///< May hold with JSON, too.
    bool printsJSON() const { return style_ == Style::json; }

    /// What was asked for, on standard output, whatever the style.
    void answer(std::string_view text) { console_.line(Console::Stream::output, text); }
    void answer(const JSONLine& line) { console_.line(Console::Stream::output, line.text()); }
    /// Says what happened, why and what to do next; answers the exit code. `details` are added to
    /// the result of JSON.
    ExitCode fail(const Failure& failure, const Dictionary& details = {});
    /// The same for a person, on standard error, whatever the style.
    void complain(const Failure& failure);
    /// A warning of what was given, on standard error; with JSON a message.
    void warn(std::string_view text);
    /// A warning or a note on the way.
    void remark(Ink ink, std::string_view label, std::string_view text);

    /// The object that ends the output of a command.
    JSONLine result(std::string_view outcome, ExitCode code) const;

private:
    Console console_;
    Interrupts& interrupts_;
    EnvironmentSecrets secrets_;
    Style style_ = Style::human;
    bool isQuiet_ = false;
    std::string command_;
};

/// {"domain", "code", "text"}
Value describedError(const Error& error);

}  // namespace velto::cli
