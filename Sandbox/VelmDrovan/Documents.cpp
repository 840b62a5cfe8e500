#include <VelmDrovan/Documents.h>

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace sandbox {
namespace {

using Json = nlohmann::ordered_json;

std::string text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<std::string> providersOf(const Json& json) {
    return json.value("providers", std::vector<std::string>());
}

}  // namespace

Accounts parseAccounts(const std::string& source) {
    try {
        Accounts accounts;
        const Json json = Json::parse(source);
        for (const Json& entry : json.value("users", Json::array())) {
            User user;
            user.name = entry.at("name");
            user.password = entry.value("password", "");
            user.appPassword = entry.value("appPassword", "");
            user.token = entry.value("token", "");
            user.sessionID = entry.value("sessionID", "");
            user.sharedSecret = entry.value("sharedSecret", "");
            user.identity = entry.value("identity", "");
            user.identityToken = entry.value("identityToken", "");
            user.locked = entry.value("locked", false);
            user.providers = providersOf(entry);
            accounts.users.push_back(std::move(user));
        }
        for (const Json& entry : json.value("keys", Json::array())) {
            accounts.keys.push_back({entry.at("id"), entry.at("issuer"),
                                     entry.value("publicKey", ""), providersOf(entry)});
        }
        return accounts;
    } catch (const Json::exception& error) {
        throw std::runtime_error(error.what());
    }
}

std::optional<std::map<std::string, std::string>> parseHeaders(const std::string& source) {
    const Json json = Json::parse(source, nullptr, false);
    if (!json.is_object())
        return std::nullopt;
    std::map<std::string, std::string> headers;
    for (const auto& [name, value] : json.items()) {
        if (!value.is_string())
            return std::nullopt;
        headers[name] = value.get<std::string>();
    }
    return headers;
}

std::optional<TokenText> parseToken(const std::string& header, const std::string& claims) {
    const Json head = Json::parse(header, nullptr, false);
    const Json body = Json::parse(claims, nullptr, false);
    try {
        // A time must be a whole number: the library would convert others silently.
        for (const char* time : {"iat", "exp"})
            if (!body.at(time).is_number_integer())
                return std::nullopt;
        return TokenText{head.at("alg"), head.at("kid"), body.at("iss"),
                         body.at("aud"), body.at("iat"), body.at("exp")};
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::string verifyProgressText(const VerifyProgress& progress) {
    Json json = {{"messageType", "VerifyProgress"}, {"description", progress.description}};
    if (!progress.asset.empty())
        json["asset"] = progress.asset;
    if (progress.count) {
        json["count"] = *progress.count;
        json["index"] = progress.index;
    }
    return text(json);
}

std::string deliveryText(const Delivery& delivery) {
    Json files = Json::array();
    for (const auto& file : delivery.files)
        files.push_back({{"name", file.name}, {"size", file.size}, {"skipped", file.skipped}});
    return text({{"package", delivery.package},
                 {"provider", delivery.provider},
                 {"vendorID", delivery.vendorID},
                 {"files", std::move(files)}});
}

std::string recordText(const std::vector<std::string>& arguments,
                       const std::vector<std::pair<std::string, std::string>>& environment,
                       bool withValues) {
    Json variables = withValues ? Json::object() : Json::array();
    for (const auto& [name, value] : environment) {
        if (withValues)
            variables[name] = value;
        else
            variables.push_back(name);
    }
    return text({{"arguments", arguments}, {"environment", std::move(variables)}});
}

}  // namespace sandbox
