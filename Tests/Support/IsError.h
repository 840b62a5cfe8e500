#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <Tests/Support/PrintValue.h>

#include <gmock/gmock.h>

#include <string>

namespace velto::testing {

/// EXPECT_THAT(error, IsError("SomeDomain", -10000));
MATCHER_P2(IsError,
           domain,
           code,
           "is the error " + ::testing::PrintToString(code) + " of " + std::string(domain)) {
    return static_cast<bool>(arg) && arg.domain() == domain && arg.code() == code;
}

/// EXPECT_THAT(error, IsNoError());
MATCHER(IsNoError, "is no error") {
    return !static_cast<bool>(arg);
}

}  // namespace velto::testing
