// The MD5 of a file in the page cache and of blocks, beside OpenSSL over the same bytes (the file's
// mapped) and md5sum. Processor time.
//
// usage: MD5Benchmark [Google Benchmark's options] [--file-mebibytes=N]   (1024)

#include <Benchmarks/Support/Options.h>
#include <Benchmarks/Support/RandomBytes.h>
#include <Benchmarks/Support/Row.h>
#include <Benchmarks/Support/RunProgram.h>
#include <Benchmarks/Support/TemporaryFolder.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

bool digest(const void* bytes, std::size_t length) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned digestLength = 0;
    return EVP_Digest(bytes, length, digest.data(), &digestLength, EVP_md5(), nullptr) == 1;
}

bool digestMapped(const std::string& path, std::size_t length) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* const bytes = mmap(nullptr, length, PROT_READ, MAP_SHARED, file, 0);
    const bool done = bytes != MAP_FAILED && digest(bytes, length);
    munmap(bytes, length);
    close(file);
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t mebibytes = takeNumber(argc, argv, "--file-mebibytes", 1024);
    const std::size_t fileLength = mebibytes << 20;
    const TemporaryFolder folder;
    const std::string path = folder.at("file");
    {
        std::ofstream file(path, std::ios::binary);
        const std::string mebibyte = randomBytes(std::size_t{1} << 20);
        for (std::size_t i = 0; i < mebibytes; ++i) {
            file << mebibyte;
        }
        if (!file.flush()) {
            std::cerr << path << ": cannot be written\n";
            return 1;
        }
    }
    const std::string file = "a file of " + std::to_string(mebibytes) + " MiB/";
    addRow(file + "ours", fileLength,
           [=] { return MZMD5Operation::md5ForFilename(path).has_value(); });
    addRow(file + "OpenSSL, mapped", fileLength, [=] { return digestMapped(path, fileLength); });
    addTimedRow(file + "md5sum", fileLength, [=] { return runProgram({"md5sum", path}); });

    for (const std::size_t length : {std::size_t{64}, std::size_t{4096}, std::size_t{1} << 20}) {
        const velto::Data data{std::string_view(randomBytes(length))};
        const std::string block = "a block of " + std::to_string(length) + " bytes/";
        addRow(block + "ours", length,
               [=] { return MZMD5Operation::md5ForData(data).has_value(); });
        addRow(block + "OpenSSL", length, [=] { return digest(data.bytes(), length); });
    }
    return runRows(argc, argv);
}
