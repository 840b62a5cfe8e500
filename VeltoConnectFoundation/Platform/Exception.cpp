#include <VeltoConnectFoundation/Platform/Exception.h>

namespace velto {

class Exception::Content final : public Object {
public:
    Content(std::string_view exceptionName,
            std::string_view exceptionReason,
            Dictionary information)
        : name(exceptionName), reason(exceptionReason), userInfo(std::move(information)) {}

    std::string_view className() const override { return "Exception"; }
    std::string description() const override { return reason.empty() ? name : reason; }

    const std::string name;
    const std::string reason;
    const Dictionary userInfo;
};

Exception::Exception(std::string_view name, std::string_view reason, Dictionary userInfo)
    : content_(std::make_shared<const Content>(name, reason, std::move(userInfo))) {
}

Exception::~Exception() = default;

const std::string& Exception::name() const noexcept {
    return content_->name;
}

const std::string& Exception::reason() const noexcept {
    return content_->reason;
}

const Dictionary& Exception::userInfo() const noexcept {
    return content_->userInfo;
}

const char* Exception::what() const noexcept {
    return content_->reason.c_str();
}

std::string Exception::description() const {
    return content_->description();
}

Exception::operator Value() const {
    return Value(std::shared_ptr<const Object>(content_));
}

void failParameterAssertion(const char* condition, const char* function, const char* file) {
    throw Exception(InternalInconsistencyException,
                    std::string("Invalid parameter not satisfying: ") + condition,
                    {{AssertionFunctionKey, function}, {AssertionFileKey, file}});
}

}  // namespace velto
