#include <VeltoConnectFoundation/Platform/Error.h>

#include <VeltoConnectFoundation/Platform/NeverDestroyed.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <system_error>

namespace velto {

class Error::Content final : public Object {
public:
    Content(std::string_view errorDomain, std::int64_t errorCode, Dictionary information)
        : domain(errorDomain), code(errorCode), userInfo(std::move(information)) {}

    std::string_view className() const override { return "Error"; }

    std::string localizedDescription() const {
        const Value& stated = userInfo[LocalizedDescriptionKey];
        if (stated.isString()) {
            return std::string(stated.string());
        }
        return localizedFormat("The operation couldn’t be completed. (%@ error %ld.)", domain,
                               code);
    }

    std::string description() const override {
        std::string text = "Error Domain=" + domain + " Code=" + std::to_string(code) + " “" +
                           localizedDescription() + "” UserInfo={";
        bool first = true;
        for (const DictionaryEntry& entry : userInfo) {
            text += first ? "" : ", ";
            first = false;
            text += entry.key.description() + "=" + entry.value.description();
        }
        return text + "}";
    }

    bool isEqual(const Object& other) const override {
        const auto* content = dynamic_cast<const Content*>(&other);
        return content != nullptr && code == content->code && domain == content->domain &&
               userInfo == content->userInfo;
    }

    std::size_t hash() const override { return Value(domain).hash() ^ Value(code).hash(); }

    const std::string domain;
    const std::int64_t code;
    const Dictionary userInfo;
};

Error::Error(std::string_view domain, std::int64_t code, Dictionary userInfo)
    : object_(std::make_shared<const Content>(domain, code, std::move(userInfo))) {
}

Error::Error(std::shared_ptr<const Content> content) noexcept : object_(std::move(content)) {
}

Error Error::make(std::string_view domain,
                  std::int64_t code,
                  std::string_view description,
                  std::string_view reason) {
    return {domain,
            code,
            {{LocalizedDescriptionKey, description}, {LocalizedFailureReasonKey, reason}}};
}

Error Error::posix(int errorNumber, std::string_view what) {
    std::string text(what);
    text += what.empty() ? "" : ": ";
    text += std::generic_category().message(errorNumber);
    return {POSIXErrorDomain, errorNumber, {{LocalizedDescriptionKey, text}}};
}

Error Error::fromValue(const Value& value) {
    return Error(std::dynamic_pointer_cast<const Content>(value.object()));
}

std::string_view Error::domain() const noexcept {
    return object_ == nullptr ? std::string_view() : std::string_view(object_->domain);
}

std::int64_t Error::code() const noexcept {
    return object_ == nullptr ? 0 : object_->code;
}

const Dictionary& Error::userInfo() const noexcept {
    static const NeverDestroyed<Dictionary> none;
    return object_ == nullptr ? *none : object_->userInfo;
}

std::string Error::localizedDescription() const {
    return object_ == nullptr ? std::string() : object_->localizedDescription();
}

std::optional<std::string> Error::localizedFailureReason() const {
    return userInfo()[LocalizedFailureReasonKey].optionalString();
}

std::optional<std::string> Error::localizedRecoverySuggestion() const {
    return userInfo()[LocalizedRecoverySuggestionKey].optionalString();
}

Error Error::underlyingError() const {
    return fromValue(userInfo()[UnderlyingErrorKey]);
}

Error::operator Value() const {
    return Value(std::shared_ptr<const Object>(object_));
}

std::string Error::description() const {
    return object_ == nullptr ? "(null)" : object_->description();
}

bool operator==(const Error& left, const Error& right) noexcept {
    return left.object_ == right.object_ ||
           (left && right && left.object_->isEqual(*right.object_));
}

}  // namespace velto
