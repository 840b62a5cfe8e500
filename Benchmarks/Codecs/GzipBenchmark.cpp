// Gzip of JSON documents, both ways, beside bare zlib that is told the size of what comes out.
//
// usage: GzipBenchmark --json-folder=DIR

#include <Benchmarks/Support/Comparison.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>

#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

namespace {

using velto::Data;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

Bytef* unsignedBytes(const Data& data) {
    return const_cast<Bytef*>(data.bytes());
}

void bareDeflate(const Data& bytes) {
    z_stream stream{};
    require(deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY) == Z_OK);
    const uLong room = deflateBound(&stream, bytes.length());
    void* const block = std::malloc(room);
    stream.next_in = unsignedBytes(bytes);
    stream.avail_in = static_cast<uInt>(bytes.length());
    stream.next_out = static_cast<Bytef*>(block);
    stream.avail_out = static_cast<uInt>(room);
    require(deflate(&stream, Z_FINISH) == Z_STREAM_END);
    deflateEnd(&stream);
    std::free(block);
}

void bareInflate(const Data& bytes, std::size_t length) {
    z_stream stream{};
    require(inflateInit2(&stream, 47) == Z_OK);
    void* const block = std::malloc(length);
    stream.next_in = unsignedBytes(bytes);
    stream.avail_in = static_cast<uInt>(bytes.length());
    stream.next_out = static_cast<Bytef*>(block);
    stream.avail_out = static_cast<uInt>(length);
    require(inflate(&stream, Z_FINISH) == Z_STREAM_END);
    inflateEnd(&stream);
    std::free(block);
}

}  // namespace

int main(int argc, char** argv) {
    constexpr std::string_view option = "--json-folder=";
    if (argc != 2 || !std::string_view(argv[1]).starts_with(option)) {
        std::cerr << "usage: " << argv[0] << " --json-folder=DIR\n";
        return 2;
    }
    std::set<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1] + option.size())) {
        if (entry.path().extension() == ".json") {
            paths.insert(entry.path());
        }
    }
    const MZCompressionUtilities& utilities = MZCompressionUtilities::defaultUtilities();
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const Data bytes{std::string_view(text)};
        const Data block = utilities.gzipDeflate(bytes).value_or(Data());
        Comparison("deflate " + path.stem().string(), bytes.length())
            .add("ours", [&] { require(utilities.gzipDeflate(bytes).has_value()); })
            .add("zlib", [&] { bareDeflate(bytes); })
            .print(7);
        Comparison("inflate " + path.stem().string(), bytes.length())
            .add("ours", [&] { require(utilities.gzipInflate(block).has_value()); })
            .add("zlib", [&] { bareInflate(block, bytes.length()); })
            .print(15);
    }
    return 0;
}
