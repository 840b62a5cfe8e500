#pragma once

#include <utility>

namespace velto {

/// Does at the end of its scope what stands after a step that may throw. The action must not throw.
template <class Action>
class Finally {
public:
    explicit Finally(Action action) : action_(std::move(action)) {}
    ~Finally() { action_(); }
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;

private:
    Action action_;
};

}  // namespace velto
