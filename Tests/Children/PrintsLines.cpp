// PrintsLines COUNT: that many lines of 54 bytes, as fast as it can.
#include <cstdlib>
#include <string>

#include <unistd.h>

int main(int, char** argv) {
    unsigned long long left = std::strtoull(argv[1], nullptr, 10);
    const std::string line(53, 'x');
    constexpr unsigned long long linesInBlock = 1200;
    std::string block;
    for (unsigned long long i = 0; i < linesInBlock; ++i) {
        block += line + '\n';
    }
    while (left > 0) {
        const unsigned long long lines = left < linesInBlock ? left : linesInBlock;
        const std::size_t size = static_cast<std::size_t>(lines) * (line.size() + 1);
        for (std::size_t written = 0; written < size;) {
            const ssize_t count = write(1, block.data() + written, size - written);
            if (count < 0) {
                return 1;
            }
            written += static_cast<std::size_t>(count);
        }
        left -= lines;
    }
}
