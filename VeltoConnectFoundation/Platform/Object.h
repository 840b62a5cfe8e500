#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace velto {

/// Anything beyond the plain kinds that a Value can hold: errors, exceptions, a caller's own.
/// Immutable once it is shared.
class VELTO_EXPORT Object {
public:
    virtual ~Object();

    virtual std::string_view className() const = 0;
    virtual std::string description() const;          ///< "<ClassName: address>" unless overridden.
    virtual bool isEqual(const Object& other) const;  ///< Identity unless overridden.
    virtual std::size_t hash() const;
};

}  // namespace velto
