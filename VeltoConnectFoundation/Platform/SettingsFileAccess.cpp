#include <VeltoConnectFoundation/Platform/SettingsFilePrivate.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/LocalizedText.h>
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

/// The folder of what the path leads to, and of the path itself when it is a link.
std::vector<std::string> foldersOf(const std::string& path) {
    std::vector<std::string> folders{folderOf(path)};
    std::error_code problem;
    const std::filesystem::path real = std::filesystem::canonical(path, problem);
    if (!problem && FileManager::linkAttributes(path)->kind == FileAttributes::Kind::symbolicLink) {
        folders.push_back(folderOf(real));
    }
    return folders;
}

bool isOurs(const struct stat& status) {
    return status.st_uid == 0 || status.st_uid == geteuid();
}

bool othersMayWrite(const struct stat& status) {
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

bool failAsUnsafe(std::string_view path, std::string reason, Error* error) {
    return fail(error, Error::make(SettingsErrorDomain, SettingsErrorUnsafeFile,
                                   localizedFormat("The settings file “%@” is not used.", path),
                                   std::move(reason)));
}

bool isSafe(const std::string& path, const struct stat& file, Error* error) {
    if (!isOurs(file)) {
        return failAsUnsafe(path, localized("It belongs to another user."), error);
    }
    if (othersMayWrite(file)) {
        return failAsUnsafe(
            path, localized("Others may write it; chmod go-w takes that right away."), error);
    }
    for (const std::string& folder : foldersOf(path)) {
        struct stat status {};
        if (stat(folder.c_str(), &status) != 0) {
            return fail(error, Error::posix(errno, folder));
        }
        // In a sticky folder others may write, but not replace what is not theirs.
        if (!isOurs(status) || (othersMayWrite(status) && (status.st_mode & S_ISVTX) == 0)) {
            return failAsUnsafe(
                path,
                localizedFormat(
                    "Others may write its folder “%@”; chmod go-w takes that right away.", folder),
                error);
        }
    }
    return true;
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
        fail(error, Error::posix(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, path));
        return std::nullopt;
    }
    if (!isSafe(path, status, error)) {
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
