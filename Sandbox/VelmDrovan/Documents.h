#pragma once

#include <VelmDrovan/Accounts.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Every JSON document that the tool reads or writes.
namespace sandbox {

/// Throws std::runtime_error with the reason.
Accounts parseAccounts(const std::string& source);

/// An object whose values are strings; none for anything else.
std::optional<std::map<std::string, std::string>> parseHeaders(const std::string& source);

struct TokenText {
    std::string algorithm, keyID;            // header
    std::string issuer, audience;            // claims
    std::int64_t issuedAt = 0, expires = 0;  // seconds since 1970
};
/// None when either is no object or a field is missing or of another type.
std::optional<TokenText> parseToken(const std::string& header, const std::string& claims);

/// The object behind "JSON:".
struct VerifyProgress {
    std::string_view description;
    std::string_view asset;  ///< Empty: left out.
    std::optional<std::uint64_t> count;
    std::uint64_t index = 0;  ///< Left out without a count.
};
std::string verifyProgressText(const VerifyProgress& progress);

struct DeliveredFile {
    std::string name;
    std::uint64_t size;
    bool skipped;  ///< The store had it already.
};
struct Delivery {
    std::string package, provider, vendorID;
    std::vector<DeliveredFile> files;
};
std::string deliveryText(const Delivery& delivery);

/// What a scenario's "record" keeps of an invocation. Environment: names, or names and values.
std::string recordText(const std::vector<std::string>& arguments,
                       const std::vector<std::pair<std::string, std::string>>& environment,
                       bool withValues);

}  // namespace sandbox
