#pragma once

#include <VeltoConnectFoundation/Platform/ValueBuilder.h>

#include <string_view>

/// Reads a whole JSON document that lies in memory as UTF-8, in long runs, into one arena.
///
/// It answers only for documents it is sure of. Anything else (every failure, quiet end or
/// unusual character) is left to the reader of single characters, which alone knows errors:
/// whatever this one reads, that one reads as the same value.
class MZJSONDocumentReader {
public:
    /// `text` without byte-order mark; it outlives the reader.
    explicit MZJSONDocumentReader(std::string_view text);

    /// Once. None: not sure.
    velto::Value read();

private:
    using Builder = velto::detail::ValueBuilder;
    struct Container;

    bool readContainers();
    bool readText();
    bool readEscapedText(const char* begin);
    bool readNumber();
    bool readLiteral(std::string_view literal);
    void skipWhiteSpace() noexcept;

    const char* at_;
    const char*
        end_;  ///< After the bracket that ends the document: nothing but a text reads beyond.
    Builder builder_;
};
