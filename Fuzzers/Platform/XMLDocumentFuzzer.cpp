// XML of any bytes: what is read holds no more than stood there.

#include <VeltoConnectFoundation/Platform/XMLDocument.h>

#include <Fuzzers/Support/Require.h>

namespace {

/// Names, attributes and text of a tree. A reader's own text is UTF-8, whatever stood there.
std::size_t bytesOf(const velto::XMLElement& element) {
    std::size_t bytes = element.name().size() + element.text().size();
    for (const auto& [name, value] : element.attributes()) {
        bytes += name.size() + value.size();
    }
    for (const velto::XMLElement& child : element.children()) {
        bytes += bytesOf(child);
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velto::Error error;
    const auto document =
        velto::XMLDocument::parse({reinterpret_cast<const char*>(data), size}, &error);
    require(document.has_value() != static_cast<bool>(error));
    require(!document || bytesOf(document->root()) <= 3 * size);
    return 0;
}
