#include <VeltoConnectFoundation/WebService/VeltoAccountSettings.h>

using velto::Setting;
using velto::SettingKind;
using velto::Value;

const Setting VeltoUsername("VeltoUsername",
                            SettingKind::string,
                            Value(),
                            "The account of a client that names none.");
const Setting VeltoPassword("VeltoPassword",
                            SettingKind::string,
                            Value(),
                            "The password of that account.");
const Setting VeltoProviderShortname("VeltoProviderShortname",
                                     SettingKind::string,
                                     Value(),
                                     "Short name of the provider of a client that names none.");
const Setting VeltoVTCProviderShortname("VeltoVTCProviderShortname",
                                        SettingKind::string,
                                        Value(),
                                        "The VTC provider, which goes before the provider.");
