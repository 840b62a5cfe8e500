// Reads the bytes as a JSON document from memory, by stream in its own encoding and in UTF-16, and
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

velto::Value readCharacters(velto::TextEncoding encoding,
                            const velto::Data& data,
                            velto::Error& error) {
    const auto stream = velto::InputStream::withData(data);
    stream->open();
    MZStringStreamReader reader(encoding, stream);
    return MZJSONDeserializer().deserializeJSONStringReader(reader, &error);
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
    compare("by stream", fastValue, fastError, readStream(data, error), error);

    std::size_t markLength = 0;
    auto encoding = velto::TextEncoding::utf8;
    if (size < 4 ||
        !MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(bytes, 4, markLength, encoding)) {
        return 0;
    }
    error = {};
    const velto::Data text = data.subdata(markLength, size - markLength);
    compare("by character", fastValue, fastError, readCharacters(encoding, text, error), error);
    if (encoding == velto::TextEncoding::utf8 && velto::isValidUTF8(text.view())) {
        // The mark settles what the text could be taken for.
        const auto wide = velto::encodeText("\xEF\xBB\xBF" + std::string(text.view()),
                                            velto::TextEncoding::utf16LittleEndian);
        if (wide && wide->size() >= 4 &&
            std::string_view(*wide).substr(2, 2) != std::string_view("\0\0", 2)) {
            error = {};
            compare("in UTF-16", fastValue, fastError, readStream(velto::Data(*wide), error),
                    error);
            error = {};
            compare("in UTF-16, by character", fastValue, fastError,
                    readCharacters(velto::TextEncoding::utf16LittleEndian,
                                   velto::Data(std::string_view(*wide).substr(2)), error),
                    error);
        }
    }
    return 0;
}
