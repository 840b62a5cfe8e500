// Reads whole documents into trees beside two peers, and destroys them; prints how many times as
// long as ours each peer takes.
//
// usage: JSONDocumentsBenchmark --json-folder=DIR [Google Benchmark's options]

#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace {

/// Who reads, in the order of the table. The first one is ours.
enum class Reader { ours, oursStreamed, rapid, rapidExact, nlohmann };

const char* const readerNames[] = {"ours", "ours streamed", "RapidJSON", "RapidJSON exact",
                                   "nlohmann"};

bool readOnce(Reader reader, const std::string& text, const velto::Data& data) {
    switch (reader) {
        case Reader::ours: {
            MZJSONDeserializer deserializer;
            return !deserializer.deserializeJSONData(data).isNone();
        }
        case Reader::oursStreamed: {
            MZJSONDeserializer deserializer;
            const auto stream = velto::InputStream::withData(data);
            stream->open();
            return !deserializer.deserializeJSONStream(stream).isNone();
        }
        case Reader::rapid: {
            rapidjson::Document document;
            document.Parse(text.data(), text.size());
            return !document.HasParseError();
        }
        case Reader::rapidExact: {
            // Numbers to the last bit and texts that are checked, as ours does.
            rapidjson::Document document;
            document
                .Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag>(
                    text.data(), text.size());
            return !document.HasParseError();
        }
        case Reader::nlohmann:
            return !nlohmann::json::parse(text, nullptr, false).is_discarded();
    }
    return false;
}

void measure(benchmark::State& state, Reader reader, const std::string& text) {
    const velto::Data data(text);
    for ([[maybe_unused]] const auto& step : state) {
        if (!readOnce(reader, text, data)) {
            state.SkipWithError("the document was refused");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

/// The usual lines, and the shortest time of each reader for the table.
class RatioReporter final : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                double& shortest =
                    times_.try_emplace(run.run_name.function_name, 1e300).first->second;
                shortest = std::min(shortest, run.GetAdjustedCPUTime());
            }
        }
    }

    void printRatios(const std::vector<std::string>& documents) const {
        std::printf("\ntimes as long as ours:\n%-24s", "");
        for (const char* name : readerNames) {
            std::printf("%16s", name);
        }
        for (const std::string& document : documents) {
            const auto ours = times_.find(document + "/" + readerNames[0]);
            if (ours == times_.end()) {
                continue;
            }
            std::printf("\n%-24s", document.c_str());
            for (const char* name : readerNames) {
                const auto time = times_.find(document + "/" + name);
                std::printf("%16.2f", time == times_.end() ? 0.0 : time->second / ours->second);
            }
        }
        std::printf("\n");
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    constexpr std::string_view option = "--json-folder=";
    std::filesystem::path folder;
    std::vector<char*> arguments;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(option)) {
            folder = argument.substr(option.size());
        } else {
            arguments.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (folder.empty() || benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        std::fprintf(stderr, "usage: %s --json-folder=DIR\n", argv[0]);
        return 2;
    }
    std::map<std::string, std::string> documents;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".json") {
            std::ifstream file(entry.path(), std::ios::binary);
            documents[entry.path().stem()].assign(std::istreambuf_iterator<char>(file), {});
        }
    }
    std::vector<std::string> names;
    for (const auto& document : documents) {
        names.push_back(document.first);
        for (std::size_t i = 0; i < std::size(readerNames); ++i) {
            benchmark::RegisterBenchmark((document.first + "/" + readerNames[i]).c_str(),
                                         [i, &document](benchmark::State& state) {
                                             measure(state, static_cast<Reader>(i),
                                                     document.second);
                                         })
                ->Unit(benchmark::kMicrosecond);
        }
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios(names);
    return 0;
}
