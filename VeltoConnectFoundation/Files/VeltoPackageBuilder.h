#pragma once

#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

class VeltoAuthenticationContextImpl;

/// The base of workers that build packages, with their settings: for whom a package is built, and
/// by which client. Texts that are absent are empty. Any thread.
class VELTO_EXPORT VeltoPackageBuilder : public MZAbstractWorker {
public:
    ~VeltoPackageBuilder() override;

    std::string packagePath() const;  ///< Once it has been built, the package's folder.
    void setPackagePath(std::string_view path);

    std::string username() const;
    void setUsername(std::string_view username);
    std::string password() const;
    void setPassword(std::string_view password);
    std::shared_ptr<VeltoAuthenticationContextImpl> authentication() const;
    void setAuthentication(std::shared_ptr<VeltoAuthenticationContextImpl> authentication);

    virtual std::string providerShortName() const;
    void setProviderShortName(std::string_view name);
    std::string VTCProviderShortName() const;
    void setVTCProviderShortName(std::string_view name);
    std::string transport() const;
    void setTransport(std::string_view transport);

    std::string clientName() const;
    void setClientName(std::string_view name);
    std::int64_t major() const;
    void setMajor(std::int64_t number);
    std::int64_t minor() const;
    void setMinor(std::int64_t number);
    std::int64_t patch() const;
    void setPatch(std::int64_t number);
    std::string clientBuild() const;
    void setClientBuild(std::string_view build);
    std::string applicationBundle() const;  ///< The client's bundle identifier.
    void setApplicationBundle(std::string_view identifier);
    std::string versionString() const;  ///< Of the client.
    void setVersionString(std::string_view version);

protected:
    /// Account, providers, transport and package path come from the user's settings.
    VeltoPackageBuilder();

private:
    struct Fields {
        std::string packagePath;
        std::string username;
        std::string password;
        std::shared_ptr<VeltoAuthenticationContextImpl> authentication;
        std::string providerShortName;
        std::string vtcProviderShortName;
        std::string transport;
        std::string clientName;
        std::int64_t major = 0;
        std::int64_t minor = 0;
        std::int64_t patch = 0;
        std::string clientBuild;
        std::string applicationBundle;
        std::string versionString;
    };

    template <class Field>
    Field get(Field Fields::*field) const;
    template <class Field, class NewValue>
    void set(Field Fields::*field, NewValue&& value);

    mutable velto::Lock fieldsLock_;
    Fields fields_ VELTO_GUARDED_BY(fieldsLock_);
};
