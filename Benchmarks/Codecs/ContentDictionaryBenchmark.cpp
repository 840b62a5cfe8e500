// The content dictionary of a file, made and read, beside the sum of its parts; and the most memory
// that each takes, as a multiple of the file.
//
// usage: ContentDictionaryBenchmark [MIB]   (the file's size, 64 by default)

#include <Benchmarks/Support/Comparison.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>

namespace {

using velto::Data;
using velto::Dictionary;

template <class T>
T required(std::optional<T> value) {
    if (!value) {
        std::abort();
    }
    return std::move(*value);
}

/// Kilobytes of a line of the process's status.
double statusLine(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == name) {
            status >> word;
            return std::stod(word);
        }
    }
    std::abort();
}

/// The most memory that `run` takes beyond what there was, in kilobytes.
template <class Run>
double peakOf(Run run) {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
    const double before = statusLine("VmRSS:");
    run();
    return statusLine("VmHWM:") - before;
}

std::string content(std::size_t length, bool isText) {
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same bytes in every run
    std::mt19937 random(1);
    std::string text;
    text.reserve(length + 64);
    while (text.size() < length) {
        if (isText) {
            text += "{\"id\": " + std::to_string(random()) + ", \"name\": \"an entry\"},\n";
        } else {
            text += static_cast<char>(random());
        }
    }
    text.resize(length);
    return text;
}

void compare(const std::string& path, std::size_t length, bool isText, bool compressing) {
    auto utilities = MZBase64EncodingUtilities::utilities();
    utilities.setCompressing(compressing);
    const MZBase64Coder coder;
    const auto& gzip = MZCompressionUtilities::defaultUtilities();
    std::ofstream(path, std::ios::binary) << content(length, isText);
    const std::string title =
        std::string(isText ? "text" : "noise") + (compressing ? ", gzipped" : ", as it is");
    const auto encode = [&] { required(utilities.encodedFileAtPath(path)); };

    const Data bytes = required(velto::FileManager::read(path, SIZE_MAX - 1));
    const Data sent = compressing ? required(gzip.gzipDeflate(bytes)) : bytes;
    const Data text = required(coder.encodedBase64ValueWithData(sent, 1024));
    const Dictionary dictionary = required(utilities.encodedFileAtPath(path));
    const auto decode = [&] { required(utilities.decodedData(dictionary)); };

    Comparison encoding("encode " + title, length);
    encoding.add("the dictionary of the file", encode)
        .add("MD5", [&] { required(MZMD5Operation::md5ForData(bytes)); })
        .add("base64", [&] { required(coder.encodedBase64ValueWithData(sent, 1024)); });
    if (compressing) {
        encoding.add("gzip", [&] { required(gzip.gzipDeflate(bytes)); });
    }
    encoding.print(3);
    double sum = 0;
    for (std::size_t way = 1; way < (compressing ? 4U : 3U); ++way) {
        sum += encoding.best(way);
    }
    std::printf("  the whole / the sum of its parts: %.3f\n", encoding.best(0) / sum);

    Comparison decoding("decode " + title, length);
    decoding.add("the bytes of the dictionary", decode)
        .add("MD5", [&] { required(MZMD5Operation::md5ForData(bytes)); })
        .add("base64", [&] { required(coder.decodedValueWithBase64Data(text)); });
    if (compressing) {
        decoding.add("gzip", [&] { required(gzip.gzipInflate(sent)); });
    }
    decoding.print(3);
    sum = 0;
    for (std::size_t way = 1; way < (compressing ? 4U : 3U); ++way) {
        sum += decoding.best(way);
    }
    std::printf("  the whole / the sum of its parts: %.3f\n", decoding.best(0) / sum);

    const double kilobytes = static_cast<double>(length) / 1024;
    const double held = static_cast<double>(text.length()) / 1024;
    std::printf("peak memory / the file: encode %.2f, decode %.2f (with the dictionary %.2f)\n",
                peakOf(encode) / kilobytes, peakOf(decode) / kilobytes,
                (peakOf(decode) + held) / kilobytes);
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t length = (argc > 1 ? std::stoul(argv[1]) : 64) << 20;
    const std::string path = std::filesystem::temp_directory_path() /
                             ("ContentDictionaryBenchmark." + std::to_string(getpid()));
    compare(path, length, true, true);
    compare(path, length, false, true);
    compare(path, length, false, false);
    std::filesystem::remove(path);
    return 0;
}
