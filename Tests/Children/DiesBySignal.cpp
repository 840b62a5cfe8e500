// DiesBySignal NUMBER
#include <csignal>
#include <cstdlib>

#include <sys/resource.h>

int main(int, char** argv) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::raise(std::atoi(argv[1]));
    return 1;
}
