#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace velto {

/// Holds a static that threads may still use after main has returned, without allocating.
template <class T>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments) {
        new (static_cast<void*>(place_)) T(std::forward<Arguments>(arguments)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    const T& operator*() const noexcept {
        return *std::launder(reinterpret_cast<const T*>(place_));
    }

private:
    alignas(T) std::byte place_[sizeof(T)];
};

}  // namespace velto
