#include <VeltoConnectFoundation/Platform/SettingsFilePrivate.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/FileStatusPrivate.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Platform/PathTrust.h>
#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

namespace velto {

namespace {

constexpr std::chrono::seconds longestWait(5);
constexpr std::chrono::milliseconds betweenTries(10);

/// The folder that a path's last name stands in.
std::string folderOf(const std::filesystem::path& path) {
    const std::filesystem::path folder = path.parent_path();
    return folder.empty() ? "." : folder.string();
}

}  // namespace

std::optional<std::string> readSettingsFile(const std::string& path, Error* error) {
    // O_NONBLOCK: opening a pipe nobody writes to must not wait.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file && (errno == ENOENT || errno == ENOTDIR)) {
        return std::string();
    }
    if (!file || fstat(file.number(), &status) != 0) {
        fail(error, Error::posix(errno, path));
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        fail(error, S_ISDIR(status.st_mode) ? Error::posix(EISDIR, path) : noFileError(path));
        return std::nullopt;
    }
    std::error_code problem;
    const PathTrust trust = PathTrust::of(std::filesystem::absolute(path, problem).string());
    if (!trust) {
        const bool isWritable = trust.verdict() == PathTrust::Verdict::writable;
        fail(error, Error(SettingsErrorDomain, SettingsErrorUnsafeFile,
                          {{LocalizedDescriptionKey,
                            localizedFormat("The settings file “%@” is not used.", path)},
                           {LocalizedFailureReasonKey, trust.reason()},
                           {LocalizedRecoverySuggestionKey,
                            isWritable ? trust.remedy() : localized("Use a file of your own.")}}));
        return std::nullopt;
    }
    std::string text(largestSettingsFile + 1, '\0');
    std::size_t used = 0;
    for (ssize_t count = 1; count != 0 && used < text.size();) {
        count = ::read(file.number(), text.data() + used, text.size() - used);
        if (count < 0 && errno != EINTR) {
            fail(error, Error::posix(errno, path));
            return std::nullopt;
        }
        used += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    if (used > largestSettingsFile) {
        fail(error, Error::posix(EFBIG, path));
        return std::nullopt;
    }
    text.resize(used);
    return text;
}

bool SettingsFileLock::take(const std::string& path, Error* error) {
    std::error_code problem;
    std::string target = path;
    if (FileManager::linkAttributes(path)) {
        target = std::filesystem::canonical(path, problem).string();
        if (problem) {
            return fail(
                error, Error::make(SettingsErrorDomain, SettingsErrorUnsafeFile,
                                   localizedFormat("The settings file “%@” was not written.", path),
                                   localized("It is a link that leads nowhere.")));
        }
    }
    const std::string folder = folderOf(target);
    if (!FileManager::createFolder(folder, 0700, error)) {
        return false;
    }
    // The file itself is replaced, and a lock on it would go with the old one.
    folder_.reset(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) {
        return fail(error, Error::posix(errno, folder));
    }
    const auto limit = std::chrono::steady_clock::now() + longestWait;
    while (flock(folder_.number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= limit) {
            return fail(error, Error::posix(EWOULDBLOCK, path));
        }
        std::this_thread::sleep_for(betweenTries);
    }
    return true;
}

}  // namespace velto
