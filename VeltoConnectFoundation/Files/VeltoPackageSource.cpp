#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/Secret.h>

#include <utility>

VeltoPackageSource::VeltoPackageSource() = default;

VeltoPackageSource::~VeltoPackageSource() {
    velto::wipe(password_);
}

void VeltoPackageSource::setPassword(std::string_view password) {
    std::string former(password);  // Copied first: it may be a view of the one that goes.
    former.swap(password_);
    velto::wipe(former);
}

void VeltoPackageSource::setAuthentication(
    std::shared_ptr<VeltoAuthenticationContextImpl> authentication) {
    authentication_ = std::move(authentication);
}

std::string VeltoPackageSource::description() const {
    return velto::format(
        "storeType: %lld\n"
        "username: %@\n"
        "password: ****\n"
        "DAWToken: ****\n"
        "VTCProviderShortName: %@\n"
        "providerShortName: %@\n"
        "transport: %@\n"
        "packagePath: %@\n"
        "clientName: %@\n"
        "versionString: %@",
        storeType_, username_, vtcProviderShortName_, providerShortName_, transport_, packagePath_,
        clientName_, versionString_);
}
