#include <VeltoConnectFoundation/Platform/CopyFile.h>
#include <VeltoConnectFoundation/Platform/Export.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <Tests/Support/FileBlocks.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/SmallDisk.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <vector>

namespace {

using velto::CopyFileObserver;
using velto::Error;
using velto::FileManager;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::TemporaryDirectory;

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

/// What a copy must have in common with its source.
struct Traits {
    explicit Traits(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        mode = status.st_mode;
        size = status.st_size;
        modified = status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec;
        blocks = status.st_blocks;
        std::vector<char> value(65536);
        const ssize_t length = lgetxattr(path.c_str(), "user.note", value.data(), value.size());
        note.assign(value.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    mode_t mode = 0;
    off_t size = 0;
    std::int64_t modified = 0;
    blkcnt_t blocks = 0;
    std::string note;
};

struct SourceFile {
    std::string path;
    bool hasHoles = false;
};

void fillWith(std::string& bytes, std::mt19937_64& random) {
    for (std::size_t place = 0; place < bytes.size(); place += sizeof(std::uint64_t)) {
        const std::uint64_t word = random();
        std::memcpy(&bytes[place], &word, std::min(sizeof word, bytes.size() - place));
    }
}

/// A file of random kind; the ninth and the tenth have a gibibyte, nearly all of it holes.
SourceFile makeFile(const TemporaryDirectory& folder, std::mt19937_64& random, unsigned index) {
    static const char* const names[] = {"plain",    "with blank", "ünïcödé 電影",
                                        "-dash",    "quote'\"",   "line\nfeed",
                                        "\xff\xfe", "..dots",     "a&b<c>"};
    const auto pick = [&](std::uint64_t below) { return random() % below; };
    const bool isHuge = index == 8 || index == 9;
    std::string bytes(pick(2) == 0 ? pick(2) : pick(200'000), '\0');
    fillWith(bytes, random);
    SourceFile source{
        folder.write("source/" + std::to_string(index) + names[index % std::size(names)], bytes)};
    const int file = open(source.path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(file, 0);
    source.hasHoles = isHuge || index % 3 == 0;
    for (std::uint64_t holes = isHuge ? 4 : pick(4); holes != 0 && source.hasHoles; --holes) {
        // Data behind a hole, or a hole at the end.
        const off_t end =
            lseek(file, 0, SEEK_END) + static_cast<off_t>(pick((isHuge ? 200 : 3) * mebibyte));
        EXPECT_EQ(ftruncate(file, end), 0);
        if (pick(2) == 0) {
            EXPECT_EQ(pwrite(file, "x", 1, end), 1);
        }
    }
    if (isHuge) {
        EXPECT_EQ(ftruncate(file, 1024 * mebibyte), 0);
    }
    if (index % 60 == 7) {
        const std::string large(20 * mebibyte + pick(100), 'L');
        EXPECT_EQ(pwrite(file, large.data(), large.size(), 0), static_cast<ssize_t>(large.size()));
    }
    if (pick(2) == 0) {
        const std::string note(pick(2000), 'n');
        // Not every file system holds attributes; then neither file has one.
        fsetxattr(file, "user.note", note.data(), note.size(), 0);
    }
    const mode_t modes[] = {0644, 0600, 0755, 0440, 0400, 0666};
    EXPECT_EQ(fchmod(file, modes[pick(std::size(modes))]), 0);
    const timespec times[] = {
        {static_cast<time_t>(pick(2'000'000'000)), 1},
        {static_cast<time_t>(pick(2'000'000'000)), static_cast<long>(pick(1'000'000'000))}};
    EXPECT_EQ(futimens(file, times), 0);
    close(file);
    return source;
}

/// What the system answers in place of copying, reading and writing, where the test says so; 0 for
/// what it would have answered.
struct Faults {
    using Answer = int (*)(unsigned call, std::size_t& count);
    Answer copy = nullptr;
    Answer read = nullptr;
    Answer write = nullptr;
    Answer setAttribute = nullptr;
    Answer getAttribute = nullptr;
    unsigned calls[5] = {};
};

/// Set while nothing else runs.
Faults* faults = nullptr;

/// Whether there is a fault; `count` may have become less.
bool hasFault(Faults::Answer Faults::*which, unsigned index, std::size_t& count) {
    if (faults == nullptr || faults->*which == nullptr) {
        return false;
    }
    errno = (faults->*which)(++faults->calls[index], count);
    return errno != 0;
}

}  // namespace

// The program's own come before the C library's.

extern "C" {

VELTO_EXPORT ssize_t copy_file_range(int from,
                                     off64_t* fromOffset,
                                     int to,
                                     off64_t* toOffset,
                                     std::size_t count,
                                     unsigned flags) {
    return hasFault(&Faults::copy, 0, count)
               ? -1
               : syscall(SYS_copy_file_range, from, fromOffset, to, toOffset, count, flags);
}

VELTO_EXPORT ssize_t pread(int file, void* bytes, std::size_t count, off_t offset) {
    return hasFault(&Faults::read, 1, count) ? -1
                                             : syscall(SYS_pread64, file, bytes, count, offset);
}

VELTO_EXPORT ssize_t pwrite(int file, const void* bytes, std::size_t count, off_t offset) {
    return hasFault(&Faults::write, 2, count) ? -1
                                              : syscall(SYS_pwrite64, file, bytes, count, offset);
}

VELTO_EXPORT int fsetxattr(int file,
                           const char* name,
                           const void* value,
                           std::size_t count,
                           int flags) noexcept {
    return hasFault(&Faults::setAttribute, 3, count)
               ? -1
               : static_cast<int>(syscall(SYS_fsetxattr, file, name, value, count, flags));
}

VELTO_EXPORT ssize_t fgetxattr(int file,
                               const char* name,
                               void* value,
                               std::size_t count) noexcept {
    return hasFault(&Faults::getAttribute, 4, count)
               ? -1
               : syscall(SYS_fgetxattr, file, name, value, count);
}

}  // extern "C"

namespace {

/// Compares bytes with those of a file, of which it reads no hole.
class Comparison {
public:
    explicit Comparison(const std::string& path)
        : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~Comparison() { close(file_); }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    /// The next ones.
    void take(const std::uint8_t* bytes, std::size_t count) {
        block_.assign(std::max(block_.size(), count), 0);
        const auto at = static_cast<off_t>(taken_);
        const off_t data = lseek(file_, at, SEEK_DATA);
        taken_ += count;
        if (data >= 0 && data < static_cast<off_t>(taken_)) {
            isEqual_ =
                isEqual_ && pread(file_, block_.data(), count, at) == static_cast<ssize_t>(count);
        }
        isEqual_ = isEqual_ && std::memcmp(block_.data(), bytes, count) == 0;
    }
    bool isEqual() const { return isEqual_ && lseek(file_, 0, SEEK_END) == taken(); }

    /// Takes all that `other` has in its data, and passes its holes.
    void takeFile(const std::string& other) {
        const int file = open(other.c_str(), O_RDONLY | O_CLOEXEC);
        std::vector<std::uint8_t> bytes(mebibyte);
        for (off_t data; (data = lseek(file, taken(), SEEK_DATA)) >= 0;) {
            taken_ = static_cast<std::uint64_t>(data);
            const off_t end = lseek(file, data, SEEK_HOLE);
            const auto most = static_cast<std::size_t>(std::min<off_t>(end - data, mebibyte));
            const ssize_t count = pread(file, bytes.data(), most, data);
            ASSERT_GT(count, 0);
            take(bytes.data(), static_cast<std::size_t>(count));
        }
        taken_ = static_cast<std::uint64_t>(lseek(file, 0, SEEK_END));
        close(file);
    }

private:
    off_t taken() const { return static_cast<off_t>(taken_); }

    int file_;
    bool isEqual_ = true;
    std::uint64_t taken_ = 0;
    std::vector<std::uint8_t> block_;
};

bool haveSameBytes(const std::string& one, const std::string& other) {
    // What is data in neither of them is zero in both.
    Comparison first(one);
    first.takeFile(other);
    Comparison second(other);
    second.takeFile(one);
    return first.isEqual() && second.isEqual();
}

/// The copy has the same bytes, holes and attributes, and so has what the observer of bytes is
/// given. A clone shares its blocks and has no steps.
void expectCopy(const SourceFile& source, const std::string& copy, bool withBytes, bool isClone) {
    SCOPED_TRACE(source.path);
    std::uint64_t last = 0;
    Comparison seen(source.path);
    CopyFileObserver observer;
    observer.progress = [&](std::uint64_t copied) {
        EXPECT_GT(copied, last);
        // A hole is passed in one step; bytes are told of in blocks.
        EXPECT_TRUE(source.hasHoles || copied - last <= 9 * mebibyte);
        last = copied;
        return true;
    };
    if (withBytes) {
        observer.bytes = [&](const std::uint8_t* bytes, std::size_t number) {
            seen.take(bytes, number);
            return true;
        };
    }
    const Traits before(source.path);
    Error error;
    ASSERT_TRUE(velto::copyFile(source.path, copy, observer, &error)) << error.description();
    const Traits after(copy);
    EXPECT_EQ(after.mode, before.mode);
    EXPECT_EQ(after.modified, before.modified);
    EXPECT_EQ(after.note, before.note);
    // A hole may end within a block, never by more.
    EXPECT_LE(after.blocks, before.blocks + 64);
    EXPECT_EQ(last, isClone && !withBytes ? 0 : static_cast<std::uint64_t>(before.size));
    EXPECT_TRUE(haveSameBytes(copy, source.path));
    EXPECT_TRUE(!withBytes || seen.isEqual());
    EXPECT_TRUE(!isClone || velto::testing::shareBlocks(source.path, copy));
}

void copyFiles(unsigned count) {
    std::mt19937_64 random(velto::testing::randomSeed());
    const TemporaryDirectory folder;
    const bool isClone = velto::testing::clonesFiles(folder.path());
    ASSERT_TRUE(FileManager::createFolder(folder.at("copy")));
    for (unsigned index = 0; index < count; ++index) {
        const SourceFile source = makeFile(folder, random, index);
        const std::string copy =
            folder.at("copy/" + source.path.substr(source.path.rfind('/') + 1));
        expectCopy(source, copy, index % 2 == 0, isClone);
        ASSERT_TRUE(FileManager::remove(source.path) && FileManager::remove(copy));
    }
}

/// VELTO_TEST_COPIES asks for more of them, and for a gibibyte without a hole.
TEST(CopyFile, CopiesBytesHolesAndAttributes) {
    const char* const asked = std::getenv("VELTO_TEST_COPIES");
    copyFiles(asked != nullptr ? static_cast<unsigned>(std::strtoul(asked, nullptr, 10)) : 300);
    if (asked != nullptr) {
        std::mt19937_64 random(velto::testing::randomSeed());
        const TemporaryDirectory folder;
        const SourceFile source{folder.at("full")};
        std::ofstream file(source.path, std::ios::binary);
        std::string block(mebibyte, '\0');
        for (int index = 0; index < 1024; ++index) {
            fillWith(block, random);
            file << block;
        }
        ASSERT_TRUE(file.flush());
        const bool isClone = velto::testing::clonesFiles(folder.path());
        const auto begin = std::chrono::steady_clock::now();
        expectCopy(source, folder.at("copy"), false, isClone);
        expectCopy(source, folder.at("second"), true, isClone);
        std::cout << "twice a gibibyte copied and compared in "
                  << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count()
                  << " s\n";
    }
}

TEST(CopyFile, ClonesWhereTheFileSystemCan) {
    if (velto::testing::ranOnCloningDisk()) {
        return;
    }
    ASSERT_TRUE(velto::testing::clonesFiles(velto::testing::smallDisk()));
    copyFiles(60);
}

TEST(CopyFile, LeavesBehindWhatGivesRights) {
    const TemporaryDirectory folder;
    const std::string source = folder.write("source", "x");
    ASSERT_EQ(chmod(source.c_str(), 06755), 0);
    ASSERT_TRUE(velto::copyFile(source, folder.at("copy")));
    const auto attributes = FileManager::attributes(folder.at("copy"));
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->mode, 0755U);
}

TEST(CopyFile, CopiesALinkAsALink) {
    const TemporaryDirectory folder;
    const std::string source = folder.at("link");
    ASSERT_EQ(symlink("nowhere/at all", source.c_str()), 0);
    ASSERT_TRUE(velto::copyFile(source, folder.at("copy")));
    EXPECT_EQ(std::filesystem::read_symlink(folder.at("copy")), "nowhere/at all");
    Error error;
    CopyFileObserver observer;
    observer.bytes = [](const std::uint8_t*, std::size_t) { return true; };
    EXPECT_FALSE(velto::copyFile(source, folder.at("second"), observer, &error));
    EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ELOOP));
    EXPECT_FALSE(FileManager::linkAttributes(folder.at("second")));
}

TEST(CopyFile, ReadsWhatTheKernelMakesUp) {
    const TemporaryDirectory folder;
    ASSERT_TRUE(velto::copyFile("/proc/sys/kernel/ostype", folder.at("copy")));
    EXPECT_EQ(contentsOfFile(folder.at("copy")), "Linux\n");
}

/// Each says which path it is about, and leaves what was at the destination as it was.
TEST(CopyFile, SaysWhatIsInTheWay) {
    const TemporaryDirectory folder;
    const std::string file = folder.write("file", "source");
    const std::string there = folder.write("there", "old");
    const std::string pipe = folder.at("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(symlink("gone", folder.at("dangling").c_str()), 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    folder.at("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int local = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(local, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::string fresh = folder.at("fresh");
    const struct {
        const char* name;
        std::string source;
        std::string destination;
        int code;
        std::string about;
    } rows[] = {
        {"missing", folder.at("none"), fresh, ENOENT, folder.at("none")},
        {"a folder", folder.path(), fresh, EISDIR, folder.path()},
        {"a pipe", pipe, fresh, EINVAL, pipe},
        {"a device", "/dev/zero", fresh, EINVAL, "/dev/zero"},
        {"a socket", address.sun_path, fresh, EINVAL, address.sun_path},
        {"a file is there", file, there, EEXIST, there},
        {"a dangling link is there", file, folder.at("dangling"), EEXIST, "dangling"},
        {"a link over a file", folder.at("dangling"), there, EEXIST, there},
        {"onto itself", file, file, EEXIST, file},
        {"no folder", file, folder.at("none/fresh"), ENOENT, folder.at("none/fresh")},
        {"below a file", file, file + "/fresh", ENOTDIR, file + "/fresh"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Error error;
        EXPECT_FALSE(velto::copyFile(row.source, row.destination, {}, &error));
        EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, row.code));
        EXPECT_NE(error.localizedDescription().find(row.about), std::string::npos)
            << error.localizedDescription();
        EXPECT_FALSE(FileManager::exists(fresh));
    }
    close(local);
    EXPECT_EQ(contentsOfFile(there), "old");
    EXPECT_EQ(contentsOfFile(file), "source");
}

TEST(CopyFile, EndsWhereTheObserverStopsIt) {
    const TemporaryDirectory folder;
    const std::string source = folder.write("source", std::string(40 * mebibyte, 'x'));
    for (const bool byBytes : {false, true}) {
        SCOPED_TRACE(byBytes);
        if (!byBytes && velto::testing::clonesFiles(folder.path())) {
            continue;  // A clone has no steps.
        }
        const std::string copy = folder.at(byBytes ? "a" : "b");
        CopyFileObserver observer;
        unsigned calls = 0;
        if (byBytes) {
            observer.bytes = [&](const std::uint8_t*, std::size_t) { return ++calls < 3; };
        } else {
            observer.progress = [&](std::uint64_t) { return ++calls < 3; };
        }
        Error error;
        EXPECT_FALSE(velto::copyFile(source, copy, observer, &error));
        EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, ECANCELED));
        EXPECT_EQ(calls, 3U);
        const auto left = FileManager::attributes(copy);
        ASSERT_TRUE(left);
        EXPECT_TRUE(left->size < 40 * mebibyte || velto::testing::clonesFiles(folder.path()));
        EXPECT_EQ(left->mode, 0600U);
    }
}

TEST(CopyFile, NoticesThatTheSourceBecameShorter) {
    const TemporaryDirectory folder;
    for (const bool withBytes : {false, true}) {
        SCOPED_TRACE(withBytes);
        if (!withBytes && velto::testing::clonesFiles(folder.path())) {
            continue;  // It has what the source had at one moment.
        }
        const std::string source = folder.write("source", std::string(40 * mebibyte, 'x'));
        CopyFileObserver observer;
        const auto cut = [&] { return truncate(source.c_str(), 9 * mebibyte) == 0; };
        if (withBytes) {
            observer.bytes = [&](const std::uint8_t*, std::size_t) { return cut(); };
        } else {
            observer.progress = [&](std::uint64_t) { return cut(); };
        }
        Error error;
        EXPECT_FALSE(velto::copyFile(source, folder.at(withBytes ? "a" : "b"), observer, &error));
        EXPECT_THAT(error, IsError(velto::POSIXErrorDomain, EIO));
    }
}

/// Whatever way the system copies by, and wherever that ends: the same bytes, or an error about the
/// file that it was. Once as the kernel copies, once with an observer of bytes.
TEST(CopyFile, BearsWhatTheSystemAnswers) {
    const TemporaryDirectory folder;
    const bool isClone = velto::testing::clonesFiles(folder.path());
    std::string bytes(3 * mebibyte + 17, '\0');
    std::mt19937_64 random(velto::testing::randomSeed());
    fillWith(bytes, random);
    const SourceFile source{folder.write("source", bytes)};
    const bool hasNote = setxattr(source.path.c_str(), "user.note", "a note", 6, 0) == 0;
    const Faults::Answer refused = [](unsigned, std::size_t&) { return EXDEV; };
    const Faults::Answer brief = [](unsigned call, std::size_t& count) {
        count = std::min<std::size_t>(count, 100'000);
        return call % 3 == 0 ? EINTR : 0;
    };
    const Faults::Answer broken = [](unsigned call, std::size_t& count) {
        count = std::min<std::size_t>(count, 100'000);
        return call > 5 ? EIO : 0;
    };
    const Faults::Answer full = [](unsigned call, std::size_t&) { return call > 1 ? EDQUOT : 0; };
    const Faults::Answer brokenAtOnce = [](unsigned, std::size_t&) { return EIO; };
    const Faults::Answer fullAtOnce = [](unsigned, std::size_t&) { return EDQUOT; };
    const Faults::Answer grown = [](unsigned call, std::size_t&) { return call == 2 ? ERANGE : 0; };
    const Faults::Answer vanished = [](unsigned, std::size_t&) { return ENODATA; };
    const struct {
        const char* name;
        Faults faults;
        int code;
        bool isOfSource = false;
        bool keepsNote = true;
    } rows[] = {
        {"the kernel does not copy", {.copy = refused}, 0},
        {"the kernel copies little at once", {.copy = brief}, 0},
        {"the kernel stops halfway", {.copy = broken}, 0},
        {"it stops, and nothing can be read", {.copy = broken, .read = broken}, EIO, true},
        {"little is read and written", {.copy = refused, .read = brief, .write = brief}, 0},
        {"what was written is lost", {.copy = refused, .write = broken}, EIO},
        {"no more may be written", {.copy = refused, .write = full}, EDQUOT},
        {"no more may be copied", {.copy = fullAtOnce, .write = fullAtOnce}, EDQUOT},
        {"an attribute does not fit", {.setAttribute = fullAtOnce}, 0, false, false},
        {"an attribute is not written", {.setAttribute = brokenAtOnce}, hasNote ? EIO : 0},
        {"an attribute grows", {.getAttribute = grown}, 0},
        {"an attribute vanishes", {.getAttribute = vanished}, 0, false, false},
        {"an attribute cannot be read", {.getAttribute = fullAtOnce}, hasNote ? EDQUOT : 0, true},
    };
    for (const auto& row : rows) {
        for (const bool withBytes : {false, true}) {
            SCOPED_TRACE(row.name + std::string(withBytes ? ", with bytes" : ""));
            const bool isOfData = row.faults.copy != nullptr;
            if (isClone && isOfData) {
                continue;  // A clone copies nothing.
            }
            const std::string copy = folder.at("copy");
            CopyFileObserver observer;
            if (withBytes) {
                observer.bytes = [](const std::uint8_t*, std::size_t) { return true; };
            }
            Faults ours = row.faults;
            Error error;
            faults = &ours;
            const bool isCopied = velto::copyFile(source.path, copy, observer, &error);
            faults = nullptr;
            EXPECT_EQ(isCopied, row.code == 0) << error.description();
            EXPECT_EQ(error.code(), row.code);
            if (isCopied) {
                EXPECT_TRUE(haveSameBytes(copy, source.path));
                EXPECT_EQ(Traits(copy).note == Traits(source.path).note, row.keepsNote || !hasNote);
            } else {
                EXPECT_TRUE(
                    error.localizedDescription().starts_with(row.isOfSource ? source.path : copy))
                    << error.localizedDescription();
                EXPECT_EQ(FileManager::attributes(copy)->mode, 0600U);
            }
            ASSERT_TRUE(FileManager::remove(copy));
        }
    }
}

/// An observer's own exception leaves no thread behind that still uses the copy.
TEST(CopyFile, PassesAnObserversExceptionOn) {
    const TemporaryDirectory folder;
    const std::string source = folder.write("source", std::string(10 * mebibyte, 'x'));
    CopyFileObserver observer;
    observer.bytes = [](const std::uint8_t*, std::size_t) -> bool { throw 1; };
    EXPECT_THROW((void)velto::copyFile(source, folder.at("copy"), observer), int);
}

}  // namespace
