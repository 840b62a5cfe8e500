// Gzip of JSON documents, both ways, beside bare zlib that is told the size of what comes out.
//
// usage: GzipBenchmark [Google Benchmark's options] --json-folder=DIR

#include <Benchmarks/Codecs/JSONDocuments.h>
#include <Benchmarks/Support/Row.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>

#include <zlib.h>

#include <cstdlib>
#include <string>

namespace {

using velto::Data;

Bytef* unsignedBytes(const Data& data) {
    return const_cast<Bytef*>(data.bytes());
}

bool bareDeflate(const Data& bytes) {
    z_stream stream{};
    if (deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        return false;
    }
    const uLong room = deflateBound(&stream, bytes.length());
    void* const block = std::malloc(room);
    stream.next_in = unsignedBytes(bytes);
    stream.avail_in = static_cast<uInt>(bytes.length());
    stream.next_out = static_cast<Bytef*>(block);
    stream.avail_out = static_cast<uInt>(room);
    const bool done = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    deflateEnd(&stream);
    std::free(block);
    return done;
}

bool bareInflate(const Data& bytes, std::size_t length) {
    z_stream stream{};
    if (inflateInit2(&stream, 47) != Z_OK) {
        return false;
    }
    void* const block = std::malloc(length);
    stream.next_in = unsignedBytes(bytes);
    stream.avail_in = static_cast<uInt>(bytes.length());
    stream.next_out = static_cast<Bytef*>(block);
    stream.avail_out = static_cast<uInt>(length);
    const bool done = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    inflateEnd(&stream);
    std::free(block);
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    const MZCompressionUtilities& utilities = MZCompressionUtilities::defaultUtilities();
    for (const auto& [name, text] : documentsOfArguments(argc, argv)) {
        const Data bytes{std::string_view(text)};
        const Data block = utilities.gzipDeflate(bytes).value_or(Data());
        const std::size_t length = bytes.length();
        addRow("deflate " + name + "/ours", length,
               [=, &utilities] { return utilities.gzipDeflate(bytes).has_value(); });
        addRow("deflate " + name + "/zlib", length, [=] { return bareDeflate(bytes); });
        addRow("inflate " + name + "/ours", length,
               [=, &utilities] { return utilities.gzipInflate(block).has_value(); });
        addRow("inflate " + name + "/zlib", length, [=] { return bareInflate(block, length); });
    }
    return runRows(argc, argv);
}
