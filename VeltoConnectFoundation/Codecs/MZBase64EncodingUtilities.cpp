#include <VeltoConnectFoundation/Codecs/MZBase64Coder.h>
#include <VeltoConnectFoundation/Codecs/MZBase64EncodingUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZCompressionUtilities.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <cerrno>
#include <cstdint>
#include <utility>

namespace {

using velto::Array;
using velto::Data;
using velto::Dictionary;
using velto::Error;
using velto::TextEncoding;
using velto::Value;

constexpr std::size_t newlineInterval = 1024;

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

}  // namespace

const MZBase64EncodingUtilities& MZBase64EncodingUtilities::defaultUtilities() {
    static const MZBase64EncodingUtilities utilities;
    return utilities;
}

MZBase64EncodingUtilities MZBase64EncodingUtilities::utilities() {
    return {};
}

std::optional<Dictionary> MZBase64EncodingUtilities::encodedData(Data data, Error* error) const {
    const std::optional<std::string> md5 = MZMD5Operation::md5ForData(data, error);
    if (!md5) {
        return std::nullopt;
    }
    // Each form of the bytes goes as soon as the next one stands: only two are held at a time.
    if (compressing_) {
        std::optional<Data> gzipped =
            MZCompressionUtilities::defaultUtilities().gzipDeflate(data, error);
        if (!gzipped) {
            return std::nullopt;
        }
        data = std::move(*gzipped);
    }
    const std::optional<Data> base64 =
        MZBase64Coder::coder().encodedBase64ValueWithData(data, newlineInterval, error);
    if (!base64) {
        return std::nullopt;
    }
    data = Data();
    Value text;
    if (encoding_ == TextEncoding::utf8) {
        text = base64->view();
    } else if (const auto decoded = velto::decodeText(base64->view(), encoding_)) {
        text = *decoded;
    } else {
        return failForEncoding(error);
    }
    Dictionary content;
    content.set(MZContentChecksumKey, *md5);
    content.set(compressing_ ? MZGzipContentKey : MZContentKey, std::move(text));
    return content;
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
    std::optional<Data> data = MZBase64Coder::coder().decodedValueWithBase64Data(
        encoded ? *encoded : text.string(), error);
    if (data && isGzipped) {
        data = MZCompressionUtilities::defaultUtilities().gzipInflate(*data, error);
    }
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
    std::optional<Data> data = velto::FileManager::read(path, SIZE_MAX - 1, error);
    if (!data) {
        return std::nullopt;
    }
    return encodedData(std::exchange(*data, Data()), error);
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
