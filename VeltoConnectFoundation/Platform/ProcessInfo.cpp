#include <VeltoConnectFoundation/Platform/ProcessInfo.h>

#include <VeltoConnectFoundation/Platform/FileManager.h>

#include <sys/utsname.h>
#include <unistd.h>

namespace velto {

namespace {

std::string readLink(const char* path) {
    std::string target(4096, '\0');
    const ssize_t length = readlink(path, target.data(), target.size());
    target.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return target;
}

/// The text of `NAME=text` or `NAME="text"`, a line of the system's release file.
std::string releaseField(std::string_view file, std::string_view name) {
    while (!file.empty()) {
        const std::size_t end = file.find('\n');
        std::string_view line = file.substr(0, end);
        file.remove_prefix(end == std::string_view::npos ? file.size() : end + 1);
        if (!line.starts_with(name) || line.substr(name.size(), 1) != "=") {
            continue;
        }
        line.remove_prefix(name.size() + 1);
        if (line.size() >= 2 && (line.front() == '"' || line.front() == '\'') &&
            line.back() == line.front()) {
            line = line.substr(1, line.size() - 2);
        }
        return std::string(line);
    }
    return {};
}

std::string describeSystem() {
    std::string description;
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        if (const auto file = FileManager::read(path, std::size_t{1} << 16)) {
            description = releaseField(file->view(), "PRETTY_NAME");
            break;
        }
    }
    utsname system{};
    if (uname(&system) == 0) {
        description += description.empty() ? "" : ", ";
        description += std::string(system.sysname) + ' ' + system.release + ", " + system.machine;
    }
    return description;
}

}  // namespace

const std::string& ProcessInfo::executablePath() {
    static const auto* path = [] {
        auto* text = new std::string(readLink("/proc/self/exe"));
        // A program whose file was replaced while it runs is still the same program.
        constexpr std::string_view gone = " (deleted)";
        if (text->ends_with(gone) && !FileManager::exists(*text)) {
            text->resize(text->size() - gone.size());
        }
        return text;
    }();
    return *path;
}

const std::string& ProcessInfo::processName() {
    static const auto* name =
        new std::string(executablePath().substr(executablePath().rfind('/') + 1));
    return *name;
}

Dictionary ProcessInfo::environment() {
    Dictionary result;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos && equals != 0) {
            result.set(text.substr(0, equals), text.substr(equals + 1));
        }
    }
    return result;
}

const std::string& ProcessInfo::operatingSystemDescription() {
    static const auto* description = new std::string(describeSystem());
    return *description;
}

}  // namespace velto
