#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/WebService/VeltoAuthenticationContext.h>

#include <optional>
#include <string_view>

class KVZarnetIDSession;

/// The domain of the errors that are added as messages.
inline constexpr std::string_view VeltoConnectionAuthenticationErrorDomain =
    "VeltoConnectionAuthenticationErrorDomain";

/// Everything that is known about one signed-in party, as headers for requests.
///
/// Which of the five kinds it is shows from what is filled: a token with its cookie, session and
/// shared secret, API key and issuer (a signed bearer token), the five fields of a two-factor
/// account, or plain headers. Making one never fails: what went wrong is in errors(), which only
/// grows. Any member may be called from any thread. Strings that are absent are empty.
class VELTO_EXPORT VeltoAuthenticationContextImpl final : public VeltoAuthenticationContext {
public:
    using Delegate = std::weak_ptr<VeltoAuthenticationContextDelegate>;

    VeltoAuthenticationContextImpl(velto::PassKey,
                                   Delegate delegate);  ///< Use the functions below.
    ~VeltoAuthenticationContextImpl() override;

    /// With both an API key and an issuer the bearer token is signed at once and becomes the
    /// headers.
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithToken(
        const velto::Data& token,
        std::string_view username,
        const velto::Dictionary& httpHeaders,
        std::string_view apiKey,
        std::string_view issuerID,
        Delegate delegate);
    /// `outError` is set only when there are errors.
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithToken(
        const velto::Data& token,
        std::string_view username,
        const velto::Dictionary& httpHeaders,
        Delegate delegate,
        std::vector<velto::Error>* outError);
    static std::shared_ptr<VeltoAuthenticationContextImpl>
    contextWithToken(const velto::Data& token, std::string_view username, Delegate delegate);
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithHttpHeaders(
        const velto::Dictionary& httpHeaders,
        std::string_view username,
        Delegate delegate);
    static std::shared_ptr<VeltoAuthenticationContextImpl>
    contextWithApiKey(std::string_view apiKey, std::string_view issuerID, Delegate delegate);
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithServiceID(
        std::string_view serviceID,
        std::string_view deviceID,
        std::string_view altDSID,
        std::string_view pellmorToken,
        std::string_view clientInfo,
        Delegate delegate);
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithError(
        const velto::Error& error);
    static std::shared_ptr<VeltoAuthenticationContextImpl> contextWithErrorMessage(
        std::string_view message);
    /// The same party afresh: a new bearer token, no errors but new ones.
    static std::shared_ptr<VeltoAuthenticationContextImpl> newContextWithContext(
        const VeltoAuthenticationContextImpl& context);

    /// For a two-factor account its own headers and those of its session, else httpHeaders().
    velto::Dictionary httpHeadersForURLRequest(const velto::URLRequest& request) const override;
    bool handleResponse(const velto::URLResponse& response,
                        const velto::URLRequest& request) override;

    bool isSessionEnabled() const;
    bool canJWTAuthenticate() const;
    bool canHSA2Authenticate() const;
    bool hasDataCenters() const;
    /// The names joined with ", "; none without any.
    std::optional<std::string> getDataCenters() const;

    bool hasError() const override;
    std::vector<velto::Error> errors() const override;
    velto::Error error() const;                ///< The first one.
    void addError(const velto::Error& error);  ///< No error is ignored.
    void addErrors(const std::vector<velto::Error>& errors);
    /// The code is the integer between parentheses that ends the message, else -26000. An empty
    /// message is ignored.
    void addErrorMessage(std::string_view message);
    void addErrorMessages(const std::vector<std::string>& messages);

    velto::Data token() const override;
    void setToken(const velto::Data& token);  ///< Extracts rovquill(); what fails becomes an error.
    std::string rovquill() const;             ///< The cookie in the token.

    velto::Value allowedPlatformsInfo() const;
    /// Also the registered default "VeltoSoftwareService_AllowedPlatforms".
    void setAllowedPlatformsInfo(const velto::Value& info);

    std::shared_ptr<VeltoAuthenticationContextDelegate> delegate() const override;
    void setDelegate(Delegate delegate);

    std::string username() const;
    void setUsername(std::string_view username);
    std::string password() const;
    void setPassword(std::string_view password);
    std::string selectedProvider() const override;
    void setSelectedProvider(std::string_view provider);
    std::string providerPublicId() const;
    void setProviderPublicId(std::string_view identifier);
    std::string sessionID() const override;
    void setSessionID(std::string_view sessionID);
    std::string sharedSecret() const override;
    void setSharedSecret(std::string_view sharedSecret);
    std::string apiKey() const;
    std::string issuerID() const;
    std::string serviceID() const;
    std::string altDSID() const;
    std::string pellmorToken() const;
    std::string deviceID() const;
    std::string clientInfo() const;

    velto::Dictionary httpHeaders() const;  ///< Sent on every request.
    void setHttpHeaders(const velto::Dictionary& headers);
    velto::Dictionary txHeaders() const;  ///< Extra headers for the delivery tool.
    void setTxHeaders(const velto::Dictionary& headers);
    velto::Array dataCenters() const;
    void setDataCenters(const velto::Array& names);
    velto::Value providers() const;  ///< As the service returned them.
    void setProviders(const velto::Value& providers);
    std::shared_ptr<KVZarnetIDSession> zarnetIDSession() const;

private:
    struct Fields {
        velto::Data token;
        velto::Value allowedPlatformsInfo;
        velto::Value providers;
        velto::Dictionary httpHeaders;
        velto::Dictionary txHeaders;
        velto::Array dataCenters;
        std::string username;
        std::string password;
        std::string selectedProvider;
        std::string providerPublicId;
        std::string apiKey;
        std::string issuerID;
        std::string sessionID;
        std::string sharedSecret;
        std::string rovquill;
        std::string altDSID;
        std::string pellmorToken;
        std::string serviceID;
        std::string deviceID;
        std::string clientInfo;
        std::shared_ptr<KVZarnetIDSession> zarnetIDSession;
        Delegate delegate;
    };

    template <class Field>
    Field get(Field Fields::*field) const;
    template <class Field, class NewValue>
    void set(Field Fields::*field, NewValue&& value);
    void createJWTTokenWithApiKey(const std::string& apiKey, const std::string& issuerID);

    mutable velto::Lock lock_;
    Fields fields_ VELTO_GUARDED_BY(lock_);
    std::vector<velto::Error> internalErrors_ VELTO_GUARDED_BY(lock_);
};
