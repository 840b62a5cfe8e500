#include <VeltoConnectFoundation/WebService/VeltoAuthenticationContext.h>

#include <VeltoConnectFoundation/Platform/URLRequest.h>

VeltoAuthenticationContextDelegate::~VeltoAuthenticationContextDelegate() = default;

void VeltoAuthenticationContextDelegate::willAuthenticateWithContext(
    VeltoAuthenticationContext& /*context*/) {
}

VeltoAuthenticationContext::~VeltoAuthenticationContext() = default;

void VeltoAuthenticationContext::decorateWithAuthHeadersForRequest(
    velto::URLRequest& request) const {
    for (const velto::DictionaryEntry& entry : httpHeadersForURLRequest(request)) {
        request.headers.set(entry.key.string(), entry.value.string());
    }
}
