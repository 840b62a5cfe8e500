// Settings files of any bytes: read or refused as a whole, and a key that is written into one
// leaves the others as they were.

#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <Fuzzers/Support/Require.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

using velto::Setting;
using velto::SettingKind;
using velto::UserDefaults;
using velto::Value;

namespace {

const Setting list("FuzzList", SettingKind::array, {}, "A list.");
const Setting table("FuzzTable", SettingKind::dictionary, {}, "A table.");
const Setting text("FuzzText", SettingKind::string, {}, "A text.");
const Setting number("FuzzNumber", SettingKind::number, {}, "A number.");
const Setting remote("FuzzRemote",
                     SettingKind::dictionary,
                     {},
                     "A table.",
                     velto::SettingReach::remote);

/// A folder for the process's life.
struct Folder {
    std::string path = std::filesystem::temp_directory_path() / "velto-fuzz-XXXXXX";

    Folder() { require(mkdtemp(path.data()) != nullptr); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    const std::string path = folder.path + "/config.toml";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    UserDefaults& defaults = UserDefaults::shared();
    // What a server sends is read as the same notation.
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    defaults.setPriorityDefaults({{"FuzzRemote", "{" + std::string(bytes) + "}"}});
    require(remote.value().isNone() || remote.value().isDictionary());
    velto::Error error;
    const bool isRead = defaults.loadUserFile(path, &error);
    require(isRead != static_cast<bool>(error));
    require(isRead || list.value().isNone());
    const Value before[] = {list.value(), table.value(), text.value()};
    if (defaults.setValue("FuzzNumber", 7)) {
        require(isRead && defaults.loadUserFile(path));
        require(number.integerValue() == 7);
        require(number.layer() == velto::SettingLayer::user);
        // Text of a number that is none equals itself; such a number in a list does not.
        require(text.value() == before[2]);
        require(before[0] != before[0] || list.value() == before[0]);
        require(before[1] != before[1] || table.value() == before[1]);
    }
    return 0;
}
