/// The sandbox's delivery tool: a local stand-in of the store behind the tool's command line.
#include <VelmDrovan/Accounts.h>
#include <VelmDrovan/CommandLine.h>
#include <VelmDrovan/Console.h>
#include <VelmDrovan/Failure.h>
#include <VelmDrovan/Scenario.h>
#include <VelmDrovan/SignIn.h>
#include <VelmDrovan/Upload.h>
#include <VelmDrovan/Verify.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace sandbox {
namespace {

void run(const CommandLine& line, Scenario& scenario, const Console& console) {
    for (const auto& warning : line.warnings)
        console.warning(warning);
    if (line.mode != "verify" && line.mode != "upload")
        throw Failure(BadCommandLine, "The option -m takes verify or upload", line.mode,
                      Failure::Usage);
    if (line.package.empty())
        throw Failure(BadCommandLine, "The option -f with a package is missing", {},
                      Failure::Usage);
    for (const auto& [name, value] : line.properties)
        console.detail("property " + name + (name == "TxHeaders" ? "" : "=" + value));
    if (const char* centers = std::getenv("TX_DATA_CENTERS"))
        console.detail("data centers: " + std::string(centers));

    console.line("Signing in to the store");
    const Identity identity = signIn(line, readAccounts(), console);
    checkProvider(line, identity);
    console.line("Signed in as " + identity.name);
    scenario.reach(Moment::SignedIn, console);

    for (const auto& info : scenario.infos)
        console.info(info);
    for (const auto& warning : scenario.warnings)
        console.warning(warning);
    (line.mode == "verify" ? verify : upload)(line, identity, scenario, console);
    if (!scenario.errors.empty()) {
        std::vector<Fault> faults;
        faults.reserve(scenario.errors.size());
        for (const auto& error : scenario.errors)
            faults.push_back({Unworded, error, {}});
        throw Failure(std::move(faults));
    }
}

void report(const Failure& failure, ErrorStyle style, const Console& console) {
    if (style == ErrorStyle::None)
        return;
    const std::vector<std::string> messages = messagesOf(failure.faults());
    for (const auto& message : messages)
        console.error("ERROR: " + message);
    if (style == ErrorStyle::Lines)
        return;
    const auto print = style == ErrorStyle::Block ? &Console::error : &Console::result;
    (console.*print)("Error Messages:");
    for (const auto& message : messages)
        (console.*print)("\t" + message);
}

int runTool(const std::vector<std::string>& arguments) {
    Console console;
    Scenario scenario;
    int exitCode = 0;
    try {
        scenario = Scenario::read();
        scenario.prepare(arguments);
        scenario.reach(Moment::Start, console);
        const CommandLine line = parseCommandLine(arguments);
        console.setVerbosity(line.verbosity);
        console.setIndicator(line.indicator);
        if (line.version)
            console.result("Velm Drovan, version 1.0.0");
        else
            run(line, scenario, console);
    } catch (const Failure& failure) {
        report(failure, scenario.errorStyle, console);
        exitCode = failure.exitCode();
    } catch (const std::exception& error) {
        report(Failure(Unexpected, "The tool failed", error.what()), scenario.errorStyle, console);
        exitCode = Failure::Failed;
    }
    scenario.reach(Moment::End, console);
    writeAll(STDOUT_FILENO, scenario.unterminated);
    return scenario.exitCode(exitCode);
}

}  // namespace
}  // namespace sandbox

int main(int argc, char** argv) {
    // No file and no other process of the user's gets to see a secret's bytes.
    prctl(PR_SET_DUMPABLE, 0);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    // Whoever starts a program without even a name gives it no arguments either.
    return sandbox::runTool({argv + std::min(argc, 1), argv + argc});
}
