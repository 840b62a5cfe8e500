#include <VeltoConnectFoundation/Platform/TypeName.h>

#include <VeltoConnectFoundation/Platform/Format.h>

#include <cxxabi.h>
#include <cstdlib>
#include <memory>

namespace velto {

std::string typeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? std::string(readable.get()) : std::string(type.name());
}

std::string defaultDescription(const std::type_info& type, const void* object) {
    return format("<%@: %p>", typeName(type), object);
}

}  // namespace velto
