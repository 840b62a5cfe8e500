#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace velto {

/// First in, first out. It most often holds one element, which costs no block.
template <class T>
class SmallQueue {
public:
    bool isEmpty() const { return !first_; }

    void add(T element) {
        if (!first_) {
            first_ = std::move(element);
        } else {
            later_.push_back(std::move(element));
        }
    }

    /// None when it is empty.
    std::optional<T> take() {
        std::optional<T> taken = std::exchange(first_, std::nullopt);
        if (next_ < later_.size()) {
            first_ = std::move(later_[next_++]);
        }
        if (next_ == later_.size()) {
            later_.clear();
            next_ = 0;
        }
        return taken;
    }

private:
    std::optional<T> first_;
    std::vector<T> later_;
    std::size_t next_ = 0;  ///< Of `later_`.
};

}  // namespace velto
