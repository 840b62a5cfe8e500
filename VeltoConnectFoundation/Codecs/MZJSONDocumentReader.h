#pragma once

#include <VeltoConnectFoundation/Platform/ValueBuilder.h>

#include <string_view>
#include <vector>

class MZJSONTextSource;

/// Reads a JSON document that lies in memory as UTF-8, in long runs, into one arena.
///
/// It answers only for documents it is sure of. Anything else (every failure, quiet end or
/// unusual character) is left to the reader of single characters, which alone knows errors:
/// whatever this one reads, that one reads as the same value.
class MZJSONDocumentReader {
public:
    /// The document. None: not sure. `text` has no byte-order mark.
    static velto::Value readWhole(std::string_view text);
    static velto::Value readWhole(MZJSONTextSource& source);

private:
    using Builder = velto::detail::ValueBuilder;
    enum class Progress : std::uint8_t { ended, wantsMore, unsure };
    /// A container that is open.
    struct Container {
        std::size_t first = 0;  ///< Where its values begin on the builder's stack.
        bool isDictionary = false;
        bool isKey = false;  ///< Whether its value that is read or has just been read is a key.
    };

    /// `expectedBytes`: the document's size, about.
    explicit MZJSONDocumentReader(std::size_t expectedBytes);

    /// Reads on, to the end of the document or of the text, and moves `position` past what has been
    /// read: the next call begins with what is left then and has more behind it. At `end` a zero
    /// can be read, or a closing bracket stands before it.
    Progress read(const char*& position, const char* end);

    /// Once, after the end.
    velto::Value document() const { return builder_.finish(); }

    // What stands at `at`; each answers where it ends, or null (see failure_).
    const char* readText(const char* at, const char* end);
    const char* readEscapedText(const char* begin, const char* at, const char* end);
    const char* readNumber(const char* at, const char* end);
    const char* readOtherNumber(const char* begin, const char* at, const char* end);
    const char* readLiteral(const char* at, const char* end, std::string_view literal) noexcept;
    const char* cutOff() noexcept;

    Builder builder_;
    Container container_;
    std::vector<Container> containers_;  ///< Around container_; the first one stands for none.
    bool isAfterValue_ = false;
    Progress failure_ = Progress::unsure;  ///< Why a token has not been read.
};
