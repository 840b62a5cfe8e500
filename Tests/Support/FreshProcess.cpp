#include <Tests/Support/FreshProcess.h>

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace velto::testing {

namespace {

constexpr std::string_view marker = "VELTO_TEST_FRESH_PROCESS=1";

}  // namespace

bool isFreshProcess() {
    return std::getenv("VELTO_TEST_FRESH_PROCESS") != nullptr;
}

bool ranInFreshProcess() {
    if (isFreshProcess()) {
        return false;
    }
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter =
        std::string("--gtest_filter=") + test.test_suite_name() + '.' + test.name();
    std::string program = "/proc/self/exe";
    std::string mark(marker);
    std::vector<char*> arguments{program.data(), filter.data(), nullptr};
    std::vector<char*> environment{mark.data()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        // The results of the fresh process must not replace those of this one.
        if (!std::string_view(*entry).starts_with("GTEST_OUTPUT=")) {
            environment.push_back(*entry);
        }
    }
    environment.push_back(nullptr);
    pid_t child = 0;
    const int failure = posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(),
                                    environment.data());
    int status = -1;
    if (failure != 0 || waitpid(child, &status, 0) != child) {
        ADD_FAILURE() << "could not run the test in a process of its own";
    } else {
        EXPECT_EQ(status, 0) << "in the process of its own, see above";
    }
    return true;
}

}  // namespace velto::testing
