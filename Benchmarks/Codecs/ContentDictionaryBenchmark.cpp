// The content dictionary of a file, made and read, beside its parts done one after the other; and
// the most memory that each takes, as a multiple of the file.
//
// usage: ContentDictionaryBenchmark [Google Benchmark's options] [--content-mebibytes=N]   (64)

#include <Benchmarks/Support/Options.h>
#include <Benchmarks/Support/RandomBytes.h>
#include <Benchmarks/Support/Row.h>
#include <Benchmarks/Support/TemporaryFolder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <optional>
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
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    std::abort();
}

/// The most memory that `run` takes beyond what there was, in bytes.
template <class Run>
double peakOf(Run run) {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
    const double before = statusLine("VmRSS:");
    run();
    return (statusLine("VmHWM:") - before) * 1024;
}

std::string entries(std::size_t length) {
    const std::string numbers = randomBytes(4096);
    std::string text;
    text.reserve(length + 64);
    for (std::size_t i = 0; text.size() < length; ++i) {
        const auto number = static_cast<unsigned char>(numbers[i % numbers.size()]);
        text += "{\"id\": " + std::to_string(i * 257 + number) + ", \"name\": \"an entry\"},\n";
    }
    text.resize(length);
    return text;
}

void addRows(const std::string& path, const std::string& name, bool compressing) {
    auto utilities = MZBase64EncodingUtilities::utilities();
    utilities.setCompressing(compressing);
    const MZCompressionUtilities& gzip = MZCompressionUtilities::defaultUtilities();
    const Data bytes = required(velto::FileManager::read(path, SIZE_MAX - 1));
    const Data sent = compressing ? required(gzip.gzipDeflate(bytes)) : bytes;
    const Data text = required(MZBase64Coder().encodedBase64ValueWithData(sent, 1024));
    const Dictionary dictionary = required(utilities.encodedFileAtPath(path));
    const std::size_t length = bytes.length();

    const auto encode = [=] { return utilities.encodedFileAtPath(path).has_value(); };
    const auto encodeParts = [=, &gzip] {
        return velto::FileManager::read(path, SIZE_MAX - 1) && MZMD5Operation::md5ForData(bytes) &&
               (!compressing || gzip.gzipDeflate(bytes)) &&
               MZBase64Coder().encodedBase64ValueWithData(sent, 1024) &&
               !velto::Value(text.view()).isNone();
    };
    const auto decode = [=] { return utilities.decodedData(dictionary).has_value(); };
    const auto decodeParts = [=, &gzip] {
        return MZBase64Coder().decodedValueWithBase64Data(text) &&
               (!compressing || gzip.gzipInflate(sent)) && MZMD5Operation::md5ForData(bytes);
    };
    const auto whole = static_cast<double>(length);
    const double decodePeak = peakOf(decode) / whole;
    addRow("encode " + name + "/ours", length, encode, {{"peak_per_byte", peakOf(encode) / whole}});
    addRow("encode " + name + "/its parts", length, encodeParts);
    addRow("decode " + name + "/ours", length, decode,
           {{"peak_per_byte", decodePeak},
            {"peak_per_byte_with_dictionary",
             decodePeak + static_cast<double>(text.length()) / whole}});
    addRow("decode " + name + "/its parts", length, decodeParts);
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t length = takeNumber(argc, argv, "--content-mebibytes", 64) << 20;
    const TemporaryFolder folder;
    const std::string text = folder.at("text");
    std::ofstream(text, std::ios::binary) << entries(length);
    const std::string noise = folder.at("noise");
    std::ofstream(noise, std::ios::binary) << randomBytes(length);
    addRows(text, "text, gzipped", true);
    addRows(noise, "noise, gzipped", true);
    addRows(noise, "noise, as it is", false);
    return runRows(argc, argv);
}
