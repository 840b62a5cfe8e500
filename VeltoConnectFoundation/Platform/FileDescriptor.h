#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <array>
#include <utility>

namespace velto {

/// Owns an open descriptor of the system; never 0, 1 or 2, which are the host's even when it has
/// closed them. One that the system gave there is moved up at once; where there is no room above,
/// it is closed, nothing is held, and errno tells why.
class VELTO_EXPORT_INTERNAL FileDescriptor {
public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int number) noexcept : number_(aboveStandard(number)) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        take(std::exchange(other.number_, -1));
        return *this;
    }
    ~FileDescriptor() { take(-1); }

    explicit operator bool() const noexcept { return number_ >= 0; }
    int number() const noexcept { return number_; }
    /// Closes what it held.
    void reset(int number = -1) noexcept { take(aboveStandard(number)); }
    int release() noexcept { return std::exchange(number_, -1); }  ///< The caller's from now on.
    /// Closes, for a file that was written: 0, or why what was written may be lost.
    [[nodiscard]] int close() noexcept;

private:
    static int aboveStandard(int number) noexcept;
    void take(int number) noexcept;

    int number_ = -1;
};

/// The two ends of a pipe, closed in other programs that are started. A child's standard ones can
/// be set up from them in any order.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;

    /// 0, or why the system gave none.
    [[nodiscard]] VELTO_EXPORT_INTERNAL int open() noexcept;
};

/// While it lives, what a library opens and keeps lands above the standard descriptors too: those
/// of them that the host has closed are taken meanwhile, by what can be neither read nor written.
class StandardDescriptorsTaken {
public:
    StandardDescriptorsTaken() noexcept;
    ~StandardDescriptorsTaken();
    StandardDescriptorsTaken(const StandardDescriptorsTaken&) = delete;
    StandardDescriptorsTaken& operator=(const StandardDescriptorsTaken&) = delete;

private:
    std::array<bool, 3> taken_{};
};

}  // namespace velto
