// Writes trees as JSON documents beside other writers, and the text of doubles beside the standard
// library.
//
// usage: JSONWriteBenchmark [Google Benchmark's options] --json-folder=DIR

#include <Benchmarks/Codecs/JSONDocuments.h>

#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>
#include <VeltoConnectFoundation/Platform/DoubleText.h>

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <boost/json.hpp>
#include <nlohmann/json.hpp>

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <memory>
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

/// Adds a row whose `write` makes a text and answers its length.
template <class Write>
void add(const std::string& name, Write write) {
    benchmark::RegisterBenchmark(name.c_str(), [write](benchmark::State& state) {
        std::size_t bytes = 0;
        for ([[maybe_unused]] const auto& step : state) {
            bytes += write();
        }
        state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    })->Unit(benchmark::kMicrosecond);
}

void addDocument(const std::string& name, const std::string& text) {
    auto document = std::make_shared<rapidjson::Document>();
    if (document->Parse(text.data(), text.size()).HasParseError()) {
        std::cerr << name << ": no JSON document\n";
        std::exit(1);
    }
    add(name + "/ours", [value = valueFrom(*document)] {
        const auto data = MZJSONSerializer().serializeToJSON(value);
        benchmark::DoNotOptimize(data->bytes());
        return data->length();
    });
    add(name + "/RapidJSON", [document] {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        document->Accept(writer);
        benchmark::DoNotOptimize(buffer.GetString());
        return buffer.GetSize();
    });
    add(name + "/Boost.JSON",
        [value = boost::json::parse(text)] { return boost::json::serialize(value).size(); });
    add(name + "/nlohmann", [value = nlohmann::json::parse(text)] { return value.dump().size(); });
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
    for (const auto& [name, text] : documentsOfArguments(argc, argv)) {
        addDocument(name, text);
    }
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
