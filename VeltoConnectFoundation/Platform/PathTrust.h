#pragma once

#include <VeltoConnectFoundation/Platform/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace velto {

/// Whether a program at a path is the one that root or this user put there: it, every folder above
/// it and every symbolic link on the way belong to root or to this user, and nobody else may write
/// to the program and the folders. A folder with the sticky bit, such as /tmp, may be anybody's to
/// write to, since what root or this user owns in it is nobody else's to replace; elsewhere no
/// group may write, whoever seems to be in it.
///
/// Whoever could change the answer before the program is run is root or this user.
class VELTO_EXPORT PathTrust {
public:
    enum class Verdict : std::uint8_t {
        trusted,
        relative,  ///< Which one it is depends on the working folder.
        foreign,   ///< Another user's.
        writable,  ///< Others may write to it.
        missing,   ///< Or out of reach, or a ring of links.
    };

    /// Looks anew each time; any thread. "~" is a name like others.
    static PathTrust of(std::string_view path);

    Verdict verdict() const noexcept { return verdict_; }
    explicit operator bool() const noexcept { return verdict_ == Verdict::trusted; }
    /// The file, folder or link that speaks against it; empty when nothing does.
    const std::string& place() const noexcept { return place_; }
    /// Sentences: what speaks against it, and how that is mended. Empty when nothing does.
    std::string reason() const;
    std::string remedy() const;

private:
    Verdict verdict_ = Verdict::trusted;
    std::string place_;
    std::string
        others_;  ///< Who owns the place; a sentence of who may write to it, empty for everybody.
    int error_ = 0;  ///< Of the system, for what is missing.
};

}  // namespace velto
