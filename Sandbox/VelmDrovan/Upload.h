#pragma once

#include <VelmDrovan/CommandLine.h>
#include <VelmDrovan/Console.h>
#include <VelmDrovan/Scenario.h>
#include <VelmDrovan/SignIn.h>

namespace sandbox {

/// "-m upload": checks the package, then copies it into the store. Throws a Failure.
void upload(const CommandLine& line,
            const Identity& identity,
            Scenario& scenario,
            const Console& console);

}  // namespace sandbox
