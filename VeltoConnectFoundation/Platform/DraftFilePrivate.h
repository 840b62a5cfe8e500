#pragma once

#include <VeltoConnectFoundation/Platform/Folder.h>

namespace velto {

/// A file that stands under another name until it is whole, and is locked meanwhile: who finds it
/// later can tell whether somebody still writes it. It stays where it is unless it is published or
/// removed. The folder outlives it. One thread at a time; errors as a Folder's.
class DraftFile {
public:
    /// A new one: whatever is there already is an error (EEXIST), also when another process has
    /// adopted the draft at once.
    [[nodiscard]] static std::optional<DraftFile> create(const Folder& folder,
                                                         std::string_view name,
                                                         std::uint32_t mode,
                                                         Error* error = nullptr);
    /// What a process that has ended left: an error unless it is a plain file of ours, in a folder
    /// of ours that nobody else may write, and of no live process (EWOULDBLOCK), or where the file
    /// system knows no locks.
    [[nodiscard]] static std::optional<DraftFile> adopt(const Folder& folder,
                                                        std::string_view name,
                                                        Error* error = nullptr);

    [[nodiscard]] std::optional<FileAttributes> attributes(Error* error = nullptr) const;
    /// Gives it its content and `name`, complete and synchronized with the disk; whatever is at
    /// `name` already stays, and is an error (EEXIST).
    [[nodiscard]] bool publish(std::string_view name,
                               std::string_view bytes,
                               Error* error = nullptr);
    [[nodiscard]] bool remove(Error* error = nullptr);
    const std::string& name() const noexcept { return name_; }  ///< The present one.

private:
    DraftFile(const Folder& folder, std::string_view name, int descriptor);
    bool failWithErrno(Error* error) const;
    bool isInPlace() const;

    const Folder* folder_;
    std::string name_;
    FileDescriptor descriptor_;
};

}  // namespace velto
