// Reads the bytes as a JSON document from memory and by stream, in UTF-8 by runs and in UTF-16
// character by character: the answers must be the same.

#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>
#include <VeltoConnectFoundation/Codecs/MZUTF.h>

#include <cstdio>
#include <cstdlib>

namespace {

velto::Value readStream(const velto::Data& data, velto::Error& error) {
    MZJSONDeserializer deserializer;
    const auto stream = velto::InputStream::withData(data);
    stream->open();
    return deserializer.deserializeJSONStream(stream, &error);
}

void compare(const char* name,
             const velto::Value& left,
             const velto::Error& leftError,
             const velto::Value& right,
             const velto::Error& rightError) {
    if (left != right || leftError != rightError || (leftError && left)) {
        std::fprintf(stderr, "%s\nfast: %s %s\nother: %s %s\n", name, left.description().c_str(),
                     leftError.description().c_str(), right.description().c_str(),
                     rightError.description().c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const velto::Data data(bytes, size);
    velto::Error fastError;
    MZJSONDeserializer fast;
    const velto::Value fastValue = fast.deserializeJSONData(data, &fastError);
    velto::Error error;
    const velto::Value byStream = readStream(data, error);
    compare("by stream", fastValue, fastError, byStream, error);

    std::size_t markLength = 0;
    auto encoding = velto::TextEncoding::utf8;
    if (size >= 4 &&
        MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(bytes, size, markLength, encoding) &&
        encoding == velto::TextEncoding::utf8 && velto::isValidUTF8(data.view())) {
        // The mark settles what the text could be taken for.
        const auto wide =
            velto::encodeText("\xEF\xBB\xBF" + std::string(data.view().substr(markLength)),
                              velto::TextEncoding::utf16LittleEndian);
        if (wide && wide->size() >= 4 &&
            std::string_view(*wide).substr(2, 2) != std::string_view("\0\0", 2)) {
            velto::Error wideError;
            const velto::Value byCharacter = readStream(velto::Data(*wide), wideError);
            compare("in UTF-16", fastValue, fastError, byCharacter, wideError);
        }
    }
    return 0;
}
