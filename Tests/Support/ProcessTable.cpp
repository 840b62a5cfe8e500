#include <Tests/Support/ProcessTable.h>

#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velto::testing {

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open))) - 1;
}

bool hasChildren() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool isAlive(int process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string status(std::istreambuf_iterator<char>(file), {});
    const std::size_t name = status.rfind(") ");
    return name != std::string::npos && status[name + 2] != 'Z' && status[name + 2] != 'X';
}

}  // namespace velto::testing
