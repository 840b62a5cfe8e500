#pragma once

#include <VelmDrovan/Console.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sandbox {

/// The moments of a run at which a scenario can do something.
enum class Moment { Start, SignedIn, Checked, Transfer, End };

/// Where the error lines of a failed run go.
enum class ErrorStyle { Block, OutputBlock, Lines, None };

/// What the file named by VELM_SANDBOX_SCENARIO asks for; README.md lists the keys.
class Scenario {
public:
    /// Without the variable: a scenario that asks for nothing. Throws a usage Failure.
    static Scenario read();

    std::uint64_t slow = 0;  ///< bytes a second
    std::set<std::string> skipped;
    std::vector<std::string> warnings, infos, errors;
    bool verifyCount = true;
    ErrorStyle errorStyle = ErrorStyle::Block;
    std::string unterminated;  ///< Last text on standard output, without a line feed.

    /// Ignored signals and the record of the invocation.
    void prepare(const std::vector<std::string>& arguments) const;

    /// Does what is due: may end the process, stop it for good, or fill its pipes. `percent`
    /// counts at Moment::Transfer only.
    void reach(Moment moment, const Console& console, double percent = 0);

    /// The delay in seconds, when the transfer is to break off here and start again.
    std::optional<unsigned> takeRestart(double percent);

    /// The exit code asked for at the end, else `exitCode`.
    int exitCode(int exitCode) const;

private:
    enum class Kind { Crash, Exit, Hang, Grandchild, Flood, Garbage, Restart };
    struct Action {
        Kind kind;
        unsigned value;
        Moment moment;
        double percent;
        bool done = false;
    };

    void take(const std::string& key, const std::string& value);
    bool isDue(const Action& action, Moment moment, double percent) const;
    void leaveGrandchild(unsigned seconds, const Console& console) const;

    std::vector<Action> actions_;
    bool ignoreTerminate_ = false;
    bool grandchildSession_ = false;
    std::string recordPath_;
    bool recordValues_ = false;
};

}  // namespace sandbox
