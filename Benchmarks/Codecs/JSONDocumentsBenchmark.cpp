// Reads whole documents into trees, and destroys them, beside the readers a user would pick; and by
// a stream of 8192-byte blocks in each encoding. "ours" counts the tree's memory too.
//
// usage: JSONDocumentsBenchmark [Google Benchmark's options] --json-folder=DIR

#include <Benchmarks/Codecs/JSONDocuments.h>
#include <Benchmarks/Support/Row.h>

#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <simdjson.h>
#include <boost/json.hpp>
#include <nlohmann/json.hpp>

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

std::size_t allocations = 0;

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void* realloc(void* block, std::size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}

namespace {

using velto::TextEncoding;

velto::Value readData(const velto::Data& data) {
    return MZJSONDeserializer().deserializeJSONData(data);
}

bool isRead(const velto::Data& data) {
    return !readData(data).isNone();
}

/// Gives at most 8192 bytes at a time.
class BlockStream final : public velto::InputStream {
public:
    explicit BlockStream(std::string_view bytes) : bytes_(bytes) {}

    void open() override {}
    void close() override {}
    velto::StreamStatus streamStatus() const override {
        return bytes_.empty() ? velto::StreamStatus::atEnd : velto::StreamStatus::open;
    }
    velto::Error streamError() const override { return {}; }
    std::ptrdiff_t read(std::uint8_t* buffer, std::size_t length) override {
        const std::size_t count = std::min({length, bytes_.size(), std::size_t{8192}});
        std::memcpy(buffer, bytes_.data(), count);
        bytes_.remove_prefix(count);
        return static_cast<std::ptrdiff_t>(count);
    }

private:
    std::string_view bytes_;
};

bool readStream(const std::string& bytes) {
    return !MZJSONDeserializer()
                .deserializeJSONStream(std::make_shared<BlockStream>(bytes))
                .isNone();
}

/// What the caller's stream takes by itself.
bool drainStream(const std::string& bytes) {
    BlockStream stream(bytes);
    std::array<std::uint8_t, 8192> block;
    while (stream.read(block.data(), block.size()) != 0) {
        benchmark::DoNotOptimize(block);
    }
    return true;
}

template <unsigned flags>
bool readRapidJSON(const std::string& text) {
    rapidjson::Document document;
    document.Parse<flags>(text.data(), text.size());
    return !document.HasParseError();
}

bool readBoost(const std::string& text) {
    boost::json::monotonic_resource resource;
    boost::json::error_code error;
    const boost::json::value document = boost::json::parse(text, error, &resource);
    return !error && document.is_structured();
}

bool readSimdjson(const simdjson::padded_string& text) {
    simdjson::dom::parser parser;
    return parser.parse(text).error() == simdjson::SUCCESS;
}

std::size_t countValues(const velto::Value& value) {
    std::size_t count = 1;
    for (const velto::Value& element : value.array()) {
        count += countValues(element);
    }
    for (const auto& entry : value.dictionary()) {
        count += countValues(entry.key) + countValues(entry.value);
    }
    return count;
}

std::size_t bytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void readOurs(benchmark::State& state, const std::string& text) {
    const velto::Data data(text);
    for ([[maybe_unused]] const auto& step : state) {
        if (readData(data).isNone()) {
            state.SkipWithError("the document was refused");
            return;
        }
    }
    const std::size_t bytesBefore = bytesInUse();
    const std::size_t allocationsBefore = allocations;
    const velto::Value tree = readData(data);
    const auto allocated = static_cast<double>(allocations - allocationsBefore);
    const auto bytes = static_cast<double>(bytesInUse() - bytesBefore);
    state.counters["bytes_per_byte"] = bytes / static_cast<double>(text.size());
    state.counters["allocations_per_value"] = allocated / static_cast<double>(countValues(tree));
}

}  // namespace

int main(int argc, char** argv) {
    const auto documents = documentsOfArguments(argc, argv);
    const struct {
        const char* name;
        TextEncoding encoding;
    } encodings[] = {
        {"UTF-8", TextEncoding::utf8},
        {"UTF-16LE", TextEncoding::utf16LittleEndian},
        {"UTF-16BE", TextEncoding::utf16BigEndian},
        {"UTF-32LE", TextEncoding::utf32LittleEndian},
        {"UTF-32BE", TextEncoding::utf32BigEndian},
    };
    std::map<std::string, std::string> encoded;
    std::map<std::string, velto::Data> datas;
    std::map<std::string, simdjson::padded_string> padded;
    for (const auto& entry : documents) {
        const std::string& text = entry.second;
        const std::string document = entry.first + '/';
        benchmark::RegisterBenchmark((document + "ours").c_str(), readOurs, text)
            ->Unit(benchmark::kMicrosecond);
        const velto::Data& inUTF8 = datas[document] = velto::Data(text);
        for (const auto& [name, encoding] : encodings) {
            const std::string group = entry.first + " by a stream of " + name;
            const auto& bytes = encoded[group] = velto::encodeText(text, encoding).value();
            const velto::Data& data = datas[group] = velto::Data(bytes);
            addRow(group + "/ours", text.size(), [&] { return readStream(bytes); });
            addRow(group + "/the stream alone", text.size(), [&] { return drainStream(bytes); });
            addRow(group + "/as data", text.size(), [&] { return isRead(data); });
            addRow(group + "/as data in UTF-8", text.size(), [&] { return isRead(inUTF8); });
        }
        addRow(document + "RapidJSON", text.size(),
               [&] { return readRapidJSON<rapidjson::kParseNoFlags>(text); });
        // Numbers to the last bit and texts that are checked, as ours does.
        addRow(document + "RapidJSON, exact", text.size(), [&] {
            return readRapidJSON<rapidjson::kParseFullPrecisionFlag |
                                 rapidjson::kParseValidateEncodingFlag>(text);
        });
        addRow(document + "Boost.JSON", text.size(), [&] { return readBoost(text); });
        addRow(document + "nlohmann", text.size(),
               [&] { return !nlohmann::json::parse(text, nullptr, false).is_discarded(); });
        const auto& copy = padded.try_emplace(document, text).first->second;
        addRow(document + "simdjson DOM", text.size(), [&] { return readSimdjson(copy); });
    }
    return runRows(argc, argv);
}
