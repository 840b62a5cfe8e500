#include <VeltoConnectFoundation/Platform/Bundle.h>
#include <VeltoConnectFoundation/Platform/ProcessInfo.h>
#include <VeltoConnectFoundation/Platform/Version.h>

#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdlib>
#include <filesystem>

namespace {

using velto::Bundle;
using velto::ProcessInfo;

std::string pathOfLoadedLibrary(const char* part) {
    std::pair<const char*, std::string> search{part, {}};
    dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* it) {
            auto& [wanted, found] = *static_cast<std::pair<const char*, std::string>*>(it);
            if (std::string_view(object->dlpi_name).find(wanted) != std::string_view::npos) {
                found = object->dlpi_name;
            }
            return 0;
        },
        &search);
    return search.second;
}

TEST(Bundle, TheApplicationIsItsProcessUntilTheHostSpeaks) {
    const auto before = Bundle::application();
    EXPECT_EQ(before.name(), "PlatformTests");
    EXPECT_EQ(before.identifier(), "");
    EXPECT_EQ(before.version(), "");

    Bundle::setApplication("org.host.invalid", "Host", "2.1", {{"MZClientName", "Client"}});
    const auto host = Bundle::application();
    EXPECT_EQ(host.identifier(), "org.host.invalid");
    EXPECT_EQ(host.name(), "Host");
    EXPECT_EQ(host.version(), "2.1");
    EXPECT_EQ(host.infoValue("MZClientName").string(), "Client");
    EXPECT_EQ(before.name(), "PlatformTests");
    Bundle::setApplication({}, {}, {});
    EXPECT_EQ(Bundle::application().name(), "PlatformTests");
}

TEST(Bundle, TheLibraryIsTheFolderOfItsSharedObject) {
    EXPECT_EQ(Bundle::library().path(), velto::testing::buildFolder() / "lib");
    EXPECT_EQ(Bundle::library().version(), velto::libraryVersion());
    EXPECT_TRUE(Bundle::library().identifier().starts_with(Bundle::storeFamilyPrefix));
    EXPECT_EQ(Bundle::executableFolder(), velto::testing::buildFolder() / "tests");
}

TEST(Bundle, TheLibrarysFolderIsFoundBeforeTheHostChangesItsOwn) {
    if (!velto::testing::isFreshProcess()) {
        // With a relative path to the library, as a search path's may be.
        const std::string script = "cd '" + velto::testing::buildFolder().string() +
                                   "' && LD_LIBRARY_PATH=lib exec \"$@\"";
        EXPECT_EQ(velto::testing::runTestAgain({"/bin/sh", "-c", script, "sh"},
                                               "VELTO_TEST_FRESH_PROCESS=1"),
                  0);
        return;
    }
    ASSERT_EQ(pathOfLoadedLibrary("libVelto"), "lib/libVeltoConnectFoundation.so.0");
    std::filesystem::current_path("/");
    EXPECT_EQ(Bundle::library().path(), velto::testing::buildFolder() / "lib");
}

TEST(Bundle, AFolderIsOneWhenItHoldsItsInfo) {
    const velto::testing::TemporaryDirectory folder;
    const auto info = [](std::string_view content) {
        return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + std::string(content) + "</plist>";
    };
    folder.write("A.framework/Contents/Info.plist",
                 info("<dict><key>CFBundleIdentifier</key><string>a.invalid</string>"
                      "<key>CFBundleVersion</key><string>12</string></dict>"));
    folder.write("B.framework/Contents/Info.plist", info("<array/>"));
    folder.write("C.framework/Contents/Info.plist", "rubbish");

    const auto bundle = Bundle::atPath(folder.at("A.framework/"));
    ASSERT_TRUE(bundle.has_value());
    EXPECT_EQ(bundle->path(), folder.at("A.framework"));
    EXPECT_EQ(bundle->identifier(), "a.invalid");
    EXPECT_EQ(bundle->version(), "12");
    EXPECT_EQ(bundle->name(), "");
    for (const char* name : {"B.framework", "C.framework", "D.framework", ""}) {
        EXPECT_FALSE(Bundle::atPath(folder.at(name)).has_value()) << name;
    }

    // The loader names what it loaded by its path.
    std::filesystem::create_directories(folder.at("A.framework/Contents/Libraries"));
    const std::string object = folder.at("A.framework/Contents/Libraries/libloaded.so");
    std::filesystem::copy_file(pathOfLoadedLibrary("/libexpat.so"), object);
    void* handle = dlopen(object.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    const auto loaded = Bundle::loadedBundles();
    dlclose(handle);
    ASSERT_EQ(loaded.size(), 2U);
    EXPECT_EQ(loaded[0].identifier(), Bundle::library().identifier());
    EXPECT_EQ(loaded[1].identifier(), "a.invalid");
}

TEST(ProcessInfo, TellsTheSystemInOneLineAndTheEnvironmentByName) {
    const std::string& system = ProcessInfo::operatingSystemDescription();
    EXPECT_NE(system.find("Linux"), std::string::npos);
    EXPECT_EQ(system.find('\n'), std::string::npos);
    ASSERT_EQ(setenv("VELTO_TEST_VARIABLE", "a=b", 1), 0);
    EXPECT_EQ(ProcessInfo::environment()["VELTO_TEST_VARIABLE"].string(), "a=b");
    unsetenv("VELTO_TEST_VARIABLE");
}

}  // namespace
