// FloodsBothPipes BYTES: writes that many to each output as fast as it can, then exits with 3.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>

#include <unistd.h>

int main(int, char** argv) {
    std::size_t left = std::strtoull(argv[1], nullptr, 10);
    const std::string out(4096, 'o');
    const std::string err(4096, 'e');
    while (left > 0) {
        const std::size_t size = std::min(left, out.size());
        for (const auto& [descriptor, text] : {std::pair(1, &out), std::pair(2, &err)}) {
            for (std::size_t written = 0; written < size;) {
                const ssize_t count = write(descriptor, text->data(), size - written);
                if (count < 0) {
                    return 1;
                }
                written += static_cast<std::size_t>(count);
            }
        }
        left -= size;
    }
    return 3;
}
