// Reads the bytes as a JSON document both ways, in long runs and character by character: each
// answer must be the other's.

#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const velto::Data data(bytes, size);
    velto::Error fastError;
    MZJSONDeserializer fast;
    const velto::Value fastValue = fast.deserializeJSONData(data, &fastError);
    velto::Error plainError;
    MZJSONDeserializer plain;
    const auto stream = velto::InputStream::withData(data);
    stream->open();
    const velto::Value plainValue = plain.deserializeJSONStream(stream, &plainError);
    if (fastValue != plainValue || fastError != plainError || (fastError && fastValue)) {
        std::fprintf(stderr, "fast: %s %s\nplain: %s %s\n", fastValue.description().c_str(),
                     fastError.description().c_str(), plainValue.description().c_str(),
                     plainError.description().c_str());
        std::abort();
    }
    return 0;
}
