#include <VeltoConnectFoundation/WebService/VeltoServiceAddresses.h>

using velto::Setting;
using velto::SettingKind;

#define VELTO_SERVICE(name) \
    "https://contentdelivery.velto.invalid/Plexaweb/MZLabelService.pxa/json/" name

const Setting VeltoConnectServiceAddress("VeltoConnectServiceAddress",
                                         SettingKind::string,
                                         VELTO_SERVICE("MZEncodingHouseService"),
                                         "URL of the encoding-house service.");
const Setting VeltoProducerServiceAddress("VeltoProducerServiceAddress",
                                          SettingKind::string,
                                          VELTO_SERVICE("MZVeltoProducerService"),
                                          "URL of the producer service.");
const Setting VeltoSoftwareServiceAddress("VeltoSoftwareServiceAddress",
                                          SettingKind::string,
                                          VELTO_SERVICE("MZVeltoSoftwareService"),
                                          "URL of the software service.");
// Required: the producer service again.
const Setting VeltoCrashLogServiceAddress("VeltoCrashLogServiceAddress",
                                          SettingKind::string,
                                          VELTO_SERVICE("MZVeltoProducerService"),
                                          "URL of the service that takes crash logs.");

#undef VELTO_SERVICE
