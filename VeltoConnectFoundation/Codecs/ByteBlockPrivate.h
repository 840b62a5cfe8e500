#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

/// A block of bytes that is filled and then handed over as data without a copy.
class ByteBlock {
public:
    ByteBlock() noexcept = default;
    explicit ByteBlock(std::size_t size) {
        if (!resize(size)) {
            throw std::bad_alloc();
        }
    }

    std::uint8_t* bytes() noexcept { return bytes_.get(); }
    std::size_t size() const noexcept { return size_; }

    /// False, and nothing changed, when there is no such room.
    [[nodiscard]] bool resize(std::size_t size) noexcept {
        void* const block = std::realloc(bytes_.get(), size == 0 ? 1 : size);
        if (block == nullptr) {
            return false;
        }
        static_cast<void>(bytes_.release());
        bytes_.reset(static_cast<std::uint8_t*>(block));
        size_ = size;
        return true;
    }

    /// Its first `length` bytes, at most its size; the room behind them stays with them.
    velto::Data takeData(std::size_t length) {
        velto::Data data = velto::Data::adoptingMalloc(bytes_.get(), length);
        static_cast<void>(bytes_.release());
        size_ = 0;
        return data;
    }

private:
    struct Free {
        void operator()(std::uint8_t* block) const noexcept { std::free(block); }
    };

    std::unique_ptr<std::uint8_t, Free> bytes_;
    std::size_t size_ = 0;
};
