#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <exception>

namespace velto {

inline constexpr std::string_view InternalInconsistencyException =
    "NSInternalInconsistencyException";
inline constexpr std::string_view InvalidArgumentException = "NSInvalidArgumentException";
inline constexpr std::string_view GenericException = "NSGenericException";

/// What the user information of a failed assertion says about its place.
inline constexpr std::string_view AssertionFunctionKey = "NSAssertFunction";
inline constexpr std::string_view AssertionFileKey = "NSAssertFile";

/// Raised for programming errors, and by the few calls whose texts say so; a copy shares.
class VELTO_EXPORT Exception : public std::exception {
public:
    Exception(std::string_view name, std::string_view reason, Dictionary userInfo = {});
    ~Exception() override;

    const std::string& name() const noexcept;
    const std::string& reason() const noexcept;
    const Dictionary& userInfo() const noexcept;
    const char* what() const noexcept override;  ///< The reason.
    std::string description() const;             ///< The reason, or the name when it is empty.
    operator Value() const;

private:
    class Content;
    std::shared_ptr<const Content> content_;
};

/// Raises InternalInconsistencyException "Invalid parameter not satisfying: CONDITION"; the user
/// information names function and file.
[[noreturn]] VELTO_EXPORT void failParameterAssertion(const char* condition,
                                                      const char* function,
                                                      const char* file);

inline void assertParameter(bool holds,
                            const char* condition,
                            const char* function,
                            const char* file) {
    if (!holds) [[unlikely]] {
        failParameterAssertion(condition, function, file);
    }
}

}  // namespace velto
