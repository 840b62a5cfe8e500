#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>

#include <VeltoConnectFoundation/Authentication/KVZarnetIDSession.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/PropertyList.h>
#include <VeltoConnectFoundation/Platform/Regex.h>
#include <VeltoConnectFoundation/Platform/Secret.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>
#include <VeltoConnectFoundation/Platform/TokenSigner.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>
#include <VeltoConnectFoundation/WebService/MZServerErrorLocalizer.h>
#include <VeltoConnectFoundation/Work/MZLog.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>
#include <VeltoConnectFoundation/Work/VeltoConnectFoundationErrors.h>

#include <type_traits>
#include <utility>

using velto::Array;
using velto::Data;
using velto::Dictionary;
using velto::Error;
using velto::Guard;
using velto::localizedFormat;
using velto::PropertyList;
using velto::TokenSigner;
using velto::Value;

namespace {

constexpr std::int64_t codeOfTokenWithoutOne = -20000;
constexpr std::int64_t codeOfMessageWithoutOne = -26000;

/// What a token holds, fit for a line that others may read: only what a service says of its own
/// failure is shown, for any other entry may be a secret.
Value loggable(const Value& plist) {
    Dictionary shown;
    for (const velto::DictionaryEntry& entry : plist.dictionary()) {
        const std::string_view key = entry.key.string();
        const bool isResult = key == "userString" || key == "resultString" || key == "resultCode";
        shown.set(entry.key, isResult ? entry.value : Value("**hidden value**"));
    }
    return MZLoggableObjectForObject(shown);
}

std::string_view firstText(const Value& plist, std::string_view key, std::string_view otherKey) {
    const std::string_view text = plist[key].string();
    return text.empty() ? plist[otherKey].string() : text;
}

/// The integer between parentheses that ends a message, else the code of messages without one.
std::int64_t codeOfMessage(std::string_view message) {
    static const auto* const expression = new std::shared_ptr<const velto::Regex>(
        velto::Regex::regexWithPattern("(.*)\\(([-]?[\\d]+)\\)([\\s]*)"));
    const auto match = (*expression)->matchWhole(message);
    const std::int64_t code = match ? velto::leadingInteger((*match)[2].value_or("")) : 0;
    return code == 0 ? codeOfMessageWithoutOne : code;
}

}  // namespace

template <class Field>
Field VeltoAuthenticationContextImpl::get(Field Fields::*field) const {
    const Guard guard(lock_);
    return fields_.*field;
}

template <class Field, class NewValue>
void VeltoAuthenticationContextImpl::set(Field Fields::*field, NewValue&& value) {
    const Guard guard(lock_);
    if constexpr (std::is_same_v<Field, std::string>) {
        velto::wipe(fields_.*field);  // Most texts are secrets.
    }
    fields_.*field = std::forward<NewValue>(value);
}

VeltoAuthenticationContextImpl::VeltoAuthenticationContextImpl(velto::PassKey, Delegate delegate) {
    const Guard guard(lock_);
    fields_.delegate = std::move(delegate);
}

VeltoAuthenticationContextImpl::~VeltoAuthenticationContextImpl() {
    const Guard guard(lock_);
    for (std::string* secret : {&fields_.password, &fields_.sharedSecret, &fields_.sessionID,
                                &fields_.pellmorToken, &fields_.rovquill}) {
        velto::wipe(*secret);
    }
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoAuthenticationContextImpl::contextWithToken(
    const Data& token,
    std::string_view username,
    const Dictionary& httpHeaders,
    std::string_view apiKey,
    std::string_view issuerID,
    Delegate delegate) {
    auto context = velto::make<VeltoAuthenticationContextImpl>(std::move(delegate));
    context->set(&Fields::httpHeaders, httpHeaders);
    context->set(&Fields::username, username);
    context->set(&Fields::apiKey, apiKey);
    context->set(&Fields::issuerID, issuerID);
    context->setToken(token);
    if (context->canJWTAuthenticate()) {
        context->createJWTTokenWithApiKey(std::string(apiKey), std::string(issuerID));
    }
    return context;
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoAuthenticationContextImpl::contextWithToken(
    const Data& token,
    std::string_view username,
    const Dictionary& httpHeaders,
    Delegate delegate,
    std::vector<Error>* outError) {
    auto context = contextWithToken(token, username, httpHeaders, {}, {}, std::move(delegate));
    if (outError != nullptr && context->hasError()) {
        *outError = context->errors();
    }
    return context;
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoAuthenticationContextImpl::contextWithToken(
    const Data& token,
    std::string_view username,
    Delegate delegate) {
    return contextWithToken(token, username, {}, {}, {}, std::move(delegate));
}

std::shared_ptr<VeltoAuthenticationContextImpl>
VeltoAuthenticationContextImpl::contextWithHttpHeaders(const Dictionary& httpHeaders,
                                                       std::string_view username,
                                                       Delegate delegate) {
    return contextWithToken({}, username, httpHeaders, {}, {}, std::move(delegate));
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoAuthenticationContextImpl::contextWithApiKey(
    std::string_view apiKey,
    std::string_view issuerID,
    Delegate delegate) {
    return contextWithToken({}, {}, {}, apiKey, issuerID, std::move(delegate));
}

std::shared_ptr<VeltoAuthenticationContextImpl>
VeltoAuthenticationContextImpl::contextWithServiceID(std::string_view serviceID,
                                                     std::string_view deviceID,
                                                     std::string_view altDSID,
                                                     std::string_view pellmorToken,
                                                     std::string_view clientInfo,
                                                     Delegate delegate) {
    auto context = velto::make<VeltoAuthenticationContextImpl>(std::move(delegate));
    context->set(&Fields::serviceID, serviceID);
    context->set(&Fields::deviceID, deviceID);
    context->set(&Fields::altDSID, altDSID);
    context->set(&Fields::pellmorToken, pellmorToken);
    context->set(&Fields::clientInfo, clientInfo);
    context->set(&Fields::zarnetIDSession, KVZarnetIDSession::sessionWithServiceID(serviceID));
    return context;
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoAuthenticationContextImpl::contextWithError(
    const Error& error) {
    auto context = velto::make<VeltoAuthenticationContextImpl>(Delegate());
    context->addError(error);
    return context;
}

std::shared_ptr<VeltoAuthenticationContextImpl>
VeltoAuthenticationContextImpl::contextWithErrorMessage(std::string_view message) {
    auto context = velto::make<VeltoAuthenticationContextImpl>(Delegate());
    context->addErrorMessage(message);
    return context;
}

std::shared_ptr<VeltoAuthenticationContextImpl>
VeltoAuthenticationContextImpl::newContextWithContext(
    const VeltoAuthenticationContextImpl& context) {
    auto result = contextWithToken(context.token(), context.username(), context.httpHeaders(),
                                   context.apiKey(), context.issuerID(), context.delegate());
    for (const auto field : {&Fields::serviceID, &Fields::altDSID, &Fields::pellmorToken,
                             &Fields::deviceID, &Fields::clientInfo}) {
        result->set(field, std::string_view(context.get(field)));
    }
    return result;
}

Dictionary VeltoAuthenticationContextImpl::httpHeadersForURLRequest(
    const velto::URLRequest& request) const {
    Dictionary headers;
    std::shared_ptr<KVZarnetIDSession> session;
    {
        const Guard guard(lock_);
        if (fields_.serviceID.empty()) {
            return fields_.httpHeaders;
        }
        headers.reserve(5);
        headers.set("X-Zarnet-App-Info", fields_.serviceID);
        headers.set("X-Zarnet-I-Identity-Id", fields_.altDSID);
        headers.set("X-Zarnet-PM-Token", fields_.pellmorToken);
        if (!fields_.deviceID.empty()) {
            headers.set("X-Vny-Device-Id", fields_.deviceID);
        }
        if (!fields_.clientInfo.empty()) {
            headers.set("X-Vny-Client-Info", fields_.clientInfo);
        }
        session = fields_.zarnetIDSession;
    }
    if (session != nullptr) {
        headers.merge(session->appHeadersForRequest(request));
    }
    return headers;
}

bool VeltoAuthenticationContextImpl::handleResponse(const velto::URLResponse& response,
                                                    const velto::URLRequest& request) {
    const auto session = zarnetIDSession();
    if (session == nullptr || !session->handleResponse(response, request)) {
        return false;
    }
    MZLogDebug("zarnetIDSession handleResponse: wants us to retry.");
    return true;
}

bool VeltoAuthenticationContextImpl::isSessionEnabled() const {
    const Guard guard(lock_);
    return !fields_.sessionID.empty() && !fields_.sharedSecret.empty();
}

bool VeltoAuthenticationContextImpl::canJWTAuthenticate() const {
    const Guard guard(lock_);
    return !fields_.apiKey.empty() && !fields_.issuerID.empty();
}

bool VeltoAuthenticationContextImpl::canHSA2Authenticate() const {
    const Guard guard(lock_);
    return !fields_.altDSID.empty() && !fields_.pellmorToken.empty() &&
           !fields_.serviceID.empty() && !fields_.deviceID.empty() && !fields_.clientInfo.empty();
}

bool VeltoAuthenticationContextImpl::hasDataCenters() const {
    return !dataCenters().isEmpty();
}

std::optional<std::string> VeltoAuthenticationContextImpl::getDataCenters() const {
    const Array names = dataCenters();
    return names.isEmpty() ? std::nullopt : std::optional(names.componentsJoined(", "));
}

bool VeltoAuthenticationContextImpl::hasError() const {
    const Guard guard(lock_);
    return !internalErrors_.empty();
}

std::vector<Error> VeltoAuthenticationContextImpl::errors() const {
    const Guard guard(lock_);
    return internalErrors_;
}

Error VeltoAuthenticationContextImpl::error() const {
    const Guard guard(lock_);
    return internalErrors_.empty() ? Error() : internalErrors_.front();
}

void VeltoAuthenticationContextImpl::addError(const Error& error) {
    if (error) {
        const Guard guard(lock_);
        internalErrors_.push_back(error);
    }
}

void VeltoAuthenticationContextImpl::addErrors(const std::vector<Error>& errors) {
    for (const Error& error : errors) {
        addError(error);
    }
}

void VeltoAuthenticationContextImpl::addErrorMessage(std::string_view message) {
    if (message.empty()) {
        return;
    }
    const std::int64_t code = codeOfMessage(message);
    const auto text = MZServerErrorLocalizer::localizedMessageForCode(code, std::string(message));
    addError(Error(VeltoConnectionAuthenticationErrorDomain, code,
                   {{velto::LocalizedDescriptionKey, text},
                    {velto::LocalizedFailureReasonKey,
                     MZStoreMessages::sharedStoreMessages()->operationFailedWithStoreMessage()},
                    {velto::LocalizedRecoverySuggestionKey, text}}));
}

void VeltoAuthenticationContextImpl::addErrorMessages(const std::vector<std::string>& messages) {
    for (const std::string& message : messages) {
        addErrorMessage(message);
    }
}

Data VeltoAuthenticationContextImpl::token() const {
    return get(&Fields::token);
}

void VeltoAuthenticationContextImpl::setToken(const Data& token) {
    // Read with no lock held: what fails is logged.
    Error parseError;
    const auto plist =
        token.isEmpty() ? std::nullopt : PropertyList::parse(token.view(), &parseError);
    const std::string_view cookie = plist ? (*plist)["rovquill"].string() : std::string_view();
    {
        const Guard guard(lock_);
        fields_.token = token;
        velto::wipe(fields_.rovquill);
        fields_.rovquill = cookie;
    }
    if (parseError) {
        MZLogDebug("*** AUTH: Extracting authorization token: %@", parseError);
        addError(parseError);
        return;
    }
    if (!plist || !cookie.empty()) {
        return;
    }
    const Value shown = loggable(*plist);
    const std::string_view text = firstText(*plist, "userString", "resultString");
    Error error;
    if (text.empty()) {
        addErrorMessage(localizedFormat(
            "Could not obtain authorization token. Missing rovquill from plist: %@", shown));
    } else {
        const Value& code = (*plist)["resultCode"];
        error = VeltoConnectFoundationGenerateError(
            text, code.isNone() ? codeOfTokenWithoutOne : code.integerValue());
        addError(error);
    }
    MZLogDebug(
        "*** AUTH: Could not obtain authorization token. Missing rovquill from plist: %@ error: %@",
        shown, Value(error));
}

std::string VeltoAuthenticationContextImpl::rovquill() const {
    return get(&Fields::rovquill);
}

void VeltoAuthenticationContextImpl::createJWTTokenWithApiKey(const std::string& apiKey,
                                                              const std::string& issuerID) {
    Error error;
    const auto signer = TokenSigner::signerWithKeyID(apiKey, issuerID, &error);
    const auto token =
        signer == nullptr ? std::nullopt : signer->token(velto::Clock::wallTime(), &error);
    if (token && !token->empty()) {
        setHttpHeaders({{"Authorization", velto::format("Bearer %@", *token)}});
        return;
    }
    addErrorMessage(error ? localizedFormat("Failed to generate JWT token: %@", error)
                          : velto::localized("Failed to generate token."));
    MZLogDebug("*** Failed to generate JWT token: %@", Value(error));
}

Value VeltoAuthenticationContextImpl::allowedPlatformsInfo() const {
    return get(&Fields::allowedPlatformsInfo);
}

void VeltoAuthenticationContextImpl::setAllowedPlatformsInfo(const Value& info) {
    set(&Fields::allowedPlatformsInfo, info);
    velto::UserDefaults::shared().registerDefaults(
        {{"VeltoSoftwareService_AllowedPlatforms", info}});
}

std::shared_ptr<VeltoAuthenticationContextDelegate> VeltoAuthenticationContextImpl::delegate()
    const {
    return get(&Fields::delegate).lock();
}

void VeltoAuthenticationContextImpl::setDelegate(Delegate delegate) {
    set(&Fields::delegate, std::move(delegate));
}

std::string VeltoAuthenticationContextImpl::username() const {
    return get(&Fields::username);
}

void VeltoAuthenticationContextImpl::setUsername(std::string_view username) {
    set(&Fields::username, username);
}

std::string VeltoAuthenticationContextImpl::password() const {
    return get(&Fields::password);
}

void VeltoAuthenticationContextImpl::setPassword(std::string_view password) {
    set(&Fields::password, password);
}

std::string VeltoAuthenticationContextImpl::selectedProvider() const {
    return get(&Fields::selectedProvider);
}

void VeltoAuthenticationContextImpl::setSelectedProvider(std::string_view provider) {
    set(&Fields::selectedProvider, provider);
}

std::string VeltoAuthenticationContextImpl::providerPublicId() const {
    return get(&Fields::providerPublicId);
}

void VeltoAuthenticationContextImpl::setProviderPublicId(std::string_view identifier) {
    set(&Fields::providerPublicId, identifier);
}

std::string VeltoAuthenticationContextImpl::sessionID() const {
    return get(&Fields::sessionID);
}

void VeltoAuthenticationContextImpl::setSessionID(std::string_view sessionID) {
    set(&Fields::sessionID, sessionID);
}

std::string VeltoAuthenticationContextImpl::sharedSecret() const {
    return get(&Fields::sharedSecret);
}

void VeltoAuthenticationContextImpl::setSharedSecret(std::string_view sharedSecret) {
    set(&Fields::sharedSecret, sharedSecret);
}

std::string VeltoAuthenticationContextImpl::apiKey() const {
    return get(&Fields::apiKey);
}

std::string VeltoAuthenticationContextImpl::issuerID() const {
    return get(&Fields::issuerID);
}

std::string VeltoAuthenticationContextImpl::serviceID() const {
    return get(&Fields::serviceID);
}

std::string VeltoAuthenticationContextImpl::altDSID() const {
    return get(&Fields::altDSID);
}

std::string VeltoAuthenticationContextImpl::pellmorToken() const {
    return get(&Fields::pellmorToken);
}

std::string VeltoAuthenticationContextImpl::deviceID() const {
    return get(&Fields::deviceID);
}

std::string VeltoAuthenticationContextImpl::clientInfo() const {
    return get(&Fields::clientInfo);
}

Dictionary VeltoAuthenticationContextImpl::httpHeaders() const {
    return get(&Fields::httpHeaders);
}

void VeltoAuthenticationContextImpl::setHttpHeaders(const Dictionary& headers) {
    set(&Fields::httpHeaders, headers);
}

Dictionary VeltoAuthenticationContextImpl::txHeaders() const {
    return get(&Fields::txHeaders);
}

void VeltoAuthenticationContextImpl::setTxHeaders(const Dictionary& headers) {
    set(&Fields::txHeaders, headers);
}

Array VeltoAuthenticationContextImpl::dataCenters() const {
    return get(&Fields::dataCenters);
}

void VeltoAuthenticationContextImpl::setDataCenters(const Array& names) {
    set(&Fields::dataCenters, names);
}

Value VeltoAuthenticationContextImpl::providers() const {
    return get(&Fields::providers);
}

void VeltoAuthenticationContextImpl::setProviders(const Value& providers) {
    set(&Fields::providers, providers);
}

std::shared_ptr<KVZarnetIDSession> VeltoAuthenticationContextImpl::zarnetIDSession() const {
    return get(&Fields::zarnetIDSession);
}
