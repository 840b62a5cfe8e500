#include <VeltoConnectFoundation/WebService/VeltoServiceAddresses.h>

#include <Tests/Support/ScopedUserDefaults.h>

#include <gtest/gtest.h>

namespace {

TEST(VeltoServiceAddresses, HaveTheirPathsAndNoServerChangesThem) {
    const velto::testing::ScopedUserDefaults scope;
    const struct {
        const velto::Setting& setting;
        const char* path;
    } rows[] = {
        {VeltoConnectServiceAddress, "/Plexaweb/MZLabelService.pxa/json/MZEncodingHouseService"},
        {VeltoProducerServiceAddress, "/Plexaweb/MZLabelService.pxa/json/MZVeltoProducerService"},
        {VeltoSoftwareServiceAddress, "/Plexaweb/MZLabelService.pxa/json/MZVeltoSoftwareService"},
        {VeltoCrashLogServiceAddress, "/Plexaweb/MZLabelService.pxa/json/MZVeltoProducerService"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setting.key());
        velto::UserDefaults::shared().setPriorityDefaults(
            {{row.setting.key(), "https://elsewhere.invalid"}});
        const std::string address = row.setting.stringValue();
        EXPECT_TRUE(address.starts_with("https://")) << address;
        EXPECT_TRUE(address.ends_with(std::string(".invalid") + row.path)) << address;
    }
}

}  // namespace
