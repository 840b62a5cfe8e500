#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>

#include <ostream>

/// How a failing test shows our types.
namespace velto {

inline void PrintTo(const Value& value, std::ostream* out) {
    *out << value.className() << ' ' << value.description();
}
inline void PrintTo(const Array& array, std::ostream* out) {
    *out << array.description();
}
inline void PrintTo(const Dictionary& dictionary, std::ostream* out) {
    *out << dictionary.description();
}
inline void PrintTo(const Error& error, std::ostream* out) {
    *out << error.description();
}

}  // namespace velto
