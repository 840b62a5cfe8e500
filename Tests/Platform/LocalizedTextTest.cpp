#include <VeltoConnectFoundation/Platform/LocalizedText.h>

#include <VeltoConnectFoundation/Platform/Locale.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <libintl.h>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// Only in a child: a process speaks one language from its first text on.
void speakGerman(const std::map<std::string, std::string>& texts) {
    std::string folder = (fs::temp_directory_path() / "velto-texts-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    fs::create_directories(folder + "/de/LC_MESSAGES");
    std::ofstream source(folder + "/de.po");
    source << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n";
    for (const auto& [text, translation] : texts) {
        source << "msgid \"" << text << "\"\nmsgstr \"" << translation << "\"\n";
    }
    source.close();
    const std::string command = "msgfmt -o '" + folder +
                                "/de/LC_MESSAGES/VeltoConnectFoundation.mo' '" + folder + "/de.po'";
    // NOLINTNEXTLINE(cert-env33-c): the shell is the build's own way to run this tool
    ASSERT_EQ(std::system(command.c_str()), 0);

    setenv("LANGUAGE", "de", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    ASSERT_EQ(velto::localized("binds the library's own folder"), "binds the library's own folder");
    bindtextdomain("VeltoConnectFoundation", folder.c_str());
    ASSERT_NE(velto::localized("Hello"), "Hello");
    fs::remove_all(folder);
}

class LocalizedTextDeathTest : public ::testing::Test {
protected:
    // A fresh process, since LANGUAGE and the C locale belong to all threads.
    LocalizedTextDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LocalizedTextDeathTest, ATranslationIsUsedOnlyWhenItsPlaceholdersFit) {
    const auto report = [] {
        speakGerman({{"Hello", "Grüß Gott"},
                     {"%@ of %lu files", "%2$lu Dateien, davon %1$@"},
                     {"%@ failed", "%lu ist fehlgeschlagen"},
                     {"%ld items", "%d Teile"},
                     {"%@ is gone", "weg"},
                     {"%d%% done", "%d% fertig"},
                     {"KEY_OF_SIZE", "rund %1$0.1f %2$@"}});
        std::vector<std::string> lines;
        for (int round = 0; round < 2; ++round) {  // the second answers from what is remembered
            lines = {velto::localized("Hello"),
                     velto::localized("Unknown"),
                     velto::localized(""),
                     velto::localizedFormat("%@ of %lu files", "keine", 3U),
                     velto::localizedFormat("%@ failed", "It"),
                     velto::localizedFormat("%ld items", 5),
                     velto::localizedFormat("%@ is gone", "It"),
                     velto::localizedFormat("%d%% done", 5),
                     velto::localizedFormatInUserLocale("KEY_OF_SIZE", "%1$0.02f %2$@", 1.5, "kB"),
                     velto::localizedWithKey("KEY_OF_NOTHING", "nothing")};
        }
        for (const std::string& line : lines) {
            std::cerr << line << '\n';
        }
        std::exit(0);
    };
    EXPECT_EXIT(report(), ::testing::ExitedWithCode(0),
                "Grüß Gott\nUnknown\n\n3 Dateien, davon keine\nIt failed\n5 items\nIt is gone\n"
                "5% done\nrund 1.5 kB\nnothing\n");
}

TEST_F(LocalizedTextDeathTest, NumbersFollowTheUserLocaleOnlyWhereAskedFor) {
    const auto report = [] {
        setenv("LC_ALL", "de_DE.UTF-8@euro", 1);
        std::cerr << velto::userLocale() << ' '
                  << velto::localizedFormatInUserLocale("KEY", "%0.02f", 1234.5) << ' '
                  << velto::localizedFormat("%0.02f", 1234.5) << '\n';
        std::exit(0);
    };
    EXPECT_EXIT(report(), ::testing::ExitedWithCode(0), "de_DE 1234,50 1234.50\n");
}

TEST(Locale, WritesIntegersInTheDigitsOfTheLocale) {
    EXPECT_EQ(velto::integerTextForLocale(-1234567, "de_DE"), "-1234567");
    EXPECT_EQ(velto::integerTextForLocale(120, "fa_IR"), "۱۲۰");
}

}  // namespace
