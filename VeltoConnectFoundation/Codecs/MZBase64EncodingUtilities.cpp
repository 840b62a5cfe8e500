#include <VeltoConnectFoundation/Codecs/Base64ReaderPrivate.h>
#include <VeltoConnectFoundation/Codecs/GzipInflaterPrivate.h>
#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/TextBlockPrivate.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace {

using velto::Array;
using velto::Data;
using velto::Dictionary;
using velto::Error;
using velto::TextEncoding;
using velto::Value;

constexpr std::size_t newlineInterval = 1024;
/// What is gzipped, coded and digested at once, so that no second form of the whole is ever held.
/// Lines of an interval of 1024 have 3072 bytes, and a piece whole lines.
constexpr std::size_t pieceSize = std::size_t{16} * 3072;
constexpr std::size_t textPieceSize = std::size_t{16} * 4096;

std::nullopt_t failWith(Error* error, std::int64_t code, const std::string& text) {
    velto::fail(error, Error::make(MZBase64EncodingErrorDomain, code, text, text));
    return std::nullopt;
}

std::nullopt_t failForEncoding(Error* error) {
    const std::string text = velto::localized("The base64 text does not fit its encoding.");
    velto::fail(error, Error::make(velto::GeneralErrorDomain, EILSEQ, text, text));
    return std::nullopt;
}

template <class Element, class Encode>
std::optional<Array> encodeEach(const std::vector<Element>& elements, Encode encode) {
    Array result;
    result.reserve(elements.size());
    for (const Element& element : elements) {
        std::optional<Dictionary> content = encode(element);
        if (!content) {
            return std::nullopt;
        }
        result.append(std::move(*content));
    }
    return result;
}

/// Makes the checksum and the text of bytes that come in pieces.
class ContentWriter {
public:
    ContentWriter(bool compresses, std::size_t expectedLength)
        : text_(expectedLength / 3 * 4 + expectedLength / pieceSize * 16 + 64) {
        if (compresses) {
            gzip_ = std::make_unique<GzipStream>(GzipStream::Direction::deflate);
        }
    }

    /// Each piece but the last has pieceSize bytes.
    bool add(const Data& bytes, Error* error) {
        md5_.updateWithBytes(bytes.bytes(), bytes.length());
        return gzip_ != nullptr ? deflate(bytes, false, error) : code(bytes, error);
    }
    bool finish(Error* error) {
        const std::optional<std::string> md5 = md5_.md5WithError(error);
        if (!md5) {
            return false;
        }
        checksum_ = *md5;
        return gzip_ == nullptr || deflate(Data(), true, error);
    }

    const std::string& checksum() const { return checksum_; }
    std::string_view text() const { return text_.text(); }
    Value takeText() { return text_.takeValue(); }

private:
    bool deflate(const Data& bytes, bool isLast, Error* error) {
        std::span input(bytes.bytes(), bytes.length());
        while (gzip_->isRunning() && (isLast || !input.empty())) {
            std::span<std::uint8_t> output(gzipped_.bytes() + gzippedLength_,
                                           gzipped_.size() - gzippedLength_);
            gzip_->run(input, output, isLast);
            gzippedLength_ = gzipped_.size() - output.size();
            if (output.empty() || gzip_->hasEnded()) {
                const Data piece = gzipped_.takeData(gzippedLength_);
                gzipped_ = ByteBlock(pieceSize);
                gzippedLength_ = 0;
                if (!code(piece, error)) {
                    return false;
                }
            }
        }
        return gzip_->isRunning() || gzip_->hasEnded() || velto::fail(error, gzip_->error());
    }

    bool code(const Data& bytes, Error* error) {
        const auto text = coder_.encodedBase64ValueWithData(bytes, newlineInterval, error);
        if (!text) {
            return false;
        }
        text_.append(text->view());
        return true;
    }

    MZMD5Context md5_;
    std::string checksum_;
    std::unique_ptr<GzipStream> gzip_;  ///< Null when the bytes go as they are.
    ByteBlock gzipped_{pieceSize};
    std::size_t gzippedLength_ = 0;
    MZBase64Coder coder_;
    velto::detail::TextBlock text_;
};

/// The dictionary of what `addPieces` gives a writer.
template <class AddPieces>
std::optional<Dictionary> contentOf(const MZBase64EncodingUtilities& utilities,
                                    std::size_t expectedLength,
                                    AddPieces addPieces,
                                    Error* error) {
    const bool compresses = utilities.isCompressing();
    ContentWriter writer(compresses, expectedLength);
    if (!addPieces(writer) || !writer.finish(error)) {
        return std::nullopt;
    }
    Value text;
    if (utilities.encoding() == TextEncoding::utf8) {
        text = writer.takeText();
    } else if (const auto decoded = velto::decodeText(writer.text(), utilities.encoding())) {
        text = *decoded;
    } else {
        return failForEncoding(error);
    }
    Dictionary content;
    content.set(MZContentChecksumKey, writer.checksum());
    content.set(compresses ? MZGzipContentKey : MZContentKey, std::move(text));
    return content;
}

/// The bytes of gzipped base64 text.
std::optional<Data> inflated(std::string_view text, Error* error) {
    Base64Reader reader(MZBase64Coder::defaultFlags);
    // Twice the block, as a guess.
    GzipInflater inflater(Base64Reader::mostBytes(text.size()) * 2);
    ByteBlock bytes(Base64Reader::mostBytes(textPieceSize));
    // The text's own errors come first: it is read to its end even when the block is none.
    while (!text.empty() && !reader.hasEnded()) {
        const std::string_view piece = text.substr(0, textPieceSize);
        text.remove_prefix(piece.size());
        const std::uint8_t* const end = reader.read(piece, bytes.bytes(), error);
        if (end == nullptr) {
            return std::nullopt;
        }
        inflater.add(std::span<const std::uint8_t>(bytes.bytes(), end), false);
    }
    inflater.add({}, true);
    return inflater.takeData(error);
}

}  // namespace

const MZBase64EncodingUtilities& MZBase64EncodingUtilities::defaultUtilities() {
    static const MZBase64EncodingUtilities utilities;
    return utilities;
}

MZBase64EncodingUtilities MZBase64EncodingUtilities::utilities() {
    return {};
}

std::optional<Dictionary> MZBase64EncodingUtilities::encodedData(const Data& data,
                                                                 Error* error) const {
    return contentOf(
        *this, data.length(),
        [&](ContentWriter& writer) {
            for (std::size_t at = 0; at < data.length(); at += pieceSize) {
                if (!writer.add(data.subdata(at, pieceSize), error)) {
                    return false;
                }
            }
            return true;
        },
        error);
}

std::optional<Data> MZBase64EncodingUtilities::decodedData(const Dictionary& content,
                                                           Error* error) const {
    const bool isGzipped = content.contains(MZGzipContentKey);
    const Value& text = content[isGzipped ? MZGzipContentKey : MZContentKey];
    if (!text.isString()) {
        return failWith(error, -17003,
                        velto::localizedFormat("The content dictionary has no text under “%@” "
                                               "or “%@”.",
                                               MZGzipContentKey, MZContentKey));
    }
    std::optional<std::string> encoded;
    if (encoding_ != TextEncoding::utf8) {
        encoded = velto::encodeText(text.string(), encoding_);
        if (!encoded) {
            return failForEncoding(error);
        }
    }
    const std::string_view base64 = encoded ? *encoded : text.string();
    std::optional<Data> data =
        isGzipped ? inflated(base64, error)
                  : MZBase64Coder::coder().decodedValueWithBase64Data(base64, error);
    if (!data) {
        return std::nullopt;
    }
    const std::optional<std::string> actual = MZMD5Operation::md5ForData(*data, error);
    if (!actual) {
        return std::nullopt;
    }
    const Value& expected = content[MZContentChecksumKey];
    if (!expected.isNone() && (expected.string().size() != actual->size() ||
                               velto::findIgnoringCase(expected.string(), *actual) != 0)) {
        return failWith(
            error, -17001,
            velto::localizedFormat("Actual checksum (%@) did not match expected checksum (%@).",
                                   *actual, expected));
    }
    return data;
}

std::optional<Dictionary> MZBase64EncodingUtilities::encodedFileAtPath(std::string_view path,
                                                                       Error* error) const {
    const auto attributes = velto::FileManager::attributes(path, error);
    if (!attributes) {
        return std::nullopt;
    }
    return contentOf(
        *this, attributes->size,
        [&](ContentWriter& writer) {
            return velto::FileManager::readBlocks(
                path, pieceSize,
                [&](std::string_view block) { return writer.add(Data(block), error); }, error);
        },
        error);
}

std::optional<Array> MZBase64EncodingUtilities::encodeDatas(const std::vector<Data>& datas,
                                                            Error* error) const {
    return encodeEach(datas, [&](const Data& data) { return encodedData(data, error); });
}

std::optional<Array> MZBase64EncodingUtilities::encodedFilesAtPaths(
    const std::vector<std::string>& paths,
    Error* error) const {
    return encodeEach(paths,
                      [&](const std::string& path) { return encodedFileAtPath(path, error); });
}
