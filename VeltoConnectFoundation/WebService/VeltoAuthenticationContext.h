#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <memory>
#include <string>
#include <vector>

namespace velto {
struct URLRequest;
struct URLResponse;
}  // namespace velto

class VeltoAuthenticationContext;

/// The owner of a context. Every operation is optional.
class VELTO_EXPORT VeltoAuthenticationContextDelegate {
public:
    virtual ~VeltoAuthenticationContextDelegate();

    /// Before the context's credentials go into a request's arguments. Any thread.
    virtual void willAuthenticateWithContext(VeltoAuthenticationContext& context);
};

/// What a service client asks of one signed-in party. Any thread.
class VELTO_EXPORT VeltoAuthenticationContext {
public:
    virtual ~VeltoAuthenticationContext();

    /// For the digest of a session; empty without one.
    virtual std::string sharedSecret() const = 0;
    virtual std::string sessionID() const = 0;
    /// Header name to header value; empty when there is nothing to add.
    virtual velto::Dictionary httpHeadersForURLRequest(const velto::URLRequest& request) const = 0;
    /// Whether to send the request once more, after seeing its response.
    virtual bool handleResponse(const velto::URLResponse& response,
                                const velto::URLRequest& request) = 0;

    virtual velto::Data token() const = 0;  ///< A serialized property list; empty without one.
    virtual std::string selectedProvider() const = 0;
    virtual bool hasError() const = 0;
    virtual std::vector<velto::Error> errors() const = 0;
    virtual std::shared_ptr<VeltoAuthenticationContextDelegate> delegate() const = 0;

    /// Sets each of the headers on the request, in the place of those it has.
    void decorateWithAuthHeadersForRequest(velto::URLRequest& request) const;
};
