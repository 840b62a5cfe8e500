// Base64 text with any flags: the tolerant reader and the strict one agree where both read, the
// ways of the core agree, and what is written reads back.

#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/Base64Blocks.h>

#include <Fuzzers/Support/Require.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::uint8_t choice = data[0];
    const std::size_t interval = data[1] + std::size_t{1};
    // An own block, so that a read beyond its end is seen.
    const std::vector<char> text(data + 2, data + size);
    const std::string_view view(text.data(), text.size());

    std::vector<std::uint8_t> plain(text.size() / 4 * 3);
    const bool skips = (choice & MZBase64AcceptsLineFeed) != 0;
    const auto taken =
        velto::detail::plainBase64Blocks().decode(text.data(), text.size(), skips, plain.data());
    for (const auto* blocks :
         {velto::detail::avx2Base64Blocks(), velto::detail::avx512Base64Blocks()}) {
        if (blocks != nullptr) {
            std::vector<std::uint8_t> fast(text.size() / 4 * 3);
            const auto fastTaken = blocks->decode(text.data(), text.size(), skips, fast.data());
            require(fastTaken.characters == taken.characters && fastTaken.bytes == taken.bytes);
            require(std::equal(plain.begin(),
                               plain.begin() + static_cast<std::ptrdiff_t>(taken.bytes),
                               fast.begin()));
        }
    }

    MZBase64Coder coder;
    coder.setFlags((choice & 0x1eU) | ((choice & 0x20U) != 0 ? MZBase64AcceptsAll : 0) |
                   ((choice & 0x40U) != 0 ? MZBase64EndsWithNewline : 0));
    velto::Error error;
    const auto decoded = coder.decodedValueWithBase64Data(view, &error);
    require(decoded.has_value() == !error);
    const auto strict = velto::decodeBase64(view);
    if (strict) {
        require(decoded && *decoded == *strict);
    }

    const velto::Data bytes(view);
    const auto encoded = coder.encodedBase64ValueWithData(bytes, interval);
    MZBase64Coder reader;
    const auto back = reader.decodedValueWithBase64Data(*encoded);
    require(back && *back == bytes);
    return 0;
}
