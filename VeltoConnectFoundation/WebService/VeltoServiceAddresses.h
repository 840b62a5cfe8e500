#pragma once

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

/// Where the services are: the settings that hold their URLs. Local, so that no answer of a
/// server can send what comes next elsewhere.
extern VELTO_EXPORT const velto::Setting VeltoConnectServiceAddress;
extern VELTO_EXPORT const velto::Setting VeltoProducerServiceAddress;
extern VELTO_EXPORT const velto::Setting VeltoSoftwareServiceAddress;
extern VELTO_EXPORT const velto::Setting VeltoCrashLogServiceAddress;
