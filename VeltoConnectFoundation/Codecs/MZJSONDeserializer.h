#pragma once

#include <VeltoConnectFoundation/Codecs/MZStringStreamReader.h>

#include <cstdlib>

namespace velto::detail {
class ValueBuilder;
}

/// Reads JSON documents into values: containers, strings, doubles (integers too), booleans, null.
///
/// Strict about containers; the top level is one of them. Otherwise lenient: any value may be a
/// key, a repeated key keeps its place and takes the last value, a number, string or literal that
/// the end of the input cuts off ends its container quietly ("[1" is an empty array). Documents of
/// less than four bytes fail. Nesting may be of any depth. Errors are of
/// MZJSONSerlizationErrorDomain, whose codes say little: the descriptions tell them apart; errors
/// of the stream and of the reader of characters pass through. One thread at a time.
class VELTO_EXPORT MZJSONDeserializer {
public:
    static std::shared_ptr<MZJSONDeserializer> deserializer();

    MZJSONDeserializer();
    MZJSONDeserializer(const MZJSONDeserializer&) = delete;
    MZJSONDeserializer& operator=(const MZJSONDeserializer&) = delete;

    // None without an error: there was no value. Nothing partial comes with an error.

    /// In UTF-8, UTF-16 or UTF-32, told by its first four bytes; a byte-order mark is no part of
    /// it. Fastest for a document in UTF-8, which is read where it lies.
    [[nodiscard]] velto::Value deserializeJSONData(const velto::Data& data,
                                                   velto::Error* error = nullptr);
    /// The stream is open and stays so. It is read in blocks of 8192 bytes; the document's text is
    /// held until the document has been read.
    [[nodiscard]] velto::Value deserializeJSONStream(
        const std::shared_ptr<velto::InputStream>& stream,
        velto::Error* error = nullptr);
    /// The document: one value, then nothing but white space to the end.
    [[nodiscard]] velto::Value deserializeJSONStringReader(MZStringStreamReader& reader,
                                                           velto::Error* error = nullptr);
    /// One value. `context` is an array or a dictionary when the value stands in one; its closing
    /// bracket then gives none without an error.
    [[nodiscard]] velto::Value deserializeJSONStringReader(MZStringStreamReader& reader,
                                                           const velto::Value& context,
                                                           velto::Error* error = nullptr);

    // One kind each; its first character (bracket, quotation mark, `initialCharacter`, "n") has
    // been read.

    [[nodiscard]] velto::Value deserializeJSONArrayWithStringReader(MZStringStreamReader& reader,
                                                                    velto::Error* error = nullptr);
    [[nodiscard]] velto::Value deserializeJSONDictionaryWithStringReader(
        MZStringStreamReader& reader,
        velto::Error* error = nullptr);
    [[nodiscard]] velto::Value deserializeJSONStringWithStringReader(MZStringStreamReader& reader,
                                                                     velto::Error* error = nullptr);
    [[nodiscard]] velto::Value deserializeJSONNumberWithStringReader(MZStringStreamReader& reader,
                                                                     char16_t initialCharacter,
                                                                     velto::Error* error = nullptr);
    [[nodiscard]] velto::Value deserializeJSONBooleanWithStringReader(
        MZStringStreamReader& reader,
        char16_t initialCharacter,
        velto::Error* error = nullptr);
    [[nodiscard]] velto::Value deserializeJSONNullWithStringReader(MZStringStreamReader& reader,
                                                                   velto::Error* error = nullptr);

    /// Of the last stream or data; UTF-8 before.
    velto::TextEncoding encoding() const noexcept { return encoding_; }

private:
    enum class Context : std::uint8_t { none, array, dictionary };
    class Container;

    velto::Value readValue(MZStringStreamReader& reader,
                           Context context,
                           std::vector<Container> containers,
                           velto::Error* error);
    bool readPlainValue(MZStringStreamReader& reader,
                        char16_t character,
                        Context context,
                        velto::detail::ValueBuilder& values,
                        velto::Error* error);
    bool readText(MZStringStreamReader& reader,
                  velto::detail::ValueBuilder& values,
                  velto::Error* error);
    bool readNumber(MZStringStreamReader& reader,
                    char16_t initialCharacter,
                    double& value,
                    velto::Error* error);
    bool readEscape(MZStringStreamReader& reader, velto::Error* error);
    bool pushBufferedText(velto::detail::ValueBuilder& values) const;
    void growBuffer();
    void append(char16_t character);
    void append(std::string_view text);

    struct Free {
        void operator()(char* block) const noexcept { std::free(block); }
    };

    static constexpr std::size_t initialSize = 2048;

    velto::TextEncoding encoding_ = velto::TextEncoding::utf8;
    std::unique_ptr<char, Free> readBuffer_;  ///< The string or number that is read, in UTF-8.
    std::size_t allocated_ = initialSize;
    std::size_t index_ = 0;  ///< Bytes in use of readBuffer_.
};

/// Unicode's white space and line breaks.
VELTO_EXPORT bool IsWhitespaceCharacter(char16_t character) noexcept;
