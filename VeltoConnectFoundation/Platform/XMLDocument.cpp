#include <VeltoConnectFoundation/Platform/XMLDocument.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <expat.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace velto {

namespace {

constexpr std::size_t deepestElement = 256;
constexpr std::size_t blockSize = std::size_t{1} << 20;

/// Beyond Expat's own codes.
enum Refusal : int { noRefusal = 0, tooDeep = 1001, declarations = 1002, unknownEntity = 1003 };

}  // namespace

std::string XMLElement::stringValue() const {
    std::string result;
    appendStringValue(result);
    return result;
}

void XMLElement::appendStringValue(std::string& out) const {
    std::size_t done = 0;
    for (std::size_t i = 0; i < children_.size(); ++i) {
        out.append(text_, done, textBefore_[i] - done);
        done = textBefore_[i];
        children_[i].appendStringValue(out);
    }
    out.append(text_, done);
}

const std::string* XMLElement::attribute(std::string_view name) const noexcept {
    const auto found = std::ranges::find(attributes_, name, &Attribute::name);
    return found == attributes_.end() ? nullptr : &found->value;
}

const XMLElement* XMLElement::child(std::string_view name) const noexcept {
    const auto found = std::ranges::find(children_, name, &XMLElement::name);
    return found == children_.end() ? nullptr : &*found;
}

std::vector<const XMLElement*> XMLElement::childrenNamed(std::string_view name) const {
    std::vector<const XMLElement*> result;
    for (const XMLElement& child : children_) {
        if (child.name() == name) {
            result.push_back(&child);
        }
    }
    return result;
}

/// Fills a document from Expat's events.
class XMLDocument::Reader {
public:
    Reader() : parser_(XML_ParserCreate(nullptr)) {
        if (parser_ == nullptr) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, &started, &ended);
        XML_SetCharacterDataHandler(parser_, &characters);
        XML_SetStartDoctypeDeclHandler(parser_, &documentTypeStarted);
        XML_SetSkippedEntityHandler(parser_, &entitySkipped);
    }
    ~Reader() { XML_ParserFree(parser_); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    bool read(std::string_view bytes, Error* error) {
        bool isFinal = false;
        while (!isFinal) {
            const std::string_view block = bytes.substr(0, blockSize);
            bytes.remove_prefix(block.size());
            isFinal = bytes.empty();
            if (XML_Parse(parser_, block.data(), static_cast<int>(block.size()), isFinal) !=
                XML_STATUS_OK) {
                if (thrown_) {
                    std::rethrow_exception(thrown_);
                }
                return fail(error, currentError());
            }
        }
        return true;
    }

    XMLElement takeRoot() { return std::move(root_); }

private:
    Error currentError() const {
        const int code =
            refusal_ != noRefusal ? refusal_ : static_cast<int>(XML_GetErrorCode(parser_));
        const char* what =
            refusal_ == tooDeep         ? "too many levels"
            : refusal_ == declarations  ? "a document type with declarations is not accepted"
            : refusal_ == unknownEntity ? "undefined entity"
                                        : XML_ErrorString(static_cast<XML_Error>(code));
        return Error::make(
            XMLErrorDomain, code, localized("The XML document could not be read."),
            localizedFormat("Line %lu, column %lu: %@.",
                            static_cast<unsigned long>(XML_GetCurrentLineNumber(parser_)),
                            static_cast<unsigned long>(XML_GetCurrentColumnNumber(parser_)) + 1,
                            what == nullptr ? "unknown error" : what));
    }

    /// No exception may cross the parser: it is kept and raised again after it.
    template <class Work>
    void guarded(const Work& work) noexcept {
        if (thrown_) {
            return;
        }
        try {
            work();
        } catch (...) {
            thrown_ = std::current_exception();
            XML_StopParser(parser_, XML_FALSE);
        }
    }

    void refuse(Refusal refusal) {
        refusal_ = refusal;
        XML_StopParser(parser_, XML_FALSE);
    }

    static void started(void* self, const char* name, const char** attributes) {
        auto& reader = *static_cast<Reader*>(self);
        reader.guarded([&] {
            if (reader.open_.size() >= deepestElement) {
                reader.refuse(tooDeep);
                return;
            }
            XMLElement element;
            element.name_ = name;
            element.line_ = XML_GetCurrentLineNumber(reader.parser_);
            for (; *attributes != nullptr; attributes += 2) {
                element.attributes_.push_back({attributes[0], attributes[1]});
            }
            reader.open_.push_back(std::move(element));
        });
    }

    static void ended(void* self, const char* /*name*/) {
        auto& reader = *static_cast<Reader*>(self);
        reader.guarded([&] {
            XMLElement element = std::move(reader.open_.back());
            reader.open_.pop_back();
            if (reader.open_.empty()) {
                reader.root_ = std::move(element);
            } else {
                XMLElement& parent = reader.open_.back();
                parent.textBefore_.push_back(parent.text_.size());
                parent.children_.push_back(std::move(element));
            }
        });
    }

    static void characters(void* self, const char* text, int length) {
        auto& reader = *static_cast<Reader*>(self);
        reader.guarded([&] {
            if (!reader.open_.empty()) {
                reader.open_.back().text_.append(text, static_cast<std::size_t>(length));
            }
        });
    }

    /// What a document type declares makes much of little: entities, and attributes that each
    /// element has without naming them.
    static void documentTypeStarted(void* self,
                                    const char*,
                                    const char*,
                                    const char*,
                                    int hasDeclarations) {
        auto& reader = *static_cast<Reader*>(self);
        if (hasDeclarations != 0) {
            reader.refuse(declarations);
        }
    }

    /// One that an external document type may declare, which nobody fetches: left out in silence,
    /// it would be missing in the text.
    static void entitySkipped(void* self, const char*, int) {
        static_cast<Reader*>(self)->refuse(unknownEntity);
    }

    XML_Parser parser_;
    std::vector<XMLElement> open_;  ///< Begun and not ended, outermost first.
    XMLElement root_;
    Refusal refusal_ = noRefusal;
    std::exception_ptr thrown_;
};

std::optional<XMLDocument> XMLDocument::parse(std::string_view bytes, Error* error) {
    Reader reader;
    if (!reader.read(bytes, error)) {
        return std::nullopt;
    }
    XMLDocument document;
    document.root_ = reader.takeRoot();
    return document;
}

}  // namespace velto
