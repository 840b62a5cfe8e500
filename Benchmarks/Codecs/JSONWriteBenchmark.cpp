// Writes trees as JSON documents beside other writers, and the text of doubles beside the standard
// library.
//
// usage: JSONWriteBenchmark [Google Benchmark's options] --json-folder=DIR

#include <Benchmarks/Codecs/JSONDocuments.h>
#include <Benchmarks/Support/Row.h>

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

void addDocument(const std::string& name, const std::string& text) {
    auto document = std::make_shared<rapidjson::Document>();
    if (document->Parse(text.data(), text.size()).HasParseError()) {
        std::cerr << name << ": no JSON document\n";
        std::exit(1);
    }
    const std::size_t length = text.size();
    addRow(name + "/ours", length, [value = valueFrom(*document)] {
        return MZJSONSerializer().serializeToJSON(value).has_value();
    });
    addRow(name + "/RapidJSON", length, [document] {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        return document->Accept(writer) && buffer.GetSize() != 0;
    });
    addRow(name + "/Boost.JSON", length,
           [value = boost::json::parse(text)] { return !boost::json::serialize(value).empty(); });
    addRow(name + "/nlohmann", length,
           [value = nlohmann::json::parse(text)] { return !value.dump().empty(); });
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

/// Adds a row that writes all of `list`, one after the other to the same place.
template <class Write>
void addDoubles(const std::string& name, const std::vector<double>& list, Write write) {
    addRow(name, list.size() * sizeof(double), [list, write] {
        char text[64];
        for (const double number : list) {
            benchmark::DoNotOptimize(write(text, number));
        }
        return true;
    });
}

}  // namespace

int main(int argc, char** argv) {
    for (const auto& [name, text] : documentsOfArguments(argc, argv)) {
        addDocument(name, text);
    }
    for (const std::string kind : {"coordinates", "integers", "uniform"}) {
        const std::vector<double> list = numbers(kind);
        addDoubles("doubles/" + kind + "/ours", list, velto::writeDouble);
        addDoubles("doubles/" + kind + "/to_chars", list, [](char* text, double number) {
            return std::to_chars(text, text + 64, number, std::chars_format::general, 16).ptr;
        });
    }
    return runRows(argc, argv);
}
