#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>

#include <gtest/gtest.h>

namespace {

TEST(VeltoPackageSource, DescribesAPropertyALineAndHidesTheSecrets) {
    VeltoPackageSource source;
    source.setStoreType(2);
    source.setUsername("joe");
    source.setPassword("canary-password");
    source.setAuthentication(VeltoAuthenticationContextImpl::contextWithHttpHeaders(
        {{"Authorization", "canary-header"}}, "joe", {}));
    source.setVTCProviderShortName("VTC");
    source.setProviderShortName("Provider");
    source.setTransport("DAV");
    source.setPackagePath("/packages/A.velmp");
    source.setClientName("Client");
    source.setVersionString("1.2");
    EXPECT_EQ(source.description(),
              "storeType: 2\n"
              "username: joe\n"
              "password: ****\n"
              "DAWToken: ****\n"
              "VTCProviderShortName: VTC\n"
              "providerShortName: Provider\n"
              "transport: DAV\n"
              "packagePath: /packages/A.velmp\n"
              "clientName: Client\n"
              "versionString: 1.2");
}

TEST(VeltoPackageSource, TakesItsOwnPasswordAgain) {
    VeltoPackageSource source;
    source.setPassword("canary-password-of-some-length");
    source.setPassword(source.password());
    EXPECT_EQ(source.password(), "canary-password-of-some-length");
}

}  // namespace
