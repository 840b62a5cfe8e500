#include <CommandLine/CommonOptions.h>
#include <CommandLine/DigestList.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/StandardInput.h>
#include <CommandLine/Text.h>
#include <CommandLine/WatchedInput.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>

namespace velto::cli {

namespace {

constexpr Option checkOption{.name = "check",
                             .letter = 'c',
                             .help = "read lists of sums from the files, and check what they name"};

constexpr Option ignoreMissingOption{.name = "ignore-missing",
                                     .help = "with --check: pass over files that are not there"};
constexpr Option strictOption{.name = "strict",
                              .help = "with --check: fail for lines that are no entries, too"};
constexpr Option warnOption{.name = "warn",
                            .letter = 'w',
                            .help = "with --check: name each line that is no entry"};
constexpr Option statusOption{.name = "status",
                              .help = "with --check: print no results; the exit code tells"};

constexpr std::string_view standardInputName = "-";

std::shared_ptr<InputStream> openStream(std::string_view name) {
    std::shared_ptr<InputStream> stream =
        name == standardInputName ? std::make_shared<StandardInput>() : InputStream::withFile(name);
    stream->open();
    return stream;
}

std::string displayName(const std::string& name) {
    return name == standardInputName ? localized("standard input") : name;
}

/// none, and why, when the file cannot be read
std::optional<std::string> md5Of(const std::string& name, Frontend& frontend, Error& why) {
    Error error;
    std::optional<std::string> md5;
    if (frontend.style() == Frontend::Style::human &&
        frontend.console().isTerminal(Console::Stream::output)) {
        const auto attributes = FileManager::attributes(name);
        WatchedInput input(openStream(name), printable(displayName(name)),
                           attributes && name != standardInputName ? attributes->size : 0,
                           frontend);
        md5 = MZMD5Operation::md5ForStream(&input, &error);
    } else if (name == standardInputName) {
        md5 = MZMD5Operation::md5ForStream(openStream(name).get(), &error);
    } else {
        md5 = MZMD5Operation::md5ForFilename(name, &error);
    }
    if (md5) {
        return md5;
    }
    // What the system says, for it names the file and is what people know.
    why = error.underlyingError();
    if (!why) {
        static_cast<void>(FileManager::attributes(name, &why));
    }
    why = why ? why : error;
    return std::nullopt;
}

constexpr std::size_t longestLine = 65536;

/// Calls `take` with each line, until it answers false; the error that ended the reading, or none.
template <class Take>
Error forEachLine(InputStream& stream, Take take) {
    std::array<std::uint8_t, 65536> bytes;
    std::string line;
    std::ptrdiff_t count = 0;
    while ((count = stream.read(bytes.data(), bytes.size())) > 0) {
        std::string_view rest(reinterpret_cast<const char*>(bytes.data()),
                              static_cast<std::size_t>(count));
        for (;;) {
            const std::size_t end = rest.find('\n');
            // No name is so long: what is no list is not gathered.
            line.append(rest.substr(0, std::min(end, longestLine - line.size())));
            if (end == std::string_view::npos) {
                break;
            }
            if (!take(line)) {
                return {};
            }
            line.clear();
            rest.remove_prefix(end + 1);
        }
    }
    if (!line.empty()) {
        take(line);
    }
    return count < 0 ? stream.streamError() : Error();
}

/// What is counted over all files.
class Digests {
public:
    Digests(Frontend& frontend, const Invocation& invocation)
        : frontend_(frontend),
          ignoresMissing_(invocation.has(ignoreMissingOption)),
          isStrict_(invocation.has(strictOption)),
          warns_(invocation.has(warnOption)),
          isSilent_(invocation.has(statusOption)) {}

    void print(const std::string& name) {
        Error why;
        const std::optional<std::string> md5 = md5Of(name, frontend_, why);
        if (!md5) {
            report(why);
        } else if (frontend_.printsJSON()) {
            frontend_.answer(JSONLine("digest").add("file", name).add("md5", *md5));
        } else {
            frontend_.answerName(digestLine(*md5, name));
        }
    }

    void checkList(const std::string& list) {
        DigestListReader reader;
        const std::uint64_t checkedBefore = checked_;
        const std::uint64_t unreadableBefore = unreadable_;
        const std::uint64_t wrongBefore = wrong_;
        const std::uint64_t rightBefore = right_;
        std::uint64_t malformed = 0;
        std::uint64_t lineNumber = 0;
        const std::uint64_t missingBefore = missing_;
        const std::shared_ptr<InputStream> stream = openStream(list);
        const Error error = forEachLine(*stream, [&](std::string_view line) {
            ++lineNumber;
            if (DigestListReader::isIgnored(line)) {
                return true;
            }
            const std::optional<DigestEntry> entry =
                line.size() < longestLine ? reader.entry(line) : std::nullopt;
            // A list that is read from standard input cannot name it.
            if (entry && !(list == standardInputName && entry->name == standardInputName)) {
                check(*entry);
            } else {
                ++malformed;
                if (warns_) {
                    say(localizedFormat("%@: %llu: improperly formatted MD5 checksum line",
                                        displayName(list), lineNumber));
                }
            }
            return isWanted();
        });
        malformed_ += malformed;
        if (error) {
            report(error);
            return;
        }
        if (checked_ == checkedBefore && missing_ == missingBefore) {
            report(localizedFormat("%@: no properly formatted checksum lines found",
                                   displayName(list)));
            return;
        }
        if (malformed != 0) {
            say(linesAreMalformed(malformed));
        }
        if (const std::uint64_t count = unreadable_ - unreadableBefore; count != 0) {
            say(count == 1
                    ? localized("WARNING: 1 listed file could not be read")
                    : localizedFormat("WARNING: %llu listed files could not be read", count));
        }
        if (const std::uint64_t count = wrong_ - wrongBefore; count != 0) {
            say(count == 1
                    ? localized("WARNING: 1 computed checksum did NOT match")
                    : localizedFormat("WARNING: %llu computed checksums did NOT match", count));
        }
        if (ignoresMissing_ && right_ == rightBefore) {
            report(localizedFormat("%@: no file was verified", displayName(list)));
        }
    }

    /// Whether somebody still reads what is printed.
    bool isWanted() const { return frontend_.console().isComplete(); }

    ExitCode end(bool isCheck) {
        if (isStrict_ && malformed_ != 0) {
            reasons_.push_back(linesAreMalformed(malformed_));
        }
        // What nobody wanted to hear any more has not been checked.
        const bool hasFailed = !reasons_.empty() || wrong_ != 0 || (isCheck && !isWanted());
        if (!frontend_.printsJSON()) {
            return hasFailed ? ExitCode::failed : ExitCode::done;
        }
        Dictionary counts;
        if (isCheck) {
            counts = {{"checked", checked_},
                      {"wrong", wrong_},
                      {"unreadable", unreadable_},
                      {"malformed", malformed_}};
        }
        if (hasFailed) {
            return frontend_.fail(
                {.what = isCheck ? localized("Not every file is as its list says.")
                                 : localized("Not every file could be read."),
                 .why = reasons_,
                 .errors = errors_},
                counts);
        }
        frontend_.answer(frontend_.result(ExitCode::done).addAll(counts));
        return ExitCode::done;
    }

private:
    static std::string linesAreMalformed(std::uint64_t count) {
        return count == 1 ? localized("WARNING: 1 line is improperly formatted")
                          : localizedFormat("WARNING: %llu lines are improperly formatted", count);
    }

    void check(const DigestEntry& entry) {
        Error why;
        if (ignoresMissing_ && entry.name != standardInputName &&
            !FileManager::attributes(entry.name, &why) && why.code() == ENOENT) {
            ++missing_;
            return;
        }
        ++checked_;
        why = {};
        const std::optional<std::string> md5 = md5Of(entry.name, frontend_, why);
        const bool isRight =
            md5 && md5->size() == entry.md5.size() && findIgnoringCase(entry.md5, *md5) == 0;
        if (!md5) {
            ++unreadable_;
            report(why);
        } else if (!isRight) {
            ++wrong_;
        } else {
            ++right_;
        }
        if (isSilent_) {
            return;
        }
        if (frontend_.printsJSON()) {
            frontend_.answer(JSONLine("check")
                                 .add("file", entry.name)
                                 .add("expected", entry.md5)
                                 .add("md5", md5 ? Value(*md5) : Value())
                                 .addWord("outcome", isRight ? "ok"
                                                     : md5   ? "wrong"
                                                             : "unreadable"));
        } else if (!isRight || !frontend_.isQuiet()) {
            // For scripts, whatever the language; here md5sum escapes for a line feed only.
            const bool isEscaped = entry.name.find('\n') != std::string::npos;
            frontend_.answerName((isEscaped ? "\\" + escapedName(entry.name) : entry.name) +
                                 (isRight ? ": OK"
                                  : md5   ? ": FAILED"
                                          : ": FAILED open or read"));
        }
    }

    void report(const Error& error) {
        errors_.push_back(error);
        report(error.localizedDescription());
    }

    void report(const std::string& text) {
        reasons_.push_back(printable(text));
        printToErrors(text);
    }

    void say(const std::string& text) {
        if (!isSilent_) {
            printToErrors(text);
        }
    }

    void printToErrors(const std::string& text) {
        if (!frontend_.printsJSON()) {
            Console& console = frontend_.console();
            const auto errors = Console::Stream::errors;
            console.line(errors, console.inked(errors, Ink::bad, "velto:") + " " + printable(text));
        }
    }

    Frontend& frontend_;
    const bool ignoresMissing_;
    const bool isStrict_;
    const bool warns_;
    const bool isSilent_;
    std::uint64_t checked_ = 0;
    std::uint64_t right_ = 0;
    std::uint64_t wrong_ = 0;
    std::uint64_t unreadable_ = 0;
    std::uint64_t malformed_ = 0;
    std::uint64_t missing_ = 0;  ///< Passed over.
    std::vector<std::string> reasons_;
    std::vector<Error> errors_;
};

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    const bool isCheck = invocation.has(checkOption);
    for (const Option* const option :
         {&ignoreMissingOption, &strictOption, &warnOption, &statusOption}) {
        if (!isCheck && invocation.has(*option)) {
            return frontend.fail(
                usageFailure(localizedFormat("--%@ goes with --check only.", option->name),
                             localizedFormat("See %@.", "velto digest --help")));
        }
    }
    Digests digests(frontend, invocation);
    for (const std::string& name : invocation.operands) {
        if (!digests.isWanted()) {
            break;
        }
        if (isCheck) {
            digests.checkList(name);
        } else {
            digests.print(name);
        }
    }
    return digests.end(isCheck);
}

}  // namespace

const Command& digestCommand() {
    static const Command command{
        .name = "digest",
        .summary = "print or check the MD5 sums of files",
        .description =
            "Prints the MD5 sum of each file, a line each as md5sum writes it; - is standard "
            "input.\n"
            "With --check, the files are such lists: what they name is digested, and each file is "
            "OK or FAILED. With --quiet, only those that failed are named.",
        .operands = {{.name = "FILE", .kind = ArgumentKind::file, .most = 0}},
        .groups = {{"Options",
                    {&checkOption, &ignoreMissingOption, &strictOption, &warnOption,
                     &statusOption}}},
        .examples = {{"velto digest film.mov trailer.mov > sums.md5", "a list of sums"},
                     {"velto digest --check sums.md5", "whether the files are still the same"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
