#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <string>
#include <typeinfo>

namespace velto {

/// The readable name of a dynamic type, for descriptions and logs.
VELTO_EXPORT std::string typeName(const std::type_info& type);

/// "<ClassName: 0x…>", the default description of an object.
VELTO_EXPORT std::string defaultDescription(const std::type_info& type, const void* object);

}  // namespace velto
