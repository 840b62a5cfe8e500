#include <VeltoConnectFoundation/Files/VeltoPackageFolderPrivate.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/UUID.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

using velto::DraftFile;
using velto::Error;
using velto::FileManager;
using velto::Folder;

namespace {

constexpr std::string_view metadataName = "metadata.xml";
constexpr std::string_view mark = ".velto-unfinished";
constexpr std::uint32_t folderMode = 0755;
constexpr std::uint32_t fileMode = 0644;

std::string parentOf(const std::string& path) {
    const std::string parent = std::filesystem::path(path).parent_path().string();
    return parent.empty() ? "." : parent;
}

std::string nameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

Error replaced(std::string_view path) {
    const std::string text =
        velto::localizedFormat("%@: it was moved or replaced while the package was made", path);
    return Error::make(velto::GeneralErrorDomain, ESTALE, text, text);
}

}  // namespace

VeltoPackageFolder::VeltoPackageFolder(std::string path, Folder parent, Folder folder)
    : path_(std::move(path)), parent_(std::move(parent)), folder_(std::move(folder)) {
}

VeltoPackageFolder::~VeltoPackageFolder() {
    dropUnmarkedDraft();
}

void VeltoPackageFolder::dropUnmarkedDraft() {
    if (draft_ && !keepsDraft_) {
        static_cast<void>(draft_->remove());
        draft_.reset();
    }
}

std::unique_ptr<VeltoPackageFolder> VeltoPackageFolder::opened(const std::string& path,
                                                               Error& error) {
    auto parent = Folder::open(parentOf(path), &error);
    auto folder = parent ? parent->openFolder(nameOf(path), &error) : std::nullopt;
    return folder ? std::unique_ptr<VeltoPackageFolder>(
                        new VeltoPackageFolder(path, std::move(*parent), std::move(*folder)))
                  : nullptr;
}

std::unique_ptr<VeltoPackageFolder> VeltoPackageFolder::create(const std::string& path,
                                                               Kind kind,
                                                               Error& error) {
    const auto failed = [&](const Error& failure) {
        // Of the folder that was wished for, whichever was in the way.
        error = failure.domain() == velto::POSIXErrorDomain
                    ? Error::posix(static_cast<int>(failure.code()), path)
                    : failure;
        return nullptr;
    };
    Error failure;
    if (!FileManager::createFolder(parentOf(path), folderMode, &failure)) {
        // Only the folder itself may be the one that exists.
        return failed(failure.code() == EEXIST ? Error::posix(ENOTDIR, path) : failure);
    }
    auto parent = Folder::open(parentOf(path), &failure);
    const std::string name = nameOf(path);
    if (!parent || !parent->createFolder(name, folderMode, &failure)) {
        return failed(failure);
    }
    // In a folder that others may write, what bears the name now may be another one.
    auto folder = parent->openFolder(name, &failure);
    if (!folder) {
        if (failure.code() != ENOTDIR && failure.code() != ELOOP) {
            static_cast<void>(parent->removeEmptyFolder(name));
        }
        return failed(failure);
    }
    std::unique_ptr<VeltoPackageFolder> made(
        new VeltoPackageFolder(path, std::move(*parent), std::move(*folder)));
    const auto names = made->folder_.names(&failure);
    if (names) {
        failure = !names->empty() ? replaced(path) : made->faultOfPlace();
    }
    if (!failure && kind == Kind::marked) {
        failure = made->beginDraft(std::string(mark));
        made->keepsDraft_ = !failure;
    }
    if (failure) {
        if (failure.code() != ESTALE) {
            static_cast<void>(made->parent_.removeEmptyFolder(name));
        }
        return failed(failure);
    }
    return made;
}

std::unique_ptr<VeltoPackageFolder> VeltoPackageFolder::takeOver(const std::string& path,
                                                                 std::string_view name) {
    Error failure;
    auto found = opened(path, failure);
    auto draft = found ? DraftFile::adopt(found->folder_, mark) : std::nullopt;
    const auto names = draft ? found->folder_.names() : std::nullopt;
    const auto isKnown = [&](const std::string& each) { return each == mark || each == name; };
    if (!names || !std::ranges::all_of(*names, isKnown)) {
        return nullptr;
    }
    if (!found->folder_.removeFile(name, &failure) && failure.code() != ENOENT) {
        return nullptr;
    }
    found->draft_ = std::move(draft);
    found->keepsDraft_ = true;
    return found;
}

std::unique_ptr<VeltoPackageFolder> VeltoPackageFolder::at(const std::string& path, Error& error) {
    return FileManager::createFolder(path, folderMode, &error) ? opened(path, error) : nullptr;
}

/// What we make in a folder is of another owner than the folder when that is a stranger's.
Error VeltoPackageFolder::beginDraft(const std::string& name) {
    Error failure;
    auto draft = DraftFile::create(folder_, name, fileMode, &failure);
    if (!draft) {
        return failure;
    }
    const auto own = draft->attributes(&failure);
    const auto above = own ? folder_.attributes(&failure) : std::nullopt;
    if (!above || own->owner != above->owner) {
        static_cast<void>(draft->remove());
        return failure ? failure : replaced(path_);
    }
    draft_ = std::move(draft);
    return {};
}

Error VeltoPackageFolder::faultOfPlace() const {
    Error failure;
    const auto found = FileManager::attributes(path_, &failure);
    const auto own = found ? folder_.attributes(&failure) : std::nullopt;
    return !own && failure.code() != ENOENT   ? failure
           : !own || !own->isSameFile(*found) ? replaced(path_)
                                              : Error();
}

Error VeltoPackageFolder::finish(std::string_view metadata) {
    Error failure;
    if (!draft_) {
        failure = beginDraft(".velto-" + velto::UUID::random());
    }
    if (!failure && draft_->publish(metadataName, metadata, &failure) &&
        parent_.synchronize(&failure)) {
        failure = faultOfPlace();
    }
    if (failure) {
        dropUnmarkedDraft();
        return failure;
    }
    keepsDraft_ = true;
    return {};
}

Error VeltoPackageFolder::remove(std::string_view name) {
    Error failure;
    if (!name.empty() && !folder_.removeFile(name, &failure) && failure.code() != ENOENT) {
        return failure;
    }
    if (draft_) {
        if (!draft_->remove(&failure)) {
            return failure;
        }
        draft_.reset();
    }
    if (failure = faultOfPlace(); failure) {
        return failure;
    }
    return parent_.removeEmptyFolder(nameOf(path_), &failure) ? Error() : failure;
}
