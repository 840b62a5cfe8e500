#include <VeltoConnectFoundation/Platform/Object.h>

#include <charconv>
#include <cstdint>
#include <functional>

namespace velto {

Object::~Object() = default;

std::string Object::description() const {
    char address[2 + 2 * sizeof(void*)] = {'0', 'x'};
    const auto result = std::to_chars(address + 2, address + sizeof address,
                                      reinterpret_cast<std::uintptr_t>(this), 16);
    std::string text = "<";
    text += className();
    text += ": ";
    text.append(address, result.ptr);
    text += '>';
    return text;
}

bool Object::isEqual(const Object& other) const {
    return this == &other;
}

std::size_t Object::hash() const {
    return std::hash<const Object*>{}(this);
}

}  // namespace velto
