// Gives each file of the named files and folders to the fuzzer's entry, once.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
    std::printf("%s (%zu bytes)\n", path.c_str(), data.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(data.data(), data.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::filesystem::is_directory(argv[i])) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) {
                    replay(entry.path());
                    ++count;
                }
            }
        } else {
            replay(argv[i]);
            ++count;
        }
    }
    if (count == 0) {
        std::fprintf(stderr, "nothing to replay: a fuzzer needs a corpus of at least one file\n");
        return 1;
    }
    return 0;
}
