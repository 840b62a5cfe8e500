#include <VeltoConnectFoundation/Platform/LocalizedText.h>
#include <VeltoConnectFoundation/Utilities/MZHumanReadableBytes.h>
#include <VeltoConnectFoundation/WebService/MZServerErrorLocalizer.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <Tests/Support/Paths.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

TEST(TranslationDeathTest, TheLibrarySpeaksGermanToAGermanUser) {
    // A fresh process: language and locale belong to all threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto report = [] {
        setenv("LANGUAGE", "de", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        std::setlocale(LC_ALL, "");
        std::cerr << MZHumanReadableStringFromBytes(2) << '\n'
                  << MZStoreMessages::authenticatingWithStoreMessage(MZStoreTypeOvalis) << '\n'
                  << MZStoreMessages::localizedNameForStoreType(MZStoreTypeVeltoStore)
                  << '\n'
                  // Texts for unknown types are not translated.
                  << MZStoreMessages::waitingForResponseMessage(5) << '\n'
                  << MZServerErrorLocalizer::localizedMessageForCode(
                         1190,
                         "No suitable application records were found. Verify your bundle "
                         "identifier 'a.b' is correct.")
                         .value()
                  << '\n';
        std::exit(0);
    };
    EXPECT_EXIT(report(), ::testing::ExitedWithCode(0),
                "^2 Byte\nAnmeldung beim Ovalis läuft …\nVelto Store\nCompleting upload…\n"
                "Es wurden keine passenden Anwendungseinträge gefunden\\. Prüfen Sie, ob Ihre "
                "Bundle-ID ‚a\\.b‘ stimmt\\.\n$");
}

TEST(Translation, TheBuildRefusesOneWhosePlaceholdersDoNotFit) {
    const std::string header =
        "msgid \"\"\nmsgstr \"\"\n\"Project-Id-Version: x\\n\"\n\"PO-Revision-Date: 2026-01-01 "
        "00:00+0000\\n\"\n\"Last-Translator: x\\n\"\n\"Language-Team: x\\n\"\n\"Language: "
        "de\\n\"\n\"MIME-Version: 1.0\\n\"\n\"Content-Type: text/plain; "
        "charset=UTF-8\\n\"\n\"Content-Transfer-Encoding: 8bit\\n\"\n\n";
    struct Row {
        const char* name;
        const char* entry;  ///< Of the template, up to the translation.
        const char* translation;
        bool isAccepted;
    };
    const char* const files = "#, objc-format\nmsgid \"%@ of %lu files\"\n";
    const char* const key = "#. English: \"%1$0.02f %2$@\"\nmsgid \"SIZE\"\n";
    const std::vector<Row> rows{
        {"fits", files, "%@ von %lu Dateien", true},
        {"reordered", files, "%2$lu Dateien, davon %1$@", true},
        {"one missing", files, "%@ von allen Dateien", false},
        {"another kind", files, "%@ von %@ Dateien", false},
        {"key fits", key, "%1$0.01f %2$@", true},
        {"key lacks one", key, "%1$0.02f", false},
    };
    const std::string tool = velto::testing::sourceFolder() / "tools/compile-texts";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const velto::testing::TemporaryDirectory folder;
        const std::string command =
            "'" + tool + "' '" + folder.write("all.pot", header + row.entry + "msgstr \"\"\n") +
            "' '" +
            folder.write("de.po", header + row.entry + "msgstr \"" + row.translation + "\"\n") +
            "' '" + folder.at("de.mo") + "' >/dev/null 2>&1";
        // NOLINTNEXTLINE(cert-env33-c): the shell is the build's own way to run this tool
        EXPECT_EQ(std::system(command.c_str()) == 0, row.isAccepted);
        EXPECT_EQ(std::filesystem::exists(folder.at("de.mo")), row.isAccepted);
    }
}

}  // namespace
