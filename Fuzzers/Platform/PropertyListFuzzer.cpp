// Property lists of any bytes: what is read can be written, and reads back as the same.

#include <VeltoConnectFoundation/Platform/PropertyList.h>

#include <Fuzzers/Support/Require.h>

using velto::PropertyList;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velto::Error error;
    const auto value = PropertyList::parse({reinterpret_cast<const char*>(data), size}, &error);
    require(value.has_value() != static_cast<bool>(error));
    const auto xml = value ? PropertyList::xml(*value) : std::nullopt;
    if (!xml || xml->size() > (std::size_t{1} << 20)) {
        return 0;
    }
    // The XML form rounds dates to seconds, so the first reading may differ; the second may not.
    const auto first = PropertyList::parse(*xml);
    require(first.has_value());
    if (*first == *first) {  // Not so for a number that is none.
        require(PropertyList::parse(PropertyList::xml(*first).value_or("")) == first);
        const auto binary = PropertyList::binary(*first);
        require(!binary || PropertyList::parse(binary->view()) == first);
    }
    return 0;
}
