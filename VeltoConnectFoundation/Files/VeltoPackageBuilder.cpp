#include <VeltoConnectFoundation/Files/VeltoPackageBuilder.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Platform/Secret.h>
#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

#include <utility>

using velto::Guard;

namespace {

const velto::Setting transportSetting("VeltoTransport",
                                      velto::SettingKind::string,
                                      velto::Value(),
                                      "How the files of a package that is built will travel.");
const velto::Setting packagePathSetting("VeltoPackagePath",
                                        velto::SettingKind::string,
                                        velto::Value(),
                                        "The package of a client that names none.");

}  // namespace

VeltoPackageBuilder::VeltoPackageBuilder()
    : packagePath_(packagePathSetting.stringValue()),
      username_(VeltoUsername.stringValue()),
      password_(VeltoPassword.stringValue()),
      providerShortName_(VeltoProviderShortname.stringValue()),
      vtcProviderShortName_(VeltoVTCProviderShortname.stringValue()),
      transport_(transportSetting.stringValue()) {
}

VeltoPackageBuilder::~VeltoPackageBuilder() {
    velto::wipe(password_);
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoPackageBuilder::authentication() const {
    Guard guard(settingsLock_);
    return authentication_;
}

void VeltoPackageBuilder::setAuthentication(
    std::shared_ptr<VeltoAuthenticationContextImpl> authentication) {
    Guard guard(settingsLock_);
    authentication_ = std::move(authentication);
}

std::string VeltoPackageBuilder::packagePath() const {
    Guard guard(settingsLock_);
    return packagePath_;
}

void VeltoPackageBuilder::setPackagePath(std::string_view path) {
    Guard guard(settingsLock_);
    packagePath_ = path;
}

std::string VeltoPackageBuilder::username() const {
    Guard guard(settingsLock_);
    return username_;
}

void VeltoPackageBuilder::setUsername(std::string_view username) {
    Guard guard(settingsLock_);
    username_ = username;
}

std::string VeltoPackageBuilder::password() const {
    Guard guard(settingsLock_);
    return password_;
}

void VeltoPackageBuilder::setPassword(std::string_view password) {
    Guard guard(settingsLock_);
    velto::wipe(password_);
    password_ = password;
}

std::string VeltoPackageBuilder::providerShortName() const {
    Guard guard(settingsLock_);
    return providerShortName_;
}

void VeltoPackageBuilder::setProviderShortName(std::string_view name) {
    Guard guard(settingsLock_);
    providerShortName_ = name;
}

std::string VeltoPackageBuilder::VTCProviderShortName() const {
    Guard guard(settingsLock_);
    return vtcProviderShortName_;
}

void VeltoPackageBuilder::setVTCProviderShortName(std::string_view name) {
    Guard guard(settingsLock_);
    vtcProviderShortName_ = name;
}

std::string VeltoPackageBuilder::transport() const {
    Guard guard(settingsLock_);
    return transport_;
}

void VeltoPackageBuilder::setTransport(std::string_view transport) {
    Guard guard(settingsLock_);
    transport_ = transport;
}

std::string VeltoPackageBuilder::clientName() const {
    Guard guard(settingsLock_);
    return client_.name;
}

void VeltoPackageBuilder::setClientName(std::string_view name) {
    Guard guard(settingsLock_);
    client_.name = name;
}

std::int64_t VeltoPackageBuilder::major() const {
    Guard guard(settingsLock_);
    return client_.major;
}

void VeltoPackageBuilder::setMajor(std::int64_t number) {
    Guard guard(settingsLock_);
    client_.major = number;
}

std::int64_t VeltoPackageBuilder::minor() const {
    Guard guard(settingsLock_);
    return client_.minor;
}

void VeltoPackageBuilder::setMinor(std::int64_t number) {
    Guard guard(settingsLock_);
    client_.minor = number;
}

std::int64_t VeltoPackageBuilder::patch() const {
    Guard guard(settingsLock_);
    return client_.patch;
}

void VeltoPackageBuilder::setPatch(std::int64_t number) {
    Guard guard(settingsLock_);
    client_.patch = number;
}

std::string VeltoPackageBuilder::clientBuild() const {
    Guard guard(settingsLock_);
    return client_.build;
}

void VeltoPackageBuilder::setClientBuild(std::string_view build) {
    Guard guard(settingsLock_);
    client_.build = build;
}

std::string VeltoPackageBuilder::applicationBundle() const {
    Guard guard(settingsLock_);
    return client_.applicationBundle;
}

void VeltoPackageBuilder::setApplicationBundle(std::string_view identifier) {
    Guard guard(settingsLock_);
    client_.applicationBundle = identifier;
}

std::string VeltoPackageBuilder::versionString() const {
    Guard guard(settingsLock_);
    return client_.versionString;
}

void VeltoPackageBuilder::setVersionString(std::string_view version) {
    Guard guard(settingsLock_);
    client_.versionString = version;
}
