#include <VeltoConnectFoundation/Codecs/WriteAllPrivate.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

velto::Error writeAll(velto::OutputStream& stream,
                      const std::uint8_t* bytes,
                      std::size_t length,
                      std::string_view domain) {
    const auto exhausted = [domain] {
        return velto::Error::make(
            domain, -10000,
            velto::localized("The output stream is exhausted and won’t allow additional writes."),
            velto::localized("Output stream exhausted"));
    };
    int emptyWrites = 0;
    while (length != 0) {
        const std::ptrdiff_t count = stream.write(bytes, length);
        if (count < 0) {
            // A stream that fails must not pass for one that took everything.
            velto::Error error = stream.streamError();
            return error ? error : exhausted();
        }
        if (count > 0) {
            emptyWrites = 0;
        } else if (++emptyWrites == 1001) {
            return exhausted();
        }
        bytes += count;
        length -= static_cast<std::size_t>(count);
    }
    return {};
}
