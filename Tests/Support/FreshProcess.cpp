#include <Tests/Support/FreshProcess.h>

#include <gtest/gtest.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace velto::testing {

namespace {

constexpr const char* marker = "VELTO_TEST_FRESH_PROCESS=1";

}  // namespace

bool isFreshProcess() {
    return std::getenv("VELTO_TEST_FRESH_PROCESS") != nullptr;
}

bool ranInFreshProcess() {
    if (isFreshProcess()) {
        return false;
    }
    EXPECT_EQ(runTestAgain({}, marker), 0) << "in the process of its own, see above";
    return true;
}

std::optional<int> runTestAgain(std::vector<std::string> words, std::string mark) {
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    words.push_back(std::filesystem::read_symlink("/proc/self/exe"));
    words.push_back(std::string("--gtest_filter=") + test.test_suite_name() + '.' + test.name());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::vector<char*> environment{mark.data()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        // The results of the fresh process must not replace those of this one.
        if (!std::string_view(*entry).starts_with("GTEST_OUTPUT=")) {
            environment.push_back(*entry);
        }
    }
    environment.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    if (posix_spawn(&child, arguments.front(), nullptr, nullptr, arguments.data(),
                    environment.data()) != 0 ||
        waitpid(child, &status, 0) != child) {
        ADD_FAILURE() << "could not run the test in a process of its own";
        return std::nullopt;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace velto::testing
