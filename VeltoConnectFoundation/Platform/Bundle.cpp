#include <VeltoConnectFoundation/Platform/Bundle.h>

#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <utility>

namespace velto {

struct Bundle::Content {
    std::string path;
    Dictionary info;
};

namespace {

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
        Content{libraryFolder(),
                {{"CFBundleIdentifier",
                  std::string(storeFamilyPrefix) + "VeltoConnectFoundation.invalid"},
                 {"CFBundleName", "VeltoConnectFoundation"},
                 {"CFBundleShortVersionString", libraryVersion()}}}));
    return Bundle(*content);
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
