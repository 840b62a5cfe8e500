#pragma once

#include <VelmDrovan/CommandLine.h>
#include <VelmDrovan/Console.h>
#include <VelmDrovan/Scenario.h>
#include <VelmDrovan/SignIn.h>

namespace sandbox {

/// "-m verify": looks at the package and reports. Throws a Failure with every fault.
void verify(const CommandLine& line,
            const Identity& identity,
            Scenario& scenario,
            const Console& console);

}  // namespace sandbox
