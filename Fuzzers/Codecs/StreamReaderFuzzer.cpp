// Any bytes in any encoding: however the stream delivers them, by character or by run, the units,
// the failure and its place are the same.

#include <Tests/Support/ChunkedStream.h>
#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>

#include <cstdlib>
#include <string>

namespace {

using velto::TextEncoding;
using velto::testing::ChunkedInputStream;
using velto::testing::Chunks;

constexpr TextEncoding encodings[] = {TextEncoding::utf8, TextEncoding::utf16BigEndian,
                                      TextEncoding::utf16LittleEndian, TextEncoding::utf32BigEndian,
                                      TextEncoding::utf32LittleEndian};

struct Outcome {
    std::u16string units;
    std::int64_t code = 0;
    std::size_t position = 0;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

enum class Way { characters, runs, pushedBack };

Outcome read(TextEncoding encoding, const std::string& bytes, Chunks chunks, Way way) {
    MZStringStreamReader reader(encoding,
                                std::make_shared<ChunkedInputStream>(bytes, std::move(chunks)));
    Outcome outcome;
    for (;;) {
        if (way == Way::runs && encoding == TextEncoding::utf8) {
            const auto run = reader.buffered();
            std::size_t count = 0;
            while (count < run.size() && run[count] < 0x80) {
                outcome.units += run[count++];
            }
            reader.consume(count, count);
        }
        char16_t unit = 0;
        velto::Error error;
        if (reader.getNextCharacter(unit, &error)) {
            if (way == Way::pushedBack) {
                reader.pushCharacter(unit);
                if (!reader.getNextCharacter(unit, &error)) {
                    std::abort();
                }
            }
            outcome.units += unit;
        } else if (error || reader.isAtEnd()) {
            outcome.code = error.code();
            outcome.position = reader.position();
            return outcome;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) {
        return 0;
    }
    const TextEncoding encoding = encodings[data[0] % std::size(encodings)];
    const Chunks chunks{{data[1], std::size_t{data[2]} * 64, std::size_t{1} + data[3] % 7},
                        Chunks::never,
                        data[3] % 2 == 0};
    std::string bytes;
    // Repeated, so that small inputs cross the borders of blocks too.
    const std::size_t times = data[3] % 16 == 14 ? 1 + 9000 / size : 1;
    for (std::size_t i = 0; i < times; ++i) {
        bytes.append(reinterpret_cast<const char*>(data) + 4, size - 4);
    }
    const Outcome whole = read(encoding, bytes, {}, Way::characters);
    for (const Way way : {Way::characters, Way::runs, Way::pushedBack}) {
        if (read(encoding, bytes, chunks, way) != whole) {
            std::abort();
        }
    }
    return 0;
}
