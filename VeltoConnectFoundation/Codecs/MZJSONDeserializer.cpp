#include <VeltoConnectFoundation/Codecs/MZJSONDeserializer.h>

#include <VeltoConnectFoundation/Codecs/MZJSONDocumentReader.h>
#include <VeltoConnectFoundation/Codecs/MZJSONNumber.h>
#include <VeltoConnectFoundation/Codecs/MZJSONTextSource.h>
#include <VeltoConnectFoundation/Codecs/MZUTF.h>
#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/ValueBuilder.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

namespace {

using velto::Error;
using velto::fail;
using velto::localized;
using velto::localizedFormat;
using velto::TextEncoding;
using velto::Value;
using velto::detail::ValueBuilder;

constexpr char sourceFile[] = "MZJSONDeserializer.m";
constexpr int maximumEmptyReads = 1001;

Error jsonError(std::int64_t code, const std::string& description, const std::string& reason) {
    return Error::make(MZJSONSerlizationErrorDomain, code, description, reason);
}

/// Fills the out-parameter and answers none.
Value failed(Error* out, Error error) {
    fail(out, std::move(error));
    return {};
}

std::string invalidSequence() {
    return localized("Invalid character sequence");
}

std::string invalidDictionary() {
    return localized("Invalid dictionary character sequence.");
}

std::string unsupportedSequence() {
    return localized("Unsupported character sequence");
}

bool isNumberCharacter(char16_t character) noexcept {
    return (character >= '0' && character <= '9') || character == '+' || character == '-' ||
           character == '.' || character == 'e' || character == 'E';
}

/// The next bytes of a document in UTF-8 that lie in memory; empty in another encoding.
std::span<const std::uint8_t> bufferedUTF8(const MZStringStreamReader& reader) noexcept {
    return reader.encoding() == TextEncoding::utf8 ? reader.buffered()
                                                   : std::span<const std::uint8_t>();
}

/// The next character that is no white space. False as getNextCharacter.
bool nextVisibleCharacter(MZStringStreamReader& reader, char16_t& character, Error* error) {
    for (;;) {
        const std::span<const std::uint8_t> run = bufferedUTF8(reader);
        std::size_t count = 0;
        while (count < run.size() &&
               (run[count] == ' ' || (run[count] >= '\t' && run[count] <= '\r'))) {
            ++count;
        }
        if (count < run.size() && run[count] > ' ' && run[count] < 0x7F) {
            character = run[count];
            reader.consume(count + 1, count + 1);
            return true;
        }
        reader.consume(count, count);
        if (!reader.getNextCharacter(character, error)) {
            return false;
        }
        if (!IsWhitespaceCharacter(character)) {
            return true;
        }
    }
}

/// How many bytes of text a run begins with that stand for themselves in a string, and how many
/// units they are: no escape, no control character, nothing malformed, nothing of four bytes.
struct PlainText {
    explicit PlainText(std::span<const std::uint8_t> run) noexcept {
        const auto continues = [&](std::size_t at) { return (run[at] & 0xC0) == 0x80; };
        while (bytes < run.size()) {
            const std::size_t left = run.size() - bytes;
            if (left >= sizeof(std::uint64_t) && areAllPlain(&run[bytes])) {
                bytes += sizeof(std::uint64_t);
                units += sizeof(std::uint64_t);
                continue;
            }
            const std::uint8_t byte = run[bytes];
            std::size_t length = 1;
            if (byte >= 0xE0) {
                if (byte >= 0xF0 || left < 3 || !continues(bytes + 1) || !continues(bytes + 2) ||
                    (byte == 0xE0 && run[bytes + 1] < 0xA0)) {
                    return;
                }
                length = 3;
            } else if (byte >= 0x80) {
                if (byte < 0xC2 || left < 2 || !continues(bytes + 1)) {
                    return;
                }
                length = 2;
            } else if (byte < ' ' || byte == '"' || byte == '\\') {
                return;
            }
            bytes += length;
            ++units;
        }
    }

    /// Eight bytes of ASCII that need no look.
    static bool areAllPlain(const std::uint8_t* bytes) noexcept {
        constexpr std::uint64_t ones = 0x0101010101010101;
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof(word));
        const std::uint64_t hits = (word - ones * ' ') | ((word ^ (ones * '"')) - ones) |
                                   ((word ^ (ones * '\\')) - ones) | word;
        return (hits & (ones * 0x80)) == 0;
    }

    std::size_t bytes = 0;
    std::size_t units = 0;
};

/// The platform scanner's rule: white space, perhaps "0x", then digits up to the first other
/// character. None without a digit.
std::optional<char16_t> scannedHexadecimal(const std::array<char16_t, 4>& text) noexcept {
    std::size_t at = 0;
    while (at < text.size() && IsWhitespaceCharacter(text[at])) {
        ++at;
    }
    if (at + 1 < text.size() && text[at] == '0' && (text[at + 1] == 'x' || text[at + 1] == 'X')) {
        at += 2;
    }
    const std::size_t first = at;
    unsigned value = 0;
    for (; at < text.size(); ++at) {
        const char16_t c = text[at];
        if (c >= '0' && c <= '9') {
            value = value * 16 + (c - '0');
        } else if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
            value = value * 16 + ((c | 0x20) - 'a' + 10);
        } else {
            break;
        }
    }
    return at == first ? std::nullopt : std::optional(static_cast<char16_t>(value));
}

/// What is open while an input stream is read.
class OpenStream {
public:
    explicit OpenStream(velto::InputStream& stream) : stream_(stream) { stream_.open(); }
    ~OpenStream() { stream_.close(); }
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;

private:
    velto::InputStream& stream_;
};

/// Character by character, `first` and then what the stream has.
Value readCharacters(MZJSONDeserializer& deserializer,
                     const std::shared_ptr<velto::InputStream>& stream,
                     std::string_view first,
                     Error* error) {
    MZStringStreamReader reader(deserializer.encoding(), stream);
    reader.pushBytes(reinterpret_cast<const std::uint8_t*>(first.data()), first.size());
    return deserializer.deserializeJSONStringReader(reader, error);
}

}  // namespace

bool IsWhitespaceCharacter(char16_t character) noexcept {
    return velto::isWhiteSpace(character);
}

/// A container that is being read. Its values stand on top of the builder; it takes the
/// punctuation that follows each.
class MZJSONDeserializer::Container {
public:
    enum class Step : std::uint8_t { wantsValue, ended, failed };

    /// `first`: how many values stand below its own.
    Container(Context kind, std::size_t first) noexcept : kind_(kind), first_(first) {}

    Context kind() const noexcept { return kind_; }

    /// `hasValue`: one has been pushed. Else there was no more, by the closing bracket or the end
    /// of the input.
    Step accept(bool hasValue,
                const ValueBuilder& values,
                MZStringStreamReader& reader,
                Error* error) {
        return kind_ == Context::array ? acceptElement(hasValue, reader, error)
                                       : acceptPart(hasValue, values, reader, error);
    }

    void close(ValueBuilder& values) const {
        if (kind_ == Context::array) {
            values.closeArray(first_);
        } else {
            values.closeDictionary(first_);
        }
    }

private:
    enum class Expected : std::uint8_t { first, afterComma, afterColon };

    static Step failed(Error* out, Error error) {
        fail(out, std::move(error));
        return Step::failed;
    }

    Step acceptElement(bool hasValue, MZStringStreamReader& reader, Error* error) {
        if (!hasValue) {
            if (expected_ == Expected::first) {
                return Step::ended;
            }
            return failed(error, jsonError(-10007,
                                           localizedFormat("Invalid JSON character sequence in "
                                                           "array (%1$C) at index %2$lu. An "
                                                           "additional object was expected.",
                                                           u',', reader.position()),
                                           localized("Invalid character sequence after comma")));
        }
        char16_t character = 0;
        Error failure;
        if (!nextVisibleCharacter(reader, character, &failure)) {
            return failed(error, failure ? failure
                                         : jsonError(-10023,
                                                     localizedFormat("Unfinished JSON array at "
                                                                     "index %1$lu",
                                                                     reader.position()),
                                                     invalidSequence()));
        }
        if (character == ']') {
            return Step::ended;
        }
        if (character != ',') {
            return failed(
                error, jsonError(-10006,
                                 localizedFormat("Invalid JSON character sequence in array (%1$C) "
                                                 "at index %2$lu",
                                                 character, reader.position()),
                                 invalidSequence()));
        }
        expected_ = Expected::afterComma;
        return Step::wantsValue;
    }

    Step acceptPart(bool hasValue,
                    const ValueBuilder& values,
                    MZStringStreamReader& reader,
                    Error* error) {
        if (!hasValue) {
            return expected_ == Expected::first ? Step::ended : missingPart(values, reader, error);
        }
        if (expected_ != Expected::afterColon) {
            return acceptKey(reader, error);
        }
        char16_t character = 0;
        Error failure;
        if (!nextVisibleCharacter(reader, character, &failure)) {
            return failed(error, failure
                                     ? failure
                                     : jsonError(-10025,
                                                 localizedFormat("Unterminated JSON dictionary at "
                                                                 "index %1$lu",
                                                                 reader.position()),
                                                 invalidDictionary()));
        }
        if (character == '}') {
            return Step::ended;
        }
        if (character != ',') {
            return failed(error,
                          jsonError(-10009,
                                    localizedFormat("Invalid JSON character sequence while looking "
                                                    "for the next entry or the end of the "
                                                    "dictionary (%1$C) at index %2$lu",
                                                    character, reader.position()),
                                    invalidDictionary()));
        }
        expected_ = Expected::afterComma;
        return Step::wantsValue;
    }

    Step acceptKey(MZStringStreamReader& reader, Error* error) {
        char16_t character = 0;
        Error failure;
        if (!nextVisibleCharacter(reader, character, &failure)) {
            return failed(error, failure
                                     ? failure
                                     : jsonError(-10024,
                                                 localizedFormat("Unfinished JSON dictionary at "
                                                                 "index %1$lu.",
                                                                 reader.position()),
                                                 invalidDictionary()));
        }
        if (character != ':') {
            return failed(error,
                          jsonError(-10008,
                                    localizedFormat("Invalid JSON character sequence while looking "
                                                    "for colon in dictionary (%1$C) at index %2$lu",
                                                    character, reader.position()),
                                    invalidDictionary()));
        }
        expected_ = Expected::afterColon;
        return Step::wantsValue;
    }

    Step missingPart(const ValueBuilder& values, MZStringStreamReader& reader, Error* error) {
        const std::string text =
            expected_ == Expected::afterColon
                ? localizedFormat(
                      "Invalid JSON character sequence in dictionary at index %1$lu. A "
                      "value was expected after the colon for key ‘%2$@’.",
                      reader.position(), values.top())
                : localizedFormat(
                      "Invalid JSON character sequence in dictionary (%1$C) at index "
                      "%2$lu. A value was expected after the colon for key ‘%3$@’.",
                      u',', reader.position(), "");
        return failed(error,
                      jsonError(-10007, text,
                                localized("Invalid dictionary character sequence after colon.")));
    }

    Context kind_;
    Expected expected_ = Expected::first;
    std::size_t first_;
};

std::shared_ptr<MZJSONDeserializer> MZJSONDeserializer::deserializer() {
    return std::make_shared<MZJSONDeserializer>();
}

MZJSONDeserializer::MZJSONDeserializer()
    : readBuffer_(static_cast<char*>(std::malloc(initialSize))) {
    velto::assertParameter(readBuffer_ != nullptr, "_readBuffer", "-[MZJSONDeserializer init]",
                           sourceFile);
}

Value MZJSONDeserializer::deserializeJSONData(const velto::Data& data, Error* error) {
    std::size_t markLength = 0;
    TextEncoding encoding = TextEncoding::utf8;
    if (MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(
            data.bytes(), std::min<std::size_t>(data.length(), 4), markLength, encoding) &&
        encoding == TextEncoding::utf8 && data.length() >= 4) {
        encoding_ = encoding;
        if (Value document = MZJSONDocumentReader::readWhole(data.view().substr(markLength))) {
            return document;
        }
        const auto stream =
            velto::InputStream::withData(data.subdata(markLength, data.length() - markLength));
        const OpenStream open(*stream);
        return readCharacters(*this, stream, {}, error);
    }
    const auto stream = velto::InputStream::withData(data);
    const OpenStream open(*stream);
    return deserializeJSONStream(stream, error);
}

Value MZJSONDeserializer::deserializeJSONStream(const std::shared_ptr<velto::InputStream>& stream,
                                                Error* error) {
    std::array<std::uint8_t, 4> bytes;
    int emptyReads = 0;
    for (std::size_t obtained = 0; obtained < bytes.size();) {
        const std::ptrdiff_t count = stream->read(bytes.data() + obtained, bytes.size() - obtained);
        if (count < 0) {
            return failed(error, stream->streamError());
        }
        emptyReads = count == 0 ? emptyReads + 1 : 0;
        if (emptyReads == maximumEmptyReads) {
            return failed(error,
                          jsonError(-10002,
                                    localized("The JSON input stream is exhausted and won’t allow "
                                              "additional reads."),
                                    localized("The JSON input stream is exhausted.")));
        }
        obtained += static_cast<std::size_t>(count);
    }
    std::size_t markLength = 0;
    if (!MZUTFDetermineEncodingFromBytesWithASCIIFirstCharacter(bytes.data(), bytes.size(),
                                                                markLength, encoding_)) {
        return failed(error, jsonError(-10003,
                                       localized("The JSON input stream character encoding is "
                                                 "non-deterministic."),
                                       localized("The JSON input stream encoding is "
                                                 "non-deterministic.")));
    }
    MZJSONTextSource source(
        encoding_, stream,
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())
            .substr(markLength));
    if (Value document = MZJSONDocumentReader::readWhole(source)) {
        return document;
    }
    return readCharacters(*this, source.stream(), source.bytes(), error);
}

Value MZJSONDeserializer::deserializeJSONStringReader(MZStringStreamReader& reader, Error* error) {
    Error failure;
    Value document = deserializeJSONStringReader(reader, Value(), &failure);
    if (document.isNone()) {
        return failure ? failed(error, std::move(failure)) : Value();
    }
    char16_t character = 0;
    if (nextVisibleCharacter(reader, character, &failure)) {
        return failed(error,
                      jsonError(-10021,
                                localizedFormat("Invalid spurious JSON character sequence (%1$C) "
                                                "at index %2$lu",
                                                character, reader.position()),
                                invalidSequence()));
    }
    if (failure) {
        return failed(error, std::move(failure));
    }
    if (!reader.isAtEnd()) {
        return failed(error, jsonError(-10022,
                                       localizedFormat("Invalid JSON character 0x%x read at index "
                                                       "%lu",
                                                       unsigned{character}, reader.position()),
                                       invalidSequence()));
    }
    return document;
}

Value MZJSONDeserializer::deserializeJSONStringReader(MZStringStreamReader& reader,
                                                      const Value& context,
                                                      Error* error) {
    return readValue(reader,
                     context.isArray()        ? Context::array
                     : context.isDictionary() ? Context::dictionary
                                              : Context::none,
                     {}, error);
}

Value MZJSONDeserializer::deserializeJSONArrayWithStringReader(MZStringStreamReader& reader,
                                                               Error* error) {
    return readValue(reader, Context::none, {Container(Context::array, 0)}, error);
}

Value MZJSONDeserializer::deserializeJSONDictionaryWithStringReader(MZStringStreamReader& reader,
                                                                    Error* error) {
    return readValue(reader, Context::none, {Container(Context::dictionary, 0)}, error);
}

/// The value that stands in `context`, or the first of `containers`, which have been opened. The
/// list stands in place of the call stack, so that nesting may be of any depth.
Value MZJSONDeserializer::readValue(MZStringStreamReader& reader,
                                    Context context,
                                    std::vector<Container> containers,
                                    Error* error) {
    ValueBuilder values(0);
    for (;;) {
        const Context inside = containers.empty() ? context : containers.back().kind();
        char16_t character = 0;
        bool hasValue = false;
        Error failure;
        if (nextVisibleCharacter(reader, character, &failure)) {
            if (character == '[' || character == '{') {
                containers.emplace_back(character == '[' ? Context::array : Context::dictionary,
                                        values.size());
                continue;
            }
            hasValue = readPlainValue(reader, character, inside, values, &failure);
        }
        if (failure) {
            return failed(error, std::move(failure));
        }
        for (;; containers.pop_back()) {
            if (containers.empty()) {
                return hasValue ? values.finish() : Value();
            }
            const auto step = containers.back().accept(hasValue, values, reader, error);
            if (step == Container::Step::failed) {
                return {};
            }
            if (step == Container::Step::wantsValue) {
                break;
            }
            containers.back().close(values);
            hasValue = true;
        }
    }
}

/// Pushes a value that is no container. False at the end of one, and on failure.
bool MZJSONDeserializer::readPlainValue(MZStringStreamReader& reader,
                                        char16_t character,
                                        Context context,
                                        ValueBuilder& values,
                                        Error* error) {
    const bool contained = context != Context::none;
    const auto misplaced = [&](std::int64_t code, const std::string& text) {
        return fail(error, jsonError(code, text, invalidSequence()));
    };
    const auto push = [&values](const Value& value) {
        if (value.kind() == velto::ValueKind::boolean) {
            values.push(value.boolValue());
        } else if (value.isNull()) {
            values.pushNull();
        }
        return !value.isNone();
    };
    const auto pushNumber = [&] {
        double number = 0;
        const bool isRead = readNumber(reader, character, number, error);
        if (isRead) {
            values.push(number);
        }
        return isRead;
    };
    switch (character) {
        case '"':
            return contained ? readText(reader, values, error)
                             : misplaced(-10017, localizedFormat(
                                                     "Invalid JSON string sequence (%1$C) at index "
                                                     "%2$lu while not in a container.",
                                                     character, reader.position()));
        case '-':
        case '.':
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9':
            return contained ? pushNumber()
                             : misplaced(-10018, localizedFormat(
                                                     "Invalid JSON number sequence (%1$C) at index "
                                                     "%2$lu while not in a container.",
                                                     character, reader.position()));
        case 't':
        case 'f':
            return contained
                       ? push(deserializeJSONBooleanWithStringReader(reader, character, error))
                       : misplaced(-10019,
                                   localizedFormat("Invalid JSON boolean sequence (%1$C) at index "
                                                   "%2$lu while not in a container.",
                                                   character, reader.position()));
        case 'n':
            return contained ? push(deserializeJSONNullWithStringReader(reader, error))
                             : misplaced(-10020, localizedFormat(
                                                     "Invalid JSON null sequence (%1$C) at index "
                                                     "%2$lu while not in a container.",
                                                     character, reader.position()));
        case ']':
            return context == Context::array
                       ? false
                       : misplaced(-10015,
                                   localizedFormat("Invalid JSON character sequence (%1$C) at "
                                                   "index %2$lu while not in an array.",
                                                   character, reader.position()));
        case '}':
            return context == Context::dictionary
                       ? false
                       : misplaced(-10016,
                                   localizedFormat("Invalid JSON character sequence (%1$C) at "
                                                   "index %2$lu while not in a dictionary.",
                                                   character, reader.position()));
        default:
            return misplaced(-10005, localizedFormat("Invalid JSON character sequence (%1$C) at "
                                                     "index %2$lu",
                                                     character, reader.position()));
    }
}

Value MZJSONDeserializer::deserializeJSONStringWithStringReader(MZStringStreamReader& reader,
                                                                Error* error) {
    ValueBuilder values(0);
    return readText(reader, values, error) ? values.finish() : Value();
}

/// Pushes the text up to the closing quotation mark.
bool MZJSONDeserializer::readText(MZStringStreamReader& reader,
                                  ValueBuilder& values,
                                  Error* error) {
    index_ = 0;
    char16_t character = 0;
    for (;;) {
        const std::span<const std::uint8_t> run = bufferedUTF8(reader);
        const PlainText plain(run);
        append({reinterpret_cast<const char*>(run.data()), plain.bytes});
        reader.consume(plain.bytes, plain.units);
        if (!reader.getNextCharacter(character, error)) {
            return false;
        }
        switch (character) {
            case '"':
                return pushBufferedText(values);
            case '\\':
                if (!readEscape(reader, error)) {
                    return false;
                }
                break;
            case '\t':
            case '\n':
            case '\r':
                return fail(error, jsonError(-10027,
                                             localizedFormat("An illegal character was found in a "
                                                             "string (%1$C) at index %2$lu",
                                                             character, reader.position()),
                                             unsupportedSequence()));
            default:
                append(character);
                break;
        }
    }
}

bool MZJSONDeserializer::readEscape(MZStringStreamReader& reader, Error* error) {
    char16_t character = 0;
    if (!reader.getNextCharacter(character, error)) {
        return false;
    }
    switch (character) {
        case 'n':
            append('\n');
            return true;
        case 'r':
            append('\r');
            return true;
        case 't':
            append('\t');
            return true;
        case 'b':
            append('\b');
            return true;
        case 'f':
            append('\f');
            return true;
        case '"':
        case '/':
        case '\\':
            append(character);
            return true;
        case 'u':
            break;
        default:
            return fail(error, jsonError(-10011,
                                         localizedFormat("An unsupported escape sequence was found "
                                                         "in a string (%1$C) at index %2$lu",
                                                         character, reader.position()),
                                         unsupportedSequence()));
    }
    std::array<char16_t, 4> digits;
    for (char16_t& digit : digits) {
        if (!reader.getNextCharacter(digit, error)) {
            return false;
        }
    }
    const std::optional<char16_t> unit = scannedHexadecimal(digits);
    if (!unit) {
        return fail(error, jsonError(-10012,
                                     localizedFormat(
                                         "An unrecognized Unicode escape sequence was found in a "
                                         "string (%1$@) at index %2$lu",
                                         velto::utf8FromUTF16({digits.data(), digits.size()}),
                                         reader.position()),
                                     unsupportedSequence()));
    }
    append(*unit);
    return true;
}

/// The buffer holds one to three bytes for each unit. Surrogates stand in it one by one, so that
/// pairs have to be joined.
bool MZJSONDeserializer::pushBufferedText(ValueBuilder& values) const {
    const std::string_view text(readBuffer_.get(), index_);
    if (velto::isValidUTF8(text)) {
        values.pushText(text.data(), text.size());
        return true;
    }
    std::u16string units;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    for (std::size_t at = 0; at < text.size();) {
        std::size_t consumed = 0;
        char16_t unit = 0;
        if (MZUTF8DecodeBytesTo16Bits(bytes + at, text.size() - at, consumed, unit)) {
            return false;
        }
        units += unit;
        at += consumed;
    }
    const std::string joined = velto::utf8FromUTF16(units);
    values.pushText(joined.data(), joined.size());
    return true;
}

void MZJSONDeserializer::growBuffer() {
    auto* larger = static_cast<char*>(std::realloc(readBuffer_.get(), allocated_ * 2));
    velto::assertParameter(
        larger != nullptr, "self->_readBuffer",
        "void ReadBufferResizeIfNeeded(MZJSONDeserializer *__strong, NSUInteger)", sourceFile);
    static_cast<void>(readBuffer_.release());
    readBuffer_.reset(larger);
    allocated_ *= 2;
}

void MZJSONDeserializer::append(std::string_view text) {
    while (index_ + text.size() + 3 >= allocated_) {
        growBuffer();
    }
    std::copy(text.begin(), text.end(), readBuffer_.get() + index_);
    index_ += text.size();
}

void MZJSONDeserializer::append(char16_t character) {
    if (index_ + 3 >= allocated_) {
        growBuffer();
    }
    if (character < 0x80) {
        readBuffer_.get()[index_++] = static_cast<char>(character);
        return;
    }
    std::size_t count = 0;
    MZUTF8Encode16BitsToBytes(character,
                              reinterpret_cast<std::uint8_t*>(readBuffer_.get()) + index_, count);
    index_ += count;
}

Value MZJSONDeserializer::deserializeJSONNumberWithStringReader(MZStringStreamReader& reader,
                                                                char16_t initialCharacter,
                                                                Error* error) {
    double number = 0;
    return readNumber(reader, initialCharacter, number, error) ? Value(number) : Value();
}

bool MZJSONDeserializer::readNumber(MZStringStreamReader& reader,
                                    char16_t initialCharacter,
                                    double& value,
                                    Error* error) {
    index_ = 0;
    char16_t character = initialCharacter;
    for (;;) {
        append(character);
        const std::span<const std::uint8_t> run = bufferedUTF8(reader);
        std::size_t count = 0;
        while (count < run.size() && isNumberCharacter(run[count])) {
            ++count;
        }
        append({reinterpret_cast<const char*>(run.data()), count});
        reader.consume(count, count);
        if (count < run.size() && run[count] < 0x80) {
            break;
        }
        if (!reader.getNextCharacter(character, error)) {
            return false;
        }
        if (!isNumberCharacter(character)) {
            reader.pushCharacter(character);
            break;
        }
    }
    const std::string_view text(readBuffer_.get(), index_);
    const MZJSONNumber number(text);
    if (number.status == MZJSONNumber::Status::leadingZero) {
        return fail(error, jsonError(-10026,
                                     localizedFormat("Invalid JSON number sequence. Integers may "
                                                     "not have a leading zero. (%1$s) at index "
                                                     "%2$lu",
                                                     text, reader.position()),
                                     localized("Invalid number character sequence.")));
    }
    if (number.status == MZJSONNumber::Status::inconvertible) {
        return fail(error,
                    jsonError(-10011,
                              localizedFormat("Invalid JSON number sequence while converting the "
                                              "input to a number. (%1$s) at index %2$lu",
                                              text, reader.position()),
                              localized("Invalid number character sequence.")));
    }
    value = number.value;
    return true;
}

Value MZJSONDeserializer::deserializeJSONBooleanWithStringReader(MZStringStreamReader& reader,
                                                                 char16_t initialCharacter,
                                                                 Error* error) {
    const bool flag = initialCharacter == 't';
    for (const char expected : std::string_view(flag ? "rue" : "alse")) {
        char16_t character = 0;
        if (!reader.getNextCharacter(character, error)) {
            return {};
        }
        if (character != static_cast<char16_t>(expected)) {
            return failed(error,
                          jsonError(-10010,
                                    localizedFormat("Invalid JSON character sequence while looking "
                                                    "for the character in a boolean. (%1$C) at "
                                                    "index %2$lu",
                                                    character, reader.position()),
                                    localized("Invalid boolean character sequence.")));
        }
    }
    return flag;
}

Value MZJSONDeserializer::deserializeJSONNullWithStringReader(MZStringStreamReader& reader,
                                                              Error* error) {
    for (const char expected : std::string_view("ull")) {
        char16_t character = 0;
        if (!reader.getNextCharacter(character, error)) {
            return {};
        }
        if (character != static_cast<char16_t>(expected)) {
            return failed(error, jsonError(-10011,
                                           localizedFormat("Invalid JSON character while looking "
                                                           "for a character in a null sequence. "
                                                           "(%1$C) at index %2$lu",
                                                           character, reader.position()),
                                           localized("Invalid null character sequence")));
        }
    }
    return velto::Null{};
}
