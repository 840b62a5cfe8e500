#include <VeltoConnectFoundation/Platform/PathTrust.h>

#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <endian.h>
#include <grp.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <system_error>
#include <vector>

namespace velto {

namespace {

constexpr int mostLinks = 40;  // As many as the system follows.
constexpr std::size_t largestRecord = std::size_t{1} << 20;

/// Calls one of the system's look-ups by number, which want room for what they find.
template <class Record, class LookUp>
bool lookedUp(const LookUp& lookUp, Record& record, std::vector<char>& room) {
    for (room.resize(4096); room.size() <= largestRecord; room.resize(room.size() * 2)) {
        Record* found = nullptr;
        const int error = lookUp(&record, room.data(), room.size(), &found);
        if (error != ERANGE) {
            return error == 0 && found != nullptr;
        }
    }
    return false;
}

std::string userName(uid_t user) {
    passwd record{};
    std::vector<char> room;
    const auto lookUp = [user](auto... rest) { return ::getpwuid_r(user, rest...); };
    return lookedUp(lookUp, record, room) ? record.pw_name : std::to_string(user);
}

std::string groupName(gid_t number) {
    group record{};
    std::vector<char> room;
    const auto lookUp = [number](auto... rest) { return ::getgrgid_r(number, rest...); };
    return lookedUp(lookUp, record, room) ? record.gr_name : std::to_string(number);
}

/// Whom the group's bits let write, in a sentence; empty for nobody but root and us. Any group
/// counts: who else is in one cannot be told, for directories of users may not list them.
std::string groupSentence(const std::string& path, const struct stat& status) {
    const auto ofGroup = [&path](gid_t number) {
        return localizedFormat("The group %@ may write to “%@”.", groupName(number), path);
    };
    // With an access list the bits are the most that any of its entries grants.
    std::array<char, std::size_t{64} * 1024> list;  // As long as the system lets one be.
    const ssize_t length =
        ::lgetxattr(path.c_str(), "system.posix_acl_access", list.data(), list.size());
    if (length < static_cast<ssize_t>(sizeof(posix_acl_xattr_header))) {
        return ofGroup(status.st_gid);
    }
    std::string_view rest(list.data(), static_cast<std::size_t>(length));
    rest.remove_prefix(sizeof(posix_acl_xattr_header));
    for (posix_acl_xattr_entry entry{}; rest.size() >= sizeof(entry);
         rest.remove_prefix(sizeof(entry))) {
        std::memcpy(&entry, rest.data(), sizeof(entry));
        const std::uint32_t number = le32toh(entry.e_id);
        const unsigned tag = le16toh(entry.e_tag);
        if ((le16toh(entry.e_perm) & ACL_WRITE) == 0) {
            continue;
        }
        if (tag == ACL_GROUP_OBJ || tag == ACL_GROUP) {
            return ofGroup(tag == ACL_GROUP ? number : status.st_gid);
        }
        if (tag == ACL_USER && number != 0 && number != ::geteuid()) {
            return localizedFormat("The user %@ may write to “%@”.", userName(number), path);
        }
    }
    return {};
}

std::string systemReason(int error) {
    return std::generic_category().message(error);
}

}  // namespace

PathTrust PathTrust::of(std::string_view path) {
    PathTrust trust;
    const auto against = [&trust](Verdict verdict, std::string place) -> PathTrust& {
        trust.verdict_ = verdict;
        trust.place_ = std::move(place);
        return trust;
    };
    if (!path.starts_with('/')) {
        return against(Verdict::relative, std::string(path));
    }
    std::deque<std::string> names;  // Yet to be gone through, the next one first.
    const auto enqueue = [&names](const std::filesystem::path& added) {
        std::vector<std::string> parts;
        for (const auto& part : added.relative_path()) {
            if (!part.empty() && part != ".") {
                parts.push_back(part.string());
            }
        }
        names.insert(names.begin(), parts.begin(), parts.end());
    };
    enqueue(path);
    int links = 0;
    // Each place is real: the links on the way to it have been followed.
    for (std::filesystem::path place = "/";;) {
        struct stat status {};
        if (::lstat(place.c_str(), &status) != 0) {
            trust.error_ = errno;
            return against(Verdict::missing, place.string());
        }
        if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
            trust.others_ = userName(status.st_uid);
            return against(Verdict::foreign, place.string());
        }
        if (S_ISLNK(status.st_mode)) {
            std::error_code failure;
            const std::filesystem::path target = std::filesystem::read_symlink(place, failure);
            if (failure || ++links > mostLinks) {
                trust.error_ = failure ? failure.value() : ELOOP;
                return against(Verdict::missing, place.string());
            }
            enqueue(target);
            place = target.is_absolute() ? std::filesystem::path("/") : place.parent_path();
        } else {
            const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
            if ((status.st_mode & S_IWOTH) != 0 && !isSticky) {
                return against(Verdict::writable, place.string());
            }
            if ((status.st_mode & S_IWGRP) != 0 && !isSticky) {
                trust.others_ = groupSentence(place.string(), status);
                if (!trust.others_.empty()) {
                    return against(Verdict::writable, place.string());
                }
            }
        }
        if (names.empty()) {
            return trust;
        }
        const std::string name = std::move(names.front());
        names.pop_front();
        place = name == ".." ? place.parent_path() : place / name;
    }
}

std::string PathTrust::reason() const {
    switch (verdict_) {
        case Verdict::trusted:
            return {};
        case Verdict::relative:
            return localizedFormat(
                "“%@” is a relative path: what it leads to depends on the working folder.", place_);
        case Verdict::foreign:
            return localizedFormat("“%@” belongs to the user %@.", place_, others_);
        case Verdict::writable:
            return others_.empty() ? localizedFormat("Everybody may write to “%@”.", place_)
                                   : others_;
        case Verdict::missing:
            return localizedFormat("“%@” cannot be reached: %@", place_, systemReason(error_));
    }
    return {};
}

std::string PathTrust::remedy() const {
    switch (verdict_) {
        case Verdict::trusted:
        case Verdict::missing:
            return {};
        case Verdict::relative:
            return localized("Give the whole path, from the root or from ~.");
        case Verdict::foreign:
            return localizedFormat(
                "Put the program where all folders are yours or root's, or let root do “chown root "
                "%@”.",
                place_);
        case Verdict::writable:
            return localizedFormat("Take the others' right away: “chmod go-w %@”.", place_);
    }
    return {};
}

}  // namespace velto
