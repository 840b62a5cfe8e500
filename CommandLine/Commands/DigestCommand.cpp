#include <CommandLine/CommonOptions.h>
#include <CommandLine/DigestList.h>
#include <CommandLine/Frontend.h>
#include <CommandLine/Invocation.h>
#include <CommandLine/StandardInput.h>
#include <CommandLine/Text.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/Stream.h>

#include <array>
#include <cstdint>
#include <memory>

namespace velto::cli {

namespace {

constexpr Option checkOption{.name = "check",
                             .letter = 'c',
                             .help = "read lists of sums from the files, and check what they name"};

constexpr std::string_view standardInputName = "-";

std::shared_ptr<InputStream> openStream(std::string_view name) {
    std::shared_ptr<InputStream> stream =
        name == standardInputName ? std::make_shared<StandardInput>() : InputStream::withFile(name);
    stream->open();
    return stream;
}

/// none, and why, when the file cannot be read
std::optional<std::string> md5Of(std::string_view name, Error& why) {
    Error error;
    std::optional<std::string> md5;
    if (name == standardInputName) {
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

/// Calls `take` with each line; the error that ended the reading, or none.
template <class Take>
Error forEachLine(InputStream& stream, Take take) {
    std::array<std::uint8_t, 65536> bytes;
    std::string line;
    std::ptrdiff_t count = 0;
    while ((count = stream.read(bytes.data(), bytes.size())) > 0) {
        line.append(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(count));
        std::size_t start = 0;
        for (std::size_t end = 0; (end = line.find('\n', start)) != std::string::npos;
             start = end + 1) {
            take(std::string_view(line).substr(start, end - start));
        }
        line.erase(0, start);
    }
    if (!line.empty()) {
        take(line);
    }
    return count < 0 ? stream.streamError() : Error();
}

/// What is counted over all files.
class Digests {
public:
    explicit Digests(Frontend& frontend) : frontend_(frontend) {}

    void print(const std::string& name) {
        Error why;
        const std::optional<std::string> md5 = md5Of(name, why);
        if (!md5) {
            report(why);
        } else if (frontend_.printsJSON()) {
            frontend_.answer(JSONLine("digest").add("file", name).add("md5", *md5));
        } else {
            frontend_.answer(digestLine(*md5, name));
        }
    }

    void checkList(const std::string& list) {
        DigestListReader reader;
        const std::uint64_t checkedBefore = checked_;
        const std::uint64_t unreadableBefore = unreadable_;
        const std::uint64_t wrongBefore = wrong_;
        std::uint64_t malformed = 0;
        const std::shared_ptr<InputStream> stream = openStream(list);
        const Error error = forEachLine(*stream, [&](std::string_view line) {
            if (DigestListReader::isIgnored(line)) {
                return;
            }
            const std::optional<DigestEntry> entry = reader.entry(line);
            // A list that is read from standard input cannot name it.
            if (entry && !(list == standardInputName && entry->name == standardInputName)) {
                check(*entry);
            } else {
                ++malformed;
            }
        });
        if (error) {
            report(error);
            return;
        }
        if (checked_ == checkedBefore) {
            report(localizedFormat("%@: no properly formatted checksum lines found",
                                   displayName(list)));
            return;
        }
        if (malformed != 0) {
            say(malformed == 1
                    ? localized("WARNING: 1 line is improperly formatted")
                    : localizedFormat("WARNING: %llu lines are improperly formatted", malformed));
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
    }

    ExitCode end(bool isCheck) {
        const bool hasFailed = !reasons_.empty() || wrong_ != 0;
        if (!frontend_.printsJSON()) {
            return hasFailed ? ExitCode::failed : ExitCode::done;
        }
        Dictionary counts;
        if (isCheck) {
            counts = {{"checked", checked_}, {"wrong", wrong_}, {"unreadable", unreadable_}};
        }
        if (hasFailed) {
            return frontend_.fail(
                {.what = isCheck ? localized("Not every file is as its list says.")
                                 : localized("Not every file could be read."),
                 .why = reasons_,
                 .errors = errors_},
                counts);
        }
        JSONLine line = frontend_.result("done", ExitCode::done);
        for (const DictionaryEntry& entry : counts) {
            line.add(entry.key.string(), entry.value);
        }
        frontend_.answer(line);
        return ExitCode::done;
    }

private:
    static std::string displayName(const std::string& name) {
        return name == standardInputName ? localized("standard input") : name;
    }

    void check(const DigestEntry& entry) {
        ++checked_;
        Error why;
        const std::optional<std::string> md5 = md5Of(entry.name, why);
        const bool isRight =
            md5 && md5->size() == entry.md5.size() && findIgnoringCase(entry.md5, *md5) == 0;
        if (!md5) {
            ++unreadable_;
            report(why);
        } else if (!isRight) {
            ++wrong_;
        }
        if (frontend_.printsJSON()) {
            frontend_.answer(JSONLine("check")
                                 .add("file", entry.name)
                                 .add("expected", entry.md5)
                                 .add("md5", md5 ? Value(*md5) : Value())
                                 .add("outcome", isRight ? "ok"
                                                 : md5   ? "wrong"
                                                         : "unreadable"));
        } else if (!isRight || !frontend_.isQuiet()) {
            // For scripts, whatever the language; here md5sum escapes for a line feed only.
            const bool isEscaped = entry.name.find('\n') != std::string::npos;
            frontend_.answer((isEscaped ? "\\" + escapedName(entry.name) : entry.name) +
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
        say(text);
    }

    void say(const std::string& text) {
        if (!frontend_.printsJSON()) {
            Console& console = frontend_.console();
            const auto errors = Console::Stream::errors;
            console.line(errors, console.inked(errors, Ink::bad, "velto:") + " " + printable(text));
        }
    }

    Frontend& frontend_;
    std::uint64_t checked_ = 0;
    std::uint64_t wrong_ = 0;
    std::uint64_t unreadable_ = 0;
    std::vector<std::string> reasons_;
    std::vector<Error> errors_;
};

ExitCode run(Frontend& frontend, const Invocation& invocation) {
    Digests digests(frontend);
    const bool isCheck = invocation.has(checkOption);
    for (const std::string& name : invocation.operands) {
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
        .groups = {{"Options", {&checkOption}}},
        .examples = {{"velto digest film.mov trailer.mov > sums.md5", "a list of sums"},
                     {"velto digest --check sums.md5", "whether the files are still the same"}},
        .run = &run,
    };
    return command;
}

}  // namespace velto::cli
