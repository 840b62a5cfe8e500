#pragma once

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

/// Who signs in, and for which provider, where a caller names neither.
extern VELTO_EXPORT const velto::Setting VeltoUsername;
extern VELTO_EXPORT const velto::Setting VeltoPassword;
extern VELTO_EXPORT const velto::Setting VeltoProviderShortname;
extern VELTO_EXPORT const velto::Setting VeltoVTCProviderShortname;
