#include <VelmDrovan/Store.h>

#include <VelmDrovan/Console.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace sandbox {
namespace {

[[noreturn]] void unwritable(const std::string& path) {
    throw Failure(StoreUnwritable, "The store cannot be written", path + ": " + systemReason());
}

std::string storeFolder() {
    const char* set = std::getenv("VELM_SANDBOX_STORE");
    return set && *set ? set : homeFolder("XDG_DATA_HOME", ".local/share") + "/velto-sandbox/store";
}

/// Takes an unfinished file away when the run is told to end; empty when there is none.
char unfinishedPath[PATH_MAX];

extern "C" void removeUnfinished(int signal) {
    if (unfinishedPath[0])
        unlink(unfinishedPath);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Names the unfinished file for as long as it is one.
class Unfinished {
public:
    explicit Unfinished(const std::string& path) : path_(path) {
        // The first byte last: the handler sees no path or all of it.
        if (path.size() < sizeof unfinishedPath) {
            std::copy_n(path.c_str() + 1, path.size(), unfinishedPath + 1);
            std::atomic_signal_fence(std::memory_order_seq_cst);
            unfinishedPath[0] = path[0];
        }
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            if (const auto before = std::signal(signal, removeUnfinished); before == SIG_IGN)
                std::signal(signal, SIG_IGN);
    }
    ~Unfinished() {
        if (!finished_)
            unlink(path_.c_str());
        unfinishedPath[0] = 0;
    }
    void finish() { finished_ = true; }

private:
    std::string path_;
    bool finished_ = false;
};

}  // namespace

StoreFolder::StoreFolder(const Package& package)
    : path_(storeFolder() + "/" + package.provider + "/" + package.vendorID + ".velmp"),
      name_(package.vendorID + ".velmp"),
      lock_(-1) {
    std::error_code error;
    std::filesystem::create_directories(path_, error);
    if (error) {
        errno = error.value();
        unwritable(path_);
    }
    lock_ = Descriptor(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!lock_)
        unwritable(path_);
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0)
        throw Failure(StoreBusy, "The package is being delivered by another process", name_);
}

std::uint64_t StoreFolder::freeBytes() const {
    struct statvfs status;
    if (fstatvfs(lock_.get(), &status) != 0)
        return 0;
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

bool StoreFolder::holds(const DataFile& file) const {
    const std::string path = path_ + "/" + file.name;
    FileStamp stamp;
    return openRegular(path, stamp) && stamp.size == file.size && md5OfFile(path) == file.md5;
}

bool StoreFolder::receive(const std::string& source,
                          const DataFile& file,
                          std::size_t blockSize,
                          const std::function<bool(std::uint64_t)>& advanced) const {
    FileStamp stamp;
    const Descriptor input = openRegular(source, stamp);
    const auto requireUnchanged = [&] {
        if (!input || stamp != file.stamp)
            throw Failure(FileUnreadable, "A file changed while the package was delivered",
                          file.name);
    };
    requireUnchanged();
    // Beside the folder, where no delivered file can have the name. One delivery at a time: it
    // needs no number, and what a killed run left is replaced.
    const std::string temporary = path_ + ".incoming";
    Unfinished unfinished(temporary);
    {
        const Descriptor output(
            open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!output)
            unwritable(temporary);
        bool goOn = true;
        const bool read = readBlocks(input.get(), blockSize, [&](std::string_view block) {
            const std::size_t size = block.size();
            while (!block.empty()) {
                const ssize_t written = write(output.get(), block.data(), block.size());
                if (written < 0 && errno != EINTR)
                    unwritable(temporary);
                block.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
            }
            return goOn = advanced(size);
        });
        if (!goOn)
            return false;
        if (!read)
            throw Failure(FileUnreadable, "A file of the package cannot be read",
                          file.name + ": " + systemReason());
    }
    openRegular(source, stamp);
    requireUnchanged();
    if (rename(temporary.c_str(), (path_ + "/" + file.name).c_str()) != 0)
        unwritable(path_ + "/" + file.name);
    unfinished.finish();
    return true;
}

void StoreFolder::keepOnly(const std::set<std::string>& names) const {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path_.c_str()), closedir);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr)
        if (!names.contains(entry->d_name))
            unlinkat(dirfd(folder.get()), entry->d_name, 0);  // Folders stay: none are made here.
}

}  // namespace sandbox
