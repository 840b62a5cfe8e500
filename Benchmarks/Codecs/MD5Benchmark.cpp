// The MD5 of a file in the page cache and of a block, beside OpenSSL over the same bytes mapped.
//
// usage: MD5Benchmark [MIB]   (the file's size, 1024 by default; it stands in the temporary folder)

#include <Benchmarks/Support/Comparison.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>

#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using Digest = std::array<unsigned char, EVP_MAX_MD_SIZE>;

void digestMapped(const std::string& path, std::size_t length) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* const bytes = mmap(nullptr, length, PROT_READ, MAP_SHARED, file, 0);
    Digest digest;
    unsigned digestLength = 0;
    EVP_Digest(bytes, length, digest.data(), &digestLength, EVP_md5(), nullptr);
    munmap(bytes, length);
    close(file);
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t mebibytes = argc > 1 ? std::stoul(argv[1]) : 1024;
    const std::size_t length = mebibytes << 20;
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("MD5Benchmark." + std::to_string(getpid()));
    {
        std::ofstream file(path, std::ios::binary);
        std::string block(std::size_t{1} << 20, '\0');
        std::uint32_t state = 1;
        for (std::size_t i = 0; i < mebibytes; ++i) {
            for (char& byte : block) {
                state = state * 1664525 + 1013904223;
                byte = static_cast<char>(state >> 24);
            }
            file << block;
        }
        if (!file.flush()) {
            std::cerr << path << ": cannot be written\n";
            return 1;
        }
    }
    Comparison("a file of " + std::to_string(mebibytes) + " MiB", length)
        .add("ours, md5ForFilename",
             [&] {
                 if (!MZMD5Operation::md5ForFilename(path.string())) {
                     std::abort();
                 }
             })
        .add("OpenSSL, mapped", [&] { digestMapped(path.string(), length); })
        .print(5);
    std::filesystem::remove(path);

    for (const std::size_t size : {std::size_t{64}, std::size_t{4096}, std::size_t{1} << 20}) {
        const velto::Data data(std::string(size, 'x'));
        Comparison("a block of " + std::to_string(size) + " bytes", size)
            .add("ours, md5ForData",
                 [&] {
                     if (!MZMD5Operation::md5ForData(data)) {
                         std::abort();
                     }
                 })
            .add("OpenSSL",
                 [&] {
                     Digest digest;
                     unsigned digestLength = 0;
                     EVP_Digest(data.bytes(), size, digest.data(), &digestLength, EVP_md5(),
                                nullptr);
                 })
            .print(7);
    }
    return 0;
}
