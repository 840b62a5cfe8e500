// What another reader makes of a document is written here and read by that reader again: the same
// document, whatever the encoding. Our own reader and writer agree on it too.

#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZJSONSerializer.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

namespace {

using nlohmann::json;
using velto::TextEncoding;
using velto::Value;

Value valueFrom(const json& document) {
    switch (document.type()) {
        case json::value_t::boolean:
            return document.get<bool>();
        case json::value_t::number_integer:
            return document.get<std::int64_t>();
        case json::value_t::number_unsigned:
            return document.get<std::uint64_t>();
        case json::value_t::number_float:
            return document.get<double>();
        case json::value_t::string:
            return document.get_ref<const std::string&>();
        case json::value_t::array: {
            velto::Array array;
            for (const json& element : document) {
                array.append(valueFrom(element));
            }
            return array;
        }
        case json::value_t::object: {
            velto::Dictionary dictionary;
            for (const auto& [key, element] : document.items()) {
                dictionary.set(key, valueFrom(element));
            }
            return dictionary;
        }
        default:
            return velto::Null{};
    }
}

/// Sixteen digits, where a double may need seventeen.
bool same(const json& left, const json& right) {
    if (left.is_number() && right.is_number()) {
        const auto a = left.get<double>();
        const auto b = right.get<double>();
        return a == b || std::fabs(a - b) <= std::fabs(a) * 1e-15 + 5e-324;
    }
    if (left.type() != right.type() || left.size() != right.size()) {
        return false;
    }
    if (left.is_array()) {
        return std::equal(left.begin(), left.end(), right.begin(), same);
    }
    if (left.is_object()) {
        return std::equal(left.items().begin(), left.items().end(), right.items().begin(),
                          [](const auto& a, const auto& b) {
                              return a.key() == b.key() && same(a.value(), b.value());
                          });
    }
    return left == right;
}

/// Sixteen digits of the largest doubles read as infinity.
bool hasLargest(const json& document) {
    if (document.is_structured()) {
        return std::any_of(document.begin(), document.end(), hasLargest);
    }
    return document.is_number() && std::fabs(document.get<double>()) > 1.797693134862315e308;
}

/// The text of what our own reader makes of a document.
std::string writtenAgain(const velto::Data& document) {
    velto::Error error;
    const Value value = MZJSONDeserializer().deserializeJSONData(document, &error);
    const auto text = MZJSONSerializer::serializer().serializeToJSON(value, &error);
    if (!text || error) {
        std::abort();
    }
    return std::string(text->view());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int deepest = 200;  // This program's own functions recurse.
    bool isTooDeep = false;
    const json document = json::parse(
        data, data + size,
        [&isTooDeep](int depth, json::parse_event_t, json&) {
            isTooDeep = isTooDeep || depth > deepest;
            return !isTooDeep;
        },
        false);
    if (isTooDeep || document.is_discarded() || hasLargest(document)) {
        return 0;
    }
    MZJSONSerializer serializer = MZJSONSerializer::serializer();
    // Our reader wants a container at the top, and four bytes.
    const Value value = velto::Array{valueFrom(document), velto::Null{}};
    std::string text;
    std::string ours;
    for (const TextEncoding encoding :
         {TextEncoding::utf8, TextEncoding::utf16BigEndian, TextEncoding::utf16LittleEndian}) {
        serializer.setEncoding(encoding);
        const auto written = serializer.serializeToJSON(value);
        if (!written) {
            std::abort();
        }
        // Pairs of surrogates stand as two characters; the other reader wants one.
        const std::string read = encoding == TextEncoding::utf8
                                     ? velto::utf8FromUTF16(velto::utf16FromUTF8(written->view()))
                                     : velto::decodeText(written->view(), encoding).value_or("");
        if (text.empty()) {
            text = read;
            const json again = json::parse(read, nullptr, false);
            if (again.is_discarded() || !same(document, again[0])) {
                std::abort();
            }
            // Numbers have become doubles; from then on nothing changes.
            ours = writtenAgain(*written);
            if (writtenAgain(velto::Data(ours)) != ours) {
                std::abort();
            }
        } else if (read != text || writtenAgain(*written) != ours) {
            std::abort();
        }
    }
    return 0;
}
