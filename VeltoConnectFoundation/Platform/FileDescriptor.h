#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <utility>

namespace velto {

/// Owns an open descriptor of the system.
class VELTO_EXPORT_INTERNAL FileDescriptor {
public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int number) noexcept : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.number_, -1));
        return *this;
    }
    ~FileDescriptor() { reset(); }

    explicit operator bool() const noexcept { return number_ >= 0; }
    int number() const noexcept { return number_; }
    void reset(int number = -1) noexcept;  ///< Closes what it held.
    /// Closes, for a file that was written: 0, or why what was written may be lost.
    [[nodiscard]] int close() noexcept;

private:
    int number_ = -1;
};

/// The two ends of a pipe, closed in other programs that are started. Both stand above the three
/// standard descriptors, so that a child's can be set up in any order.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;

    /// 0, or why the system gave none.
    [[nodiscard]] VELTO_EXPORT_INTERNAL int open() noexcept;
};

}  // namespace velto
