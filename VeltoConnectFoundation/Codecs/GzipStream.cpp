#include <VeltoConnectFoundation/Codecs/GzipStreamPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <algorithm>
#include <limits>
#include <string>

#define ZLIB_CONST
#include <zlib.h>

namespace {

constexpr int gzipWindow = 15 + 16;
constexpr int anyWindow = 15 + 32;
constexpr int memoryLevel = 8;

const char* messageForCode(int code) {
    switch (code) {
        case Z_VERSION_ERROR:
            return velto::markLocalized("General version error");
        case Z_BUF_ERROR:
            return velto::markLocalized("General buffer error");
        case Z_MEM_ERROR:
            return velto::markLocalized("General memory error");
        case Z_DATA_ERROR:
            return velto::markLocalized("General data error");
        case Z_STREAM_ERROR:
            return velto::markLocalized("General stream error");
        default:
            return velto::markLocalized("General error");
    }
}

velto::Error GenerateErrorWithStream(const z_stream* stream, int code) {
    velto::assertParameter(stream != nullptr, "stream != NULL",
                           "NSError *GenerateErrorWithStream(z_stream *, int)",
                           "MZCompressionUtilities.m");
    const std::string message =
        stream->msg != nullptr ? stream->msg : velto::localized(messageForCode(code));
    const std::string text = velto::localizedFormat("Unable to perform compression action: %@ (%@)",
                                                    message, std::to_string(code));
    return velto::Error::make(MZCompressionUtilitiesErrorDomain, code, text, text);
}

}  // namespace

void GzipStream::End::operator()(z_stream_s* stream) const noexcept {
    static_cast<void>(direction == Direction::deflate ? deflateEnd(stream) : inflateEnd(stream));
    delete stream;
}

GzipStream::GzipStream(Direction direction)
    : stream_(new z_stream{}, End{direction}),
      code_(direction == Direction::deflate ? deflateInit2(stream_.get(),
                                                           Z_DEFAULT_COMPRESSION,
                                                           Z_DEFLATED,
                                                           gzipWindow,
                                                           memoryLevel,
                                                           Z_DEFAULT_STRATEGY)
                                            : inflateInit2(stream_.get(), anyWindow)) {
}

bool GzipStream::isRunning() const noexcept {
    return code_ == Z_OK;
}

bool GzipStream::hasEnded() const noexcept {
    return code_ == Z_STREAM_END;
}

void GzipStream::run(std::span<const std::uint8_t>& input,
                     std::span<std::uint8_t>& output,
                     bool isLast) {
    if (!isRunning()) {
        return;
    }
    // zlib itself counts in 32 bits.
    constexpr std::size_t most = std::numeric_limits<uInt>::max();
    z_stream& stream = *stream_;
    const bool deflates = stream_.get_deleter().direction == Direction::deflate;
    while (isRunning() && !output.empty() && (isLast || !input.empty())) {
        const std::size_t given = std::min(input.size(), most);
        const std::size_t room = std::min(output.size(), most);
        stream.next_in = input.data();
        stream.avail_in = static_cast<uInt>(given);
        stream.next_out = output.data();
        stream.avail_out = static_cast<uInt>(room);
        const bool finishes = isLast && given == input.size();
        code_ = deflates ? deflate(&stream, finishes ? Z_FINISH : Z_NO_FLUSH)
                         : inflate(&stream, Z_SYNC_FLUSH);
        input = input.subspan(given - stream.avail_in);
        output = output.subspan(room - stream.avail_out);
    }
    if (hasEnded() && !deflates) {
        const int endCode = inflateEnd(&stream);
        code_ = endCode == Z_OK ? code_ : endCode;
    }
}

void GzipStream::failForMemory() noexcept {
    code_ = Z_MEM_ERROR;
}

velto::Error GzipStream::error() const {
    return GenerateErrorWithStream(stream_.get(), code_);
}
