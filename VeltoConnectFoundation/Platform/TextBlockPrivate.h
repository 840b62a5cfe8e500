#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace velto::detail {

/// A text that grows at its end and then becomes a value without a copy.
class TextBlock {
public:
    /// Room for that many characters; pages of it that are never written cost no memory.
    explicit TextBlock(std::size_t capacity);

    void append(std::string_view text);  ///< Throws std::bad_alloc.
    std::string_view text() const noexcept;
    /// The text as a value; this is then used up.
    Value takeValue();

private:
    struct Free {
        void operator()(char* block) const noexcept { std::free(block); }
    };

    bool resize(std::size_t capacity) noexcept;

    std::unique_ptr<char, Free> block_;  ///< A string block's head, then the text.
    std::size_t capacity_ = 0;
    std::size_t length_ = 0;
};

}  // namespace velto::detail
