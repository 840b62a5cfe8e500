#pragma once

#include <CommandLine/Command.h>
#include <CommandLine/Credentials.h>

#include <cstdint>
#include <memory>
#include <string>

class VeltoPackageSource;

namespace velto::cli {

class Frontend;
class Invocation;

/// A package and how it goes to its store, as the command line says.
struct DeliveryPlan {
    std::shared_ptr<VeltoPackageSource> source;
    std::string packagePath;  ///< Absolute.
    std::string storeName;
    bool checksChecksums = true;
    Credentials credentials;

    /// `package` is the path as it was typed. False, with the reason, when it cannot be done.
    bool make(Frontend& frontend,
              const Invocation& invocation,
              const std::string& package,
              Failure& failure);
};

/// Verifies or uploads the package that is the first operand; says how it went.
ExitCode runDelivery(Frontend& frontend, const Invocation& invocation, bool verifyOnly);

}  // namespace velto::cli
