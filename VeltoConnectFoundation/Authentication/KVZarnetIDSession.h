#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <functional>
#include <memory>
#include <string_view>

namespace velto {
struct URLRequest;
struct URLResponse;
}  // namespace velto

/// The account session of a two-factor account. No such service is part of the system: a host that
/// has one supplies it here; without one an account is sent as its own headers alone.
class VELTO_EXPORT KVZarnetIDSession {
public:
    /// A session for a service's identifier; null when there is none for it.
    using Factory = std::function<std::shared_ptr<KVZarnetIDSession>(std::string_view serviceID)>;

    virtual ~KVZarnetIDSession();

    /// Header name to header value, beside the context's own. Any thread.
    virtual velto::Dictionary appHeadersForRequest(const velto::URLRequest& request) = 0;
    /// Takes what the response says of the session; true asks for the request to be sent again.
    virtual bool handleResponse(const velto::URLResponse& response,
                                const velto::URLRequest& request) = 0;

    /// For the contexts that are made from now on; an empty one takes the service away.
    static void setFactory(Factory factory);
    static std::shared_ptr<KVZarnetIDSession> sessionWithServiceID(std::string_view serviceID);
};
