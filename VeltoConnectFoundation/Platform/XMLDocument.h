#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <string>
#include <string_view>
#include <vector>

namespace velto {

/// Codes are positive; the localized description tells what, the failure reason where.
inline constexpr std::string_view XMLErrorDomain = "VeltoXMLErrorDomain";

/// One element of a document, with what it holds.
class VELTO_EXPORT XMLElement {
public:
    struct Attribute {
        std::string name;
        std::string value;
    };

    const std::string& name() const noexcept { return name_; }  ///< With its prefix, as written.
    /// The characters that stand in the element itself, joined; not those of its children.
    const std::string& text() const noexcept { return text_; }
    /// The characters of the element and of all below it, in order.
    std::string stringValue() const;
    const std::vector<Attribute>& attributes() const noexcept { return attributes_; }
    /// Null when there is none.
    const std::string* attribute(std::string_view name) const noexcept;
    const std::vector<XMLElement>& children() const noexcept { return children_; }
    /// The first child of that name; null when there is none.
    const XMLElement* child(std::string_view name) const noexcept;
    std::vector<const XMLElement*> childrenNamed(std::string_view name) const;
    std::size_t line() const noexcept { return line_; }  ///< Where it begins, from 1.

private:
    friend class XMLDocument;
    void appendStringValue(std::string& out) const;

    std::string name_;
    std::string text_;
    std::vector<Attribute> attributes_;
    std::vector<XMLElement> children_;
    std::vector<std::size_t> textBefore_;  ///< By child: how much of the text stands before it.
    std::size_t line_ = 0;
};

/// A small XML document, read as a whole. Strict: what is not well-formed is an error, and so are
/// declared entities and more than 256 levels. Nothing outside of the text is ever read.
class VELTO_EXPORT XMLDocument {
public:
    /// UTF-8, UTF-16, ISO-8859-1 or US-ASCII by its declaration; none with an error otherwise. The
    /// error holds nothing of the text.
    [[nodiscard]] static std::optional<XMLDocument> parse(std::string_view bytes,
                                                          Error* error = nullptr);

    const XMLElement& root() const noexcept { return root_; }

private:
    class Reader;
    XMLDocument() = default;
    XMLElement root_;
};

}  // namespace velto
