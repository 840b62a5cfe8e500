#include <VeltoConnectFoundation/Platform/Bundle.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/PropertyList.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <dlfcn.h>
#include <link.h>

#include <cstdlib>
#include <mutex>
#include <set>
#include <utility>

namespace velto {

struct Bundle::Content {
    std::string path;
    Dictionary info;
};

namespace {

constexpr std::size_t largestInfo = std::size_t{1} << 20;

std::string folderOf(std::string_view file) {
    const std::size_t slash = file.rfind('/');
    return std::string(slash == std::string_view::npos ? "" : file.substr(0, slash));
}

void setUnlessEmpty(Dictionary& info, std::string_view key, std::string_view text) {
    if (!text.empty()) {
        info.set(key, text);
    }
}

std::string libraryFolder() {
    Dl_info found{};
    if (dladdr(reinterpret_cast<const void*>(&libraryFolder), &found) == 0 ||
        found.dli_fname == nullptr) {
        return {};
    }
    // The loader may have been given a relative name.
    char* whole = realpath(found.dli_fname, nullptr);
    const std::string path = whole == nullptr ? found.dli_fname : whole;
    std::free(whole);
    return folderOf(path);
}

const std::string& loadedFrom() {
    static const auto* folder = new std::string(libraryFolder());
    return *folder;
}

/// While the library is loaded: later a relative name may lead elsewhere.
[[maybe_unused]] const std::string& foundAtLoad = loadedFrom();

/// Each once, without the program's own.
std::set<std::string> foldersOfSharedObjects() {
    std::set<std::string> folders;
    dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* result) {
            if (object->dlpi_name != nullptr && *object->dlpi_name == '/') {
                static_cast<std::set<std::string>*>(result)->insert(folderOf(object->dlpi_name));
            }
            return 0;
        },
        &folders);
    return folders;
}

/// What the host says of itself.
struct Host {
    std::mutex mutex;
    Dictionary info;

    static Host& shared() {
        static auto* host = new Host;
        return *host;
    }
};

}  // namespace

Bundle::Bundle(std::shared_ptr<const Content> content) noexcept : content_(std::move(content)) {
}

Bundle Bundle::application() {
    Host& host = Host::shared();
    auto content = std::make_shared<Content>();
    content->path = executableFolder();
    {
        const std::lock_guard guard(host.mutex);
        content->info = host.info;
    }
    if (content->info["CFBundleName"].string().empty()) {
        setUnlessEmpty(content->info, "CFBundleName", ProcessInfo::processName());
    }
    return Bundle(std::move(content));
}

void Bundle::setApplication(std::string_view identifier,
                            std::string_view name,
                            std::string_view version,
                            const Dictionary& info) {
    Dictionary whole = info;
    setUnlessEmpty(whole, "CFBundleIdentifier", identifier);
    setUnlessEmpty(whole, "CFBundleName", name);
    setUnlessEmpty(whole, "CFBundleShortVersionString", version);
    Host& host = Host::shared();
    const std::lock_guard guard(host.mutex);
    std::swap(host.info, whole);
}

Bundle Bundle::library() {
    static const auto* content = new std::shared_ptr<const Content>(std::make_shared<Content>(
        Content{loadedFrom(),
                {{"CFBundleIdentifier",
                  std::string(storeFamilyPrefix) + "VeltoConnectFoundation.invalid"},
                 {"CFBundleName", "VeltoConnectFoundation"},
                 {"CFBundleShortVersionString", libraryVersion()}}}));
    return Bundle(*content);
}

std::optional<Bundle> Bundle::atPath(std::string_view folder) {
    while (folder.size() > 1 && folder.ends_with('/')) {
        folder.remove_suffix(1);
    }
    auto content = std::make_shared<Content>();
    content->path = folder;
    const auto file = FileManager::read(content->path + "/Contents/Info.plist", largestInfo);
    const auto info = file ? PropertyList::parse(file->view()) : std::nullopt;
    if (!info || !info->isDictionary()) {
        return std::nullopt;
    }
    content->info = info->dictionary();
    return Bundle(std::move(content));
}

std::vector<Bundle> Bundle::loadedBundles() {
    std::vector<Bundle> result{library()};
    for (const std::string& folder : foldersOfSharedObjects()) {
        // "X.framework/libx.so", "X.framework/Contents/libx.so",
        // "X.app/Contents/Frameworks/libx.so"
        std::string candidate = folder;
        for (int level = 0; level < 3 && !candidate.empty(); ++level) {
            if (auto bundle = atPath(candidate)) {
                result.push_back(std::move(*bundle));
                break;
            }
            candidate = folderOf(candidate);
        }
    }
    return result;
}

const std::string& Bundle::path() const noexcept {
    return content_->path;
}

std::string_view Bundle::version() const noexcept {
    const std::string_view text = info()["CFBundleShortVersionString"].string();
    return text.empty() ? info()["CFBundleVersion"].string() : text;
}

const Dictionary& Bundle::info() const noexcept {
    return content_->info;
}

std::string Bundle::executableFolder() {
    return folderOf(ProcessInfo::executablePath());
}

}  // namespace velto
