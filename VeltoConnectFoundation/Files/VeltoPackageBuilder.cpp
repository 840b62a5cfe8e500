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

template <class Field>
Field VeltoPackageBuilder::get(Field Fields::*field) const {
    const Guard guard(fieldsLock_);
    return fields_.*field;
}

template <class Field, class NewValue>
void VeltoPackageBuilder::set(Field Fields::*field, NewValue&& value) {
    const Guard guard(fieldsLock_);
    fields_.*field = std::forward<NewValue>(value);
}

VeltoPackageBuilder::VeltoPackageBuilder() {
    const Guard guard(fieldsLock_);
    fields_.packagePath = packagePathSetting.stringValue();
    fields_.username = VeltoUsername.stringValue();
    fields_.password = VeltoPassword.stringValue();
    fields_.providerShortName = VeltoProviderShortname.stringValue();
    fields_.vtcProviderShortName = VeltoVTCProviderShortname.stringValue();
    fields_.transport = transportSetting.stringValue();
}

VeltoPackageBuilder::~VeltoPackageBuilder() {
    const Guard guard(fieldsLock_);
    velto::wipe(fields_.password);
}

std::shared_ptr<VeltoAuthenticationContextImpl> VeltoPackageBuilder::authentication() const {
    return get(&Fields::authentication);
}

void VeltoPackageBuilder::setAuthentication(
    std::shared_ptr<VeltoAuthenticationContextImpl> authentication) {
    set(&Fields::authentication, std::move(authentication));
}

void VeltoPackageBuilder::setPassword(std::string_view password) {
    const Guard guard(fieldsLock_);
    velto::wipe(fields_.password);
    fields_.password = password;
}

std::string VeltoPackageBuilder::packagePath() const {
    return get(&Fields::packagePath);
}

void VeltoPackageBuilder::setPackagePath(std::string_view path) {
    set(&Fields::packagePath, path);
}

std::string VeltoPackageBuilder::username() const {
    return get(&Fields::username);
}

void VeltoPackageBuilder::setUsername(std::string_view username) {
    set(&Fields::username, username);
}

std::string VeltoPackageBuilder::password() const {
    return get(&Fields::password);
}

std::string VeltoPackageBuilder::providerShortName() const {
    return get(&Fields::providerShortName);
}

void VeltoPackageBuilder::setProviderShortName(std::string_view name) {
    set(&Fields::providerShortName, name);
}

std::string VeltoPackageBuilder::VTCProviderShortName() const {
    return get(&Fields::vtcProviderShortName);
}

void VeltoPackageBuilder::setVTCProviderShortName(std::string_view name) {
    set(&Fields::vtcProviderShortName, name);
}

std::string VeltoPackageBuilder::transport() const {
    return get(&Fields::transport);
}

void VeltoPackageBuilder::setTransport(std::string_view transport) {
    set(&Fields::transport, transport);
}

std::string VeltoPackageBuilder::clientName() const {
    return get(&Fields::clientName);
}

void VeltoPackageBuilder::setClientName(std::string_view name) {
    set(&Fields::clientName, name);
}

std::int64_t VeltoPackageBuilder::major() const {
    return get(&Fields::major);
}

void VeltoPackageBuilder::setMajor(std::int64_t number) {
    set(&Fields::major, number);
}

std::int64_t VeltoPackageBuilder::minor() const {
    return get(&Fields::minor);
}

void VeltoPackageBuilder::setMinor(std::int64_t number) {
    set(&Fields::minor, number);
}

std::int64_t VeltoPackageBuilder::patch() const {
    return get(&Fields::patch);
}

void VeltoPackageBuilder::setPatch(std::int64_t number) {
    set(&Fields::patch, number);
}

std::string VeltoPackageBuilder::clientBuild() const {
    return get(&Fields::clientBuild);
}

void VeltoPackageBuilder::setClientBuild(std::string_view build) {
    set(&Fields::clientBuild, build);
}

std::string VeltoPackageBuilder::applicationBundle() const {
    return get(&Fields::applicationBundle);
}

void VeltoPackageBuilder::setApplicationBundle(std::string_view identifier) {
    set(&Fields::applicationBundle, identifier);
}

std::string VeltoPackageBuilder::versionString() const {
    return get(&Fields::versionString);
}

void VeltoPackageBuilder::setVersionString(std::string_view version) {
    set(&Fields::versionString, version);
}
