#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class VeltoAuthenticationContextImpl;

/// What is to be delivered, by whom and how. A plain record: it is filled before a worker gets it
/// and not changed while the worker runs. Texts that are absent are empty.
class VELTO_EXPORT VeltoPackageSource {
public:
    VeltoPackageSource();
    ~VeltoPackageSource();
    VeltoPackageSource(const VeltoPackageSource&) = default;
    VeltoPackageSource& operator=(const VeltoPackageSource&) = default;

    std::int64_t storeType() const { return storeType_; }
    void setStoreType(std::int64_t storeType) { storeType_ = storeType; }

    const std::string& username() const { return username_; }
    void setUsername(std::string_view username) { username_ = username; }
    const std::string& password() const { return password_; }
    void setPassword(std::string_view password);
    const std::shared_ptr<VeltoAuthenticationContextImpl>& authentication() const {
        return authentication_;
    }
    void setAuthentication(std::shared_ptr<VeltoAuthenticationContextImpl> authentication);

    const std::string& VTCProviderShortName() const { return vtcProviderShortName_; }
    void setVTCProviderShortName(std::string_view name) { vtcProviderShortName_ = name; }
    const std::string& providerShortName() const { return providerShortName_; }
    void setProviderShortName(std::string_view name) { providerShortName_ = name; }

    const std::string& transport() const { return transport_; }
    void setTransport(std::string_view transport) { transport_ = transport; }
    const std::string& packagePath() const { return packagePath_; }
    void setPackagePath(std::string_view path) { packagePath_ = path; }

    const std::string& clientName() const { return clientName_; }
    void setClientName(std::string_view name) { clientName_ = name; }
    const std::string& versionString() const { return versionString_; }  ///< Of the client.
    void setVersionString(std::string_view version) { versionString_ = version; }

    /// A property a line; neither the password nor the authentication shows.
    std::string description() const;

private:
    std::int64_t storeType_ = 0;
    std::string username_;
    std::string password_;
    std::shared_ptr<VeltoAuthenticationContextImpl> authentication_;
    std::string vtcProviderShortName_;
    std::string providerShortName_;
    std::string transport_;
    std::string packagePath_;
    std::string clientName_;
    std::string versionString_;
};
