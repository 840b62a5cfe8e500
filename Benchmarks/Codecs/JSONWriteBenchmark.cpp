// Writes trees as JSON documents beside another writer, and the text of doubles beside the standard
// library.
//
// usage: JSONWriteBenchmark --json-folder=DIR [Google Benchmark's options]

#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Platform/DoubleText.h>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using velto::Value;

Value valueFrom(const rapidjson::Value& document) {
    if (document.IsObject()) {
        velto::Dictionary dictionary;
        dictionary.reserve(document.MemberCount());
        for (const auto& member : document.GetObject()) {
            dictionary.set(std::string_view(member.name.GetString(), member.name.GetStringLength()),
                           valueFrom(member.value));
        }
        return dictionary;
    }
    if (document.IsArray()) {
        velto::Array array;
        array.reserve(document.Size());
        for (const auto& element : document.GetArray()) {
            array.append(valueFrom(element));
        }
        return array;
    }
    if (document.IsString()) {
        return std::string_view(document.GetString(), document.GetStringLength());
    }
    if (document.IsBool()) {
        return document.GetBool();
    }
    if (document.IsInt64()) {
        return document.GetInt64();
    }
    if (document.IsNumber()) {
        return document.GetDouble();
    }
    return velto::Null{};
}

void addDocument(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    auto document = std::make_shared<rapidjson::Document>();
    if (document->Parse(text.data(), text.size()).HasParseError()) {
        std::cerr << path << ": no JSON document\n";
        std::exit(1);
    }
    const std::string name = path.stem().string();
    const Value value = valueFrom(*document);
    benchmark::RegisterBenchmark((name + "/ours").c_str(), [value](benchmark::State& state) {
        const MZJSONSerializer serializer;
        std::size_t bytes = 0;
        for (auto _ : state) {
            const auto data = serializer.serializeToJSON(value);
            bytes += data->length();
            benchmark::DoNotOptimize(data->bytes());
        }
        state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    });
    benchmark::RegisterBenchmark((name + "/rapidjson").c_str(),
                                 [document](benchmark::State& state) {
                                     std::size_t bytes = 0;
                                     for (auto _ : state) {
                                         rapidjson::StringBuffer buffer;
                                         rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
                                         document->Accept(writer);
                                         bytes += buffer.GetSize();
                                         benchmark::DoNotOptimize(buffer.GetString());
                                     }
                                     state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
                                 });
}

std::vector<double> numbers(const std::string& kind) {
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same numbers in every run
    std::mt19937_64 random(1);
    std::vector<double> result(10000);
    for (double& number : result) {
        number = kind == "coordinates" ? static_cast<double>(random() % 360000000) / 1e6 - 180
                 : kind == "integers"  ? static_cast<double>(random() % 100000)
                                       : static_cast<double>(random()) * 0x1p-64;
    }
    return result;
}

template <class Write>
void runDoubles(benchmark::State& state, const std::string& kind, Write write) {
    const std::vector<double> list = numbers(kind);
    char text[64];
    for (auto _ : state) {
        for (const double number : list) {
            benchmark::DoNotOptimize(write(text, number));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(list.size()));
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    constexpr std::string_view option = "--json-folder=";
    if (argc != 2 || !std::string_view(argv[1]).starts_with(option)) {
        std::cerr << "usage: " << argv[0] << " --json-folder=DIR\n";
        return 2;
    }
    const std::filesystem::path folder = argv[1] + option.size();
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".json") {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());
    std::for_each(paths.begin(), paths.end(), addDocument);
    for (const std::string kind : {"coordinates", "integers", "uniform"}) {
        benchmark::RegisterBenchmark(
            ("doubles/" + kind + "/ours").c_str(),
            [kind](benchmark::State& state) { runDoubles(state, kind, velto::writeDouble); });
        benchmark::RegisterBenchmark(
            ("doubles/" + kind + "/to_chars").c_str(), [kind](benchmark::State& state) {
                runDoubles(state, kind, [](char* text, double number) {
                    return std::to_chars(text, text + 64, number, std::chars_format::general, 16)
                        .ptr;
                });
            });
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
