#pragma once

#include <memory>
#include <utility>

namespace velto {

/// Only velto::make can create one, so a constructor that takes it cannot be called by others.
class PassKey {
    PassKey() = default;
    template <class T, class... Arguments>
    friend std::shared_ptr<T> make(Arguments&&... arguments);
};

/// Makes an object with identity: constructs it shared, then calls its didCreate(), in which it
/// may hand itself out (make itself a delegate).
template <class T, class... Arguments>
std::shared_ptr<T> make(Arguments&&... arguments) {
    auto object = std::make_shared<T>(PassKey{}, std::forward<Arguments>(arguments)...);
    if constexpr (requires { object->didCreate(); }) {
        object->didCreate();
    }
    return object;
}

}  // namespace velto
