#include <VeltoConnectFoundation/Platform/UserDefaults.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/SmallStack.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

namespace {

using velto::Array;
using velto::Dictionary;
using velto::Error;
using velto::Setting;
using velto::SettingKind;
using velto::SettingLayer;
using velto::SettingReach;
using velto::UserDefaults;
using velto::Value;
using velto::testing::contentsOfFile;
using velto::testing::IsError;
using velto::testing::ScopedUserDefaults;
using velto::testing::TemporaryDirectory;

const Setting boolean("TestBoolean", SettingKind::boolean, "NO", "A switch.");
const Setting integer("TestInteger", SettingKind::integer, "10", "A count.");
const Setting number("TestNumber", SettingKind::number, 0.5, "A number.");
const Setting string("TestString", SettingKind::string, "default", "A text.");
const Setting array("TestArray", SettingKind::array, {}, "A list.");
const Setting dictionary("TestDictionary", SettingKind::dictionary, {}, "A table.");
const Setting remoteTable("TestRemoteTable", SettingKind::dictionary, {}, "", SettingReach::remote);
const Setting remote("TestRemote", SettingKind::string, {}, "A text.", SettingReach::remote);

class UserDefaultsTest : public ::testing::Test {
protected:
    UserDefaults& defaults_ = UserDefaults::shared();
    ScopedUserDefaults scope_;
    TemporaryDirectory folder_;
};

TEST_F(UserDefaultsTest, ADeclaredKeyReadsAsItsKindFromEveryLayer) {
    const struct {
        const char* name;
        const Setting& setting;
        Value set;
        Value expected;
    } rows[] = {
        {"registered text as truth", boolean, {}, false},
        {"registered text as integer", integer, {}, 10},
        {"registered number", number, {}, 0.5},
        {"nothing registered", array, {}, {}},
        {"YES", boolean, "YES", true},
        {"1", boolean, 1, true},
        {"integer that begins a text", integer, "12 items", 12},
        {"number as text", string, 5, "5"},
        {"number from text", number, "2.25", 2.25},
        {"one text as a list", array, "-x", Array{"-x"}},
        {"empty text as a list", array, "", Array{}},
        {"inline list", array, R"(["-x", "a b"])", Array{"-x", "a b"}},
        {"text that only begins like a list", array, "[x", Array{"[x"}},
        {"inline table", dictionary, "{a = 1}", Dictionary{{"a", 1}}},
        {"list where a text is wanted", string, Array{"x"}, "default"},
        {"null where a number is wanted", integer, velto::Null{}, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        scope_.set(row.setting.key(), row.set);
        EXPECT_EQ(row.setting.value(), row.expected);
        EXPECT_EQ(defaults_.value(row.setting.key()), row.expected);
        EXPECT_EQ(row.setting.value().kind(), row.expected.kind());
        scope_.set(row.setting.key(), {});
    }
}

TEST_F(UserDefaultsTest, TheFirstLayerThatHoldsAKeyWins) {
    const std::string key = "TestRemote";
    const auto only = [&key](const Value& value) { return Dictionary{{key, value}}; };
    EXPECT_EQ(defaults_.layer(key), SettingLayer::none);
    const struct {
        SettingLayer layer;
        std::function<void(const Value&)> set;
    } rows[] = {
        {SettingLayer::registered, [&](const Value& v) { defaults_.registerDefaults(only(v)); }},
        {SettingLayer::priority, [&](const Value& v) { defaults_.setPriorityDefaults(only(v)); }},
        {SettingLayer::user,
         [&](const Value& v) {
             const auto file =
                 folder_.write("c.toml", key + " = '" + std::string(v.string()) + "'");
             EXPECT_TRUE(defaults_.loadUserFile(file));
         }},
        {SettingLayer::environment, [&](const Value& v) { defaults_.setEnvironment(only(v)); }},
        {SettingLayer::arguments, [&](const Value& v) { defaults_.setArguments(only(v)); }},
    };
    for (const auto& row : rows) {
        const std::string text = "value of layer " + std::to_string(static_cast<int>(row.layer));
        SCOPED_TRACE(text);
        const auto before = defaults_.generation();
        row.set(text);
        EXPECT_GT(defaults_.generation(), before);
        EXPECT_EQ(remote.stringValue(), text);
        EXPECT_EQ(remote.layer(), row.layer);
        EXPECT_EQ(defaults_.layer(key), row.layer);
    }
}

TEST_F(UserDefaultsTest, AServerSetsRemoteAndUndeclaredKeysOnly) {
    defaults_.setPriorityDefaults(
        {{"TestString", "evil"}, {"TestRemote", "server"}, {"ApplicationSettings.Free", "yes"}});
    EXPECT_EQ(string.stringValue(), "default");
    EXPECT_EQ(defaults_.stringValue("TestString"), "default");
    EXPECT_EQ(remote.stringValue(), "server");
    EXPECT_EQ(defaults_.stringValue("ApplicationSettings.Free"), "yes");

    // What came earlier stays, and what is registered later does not beat it.
    defaults_.setPriorityDefaults({{"Other", 1}});
    defaults_.registerDefaults({{"TestRemote", "registered"}});
    EXPECT_EQ(remote.stringValue(), "server");
}

TEST_F(UserDefaultsTest, LaterRegistrationsWinOverEarlierAndOverTheDeclaration) {
    defaults_.registerDefaults({{"TestString", "first"}, {"TestInteger", "x"}});
    defaults_.registerDefaults({{"TestString", "second"}});
    EXPECT_EQ(string.stringValue(), "second");
    EXPECT_EQ(string.layer(), SettingLayer::registered);
    EXPECT_EQ(integer.integerValue(), 0);
}

TEST_F(UserDefaultsTest, TheEnvironmentNamesDeclaredKeysInCapitals) {
    EXPECT_EQ(UserDefaults::valuesFromEnvironment({{"VELTO_TESTSTRING", "x"},
                                                   {"VELTO_TESTBOOLEAN", ""},
                                                   {"VELTO_UNKNOWN", "x"},
                                                   {"VELTO_TestArray", "x"},
                                                   {"TESTNUMBER", "1"}}),
              (Dictionary{{"TestBoolean", ""}, {"TestString", "x"}}));
}

TEST_F(UserDefaultsTest, WhatIsWrittenReadsBackAndTheRestOfTheFileStays) {
    const std::string before =
        "# mine\n"
        "TestString = \"\"\"\n"
        "two\n"
        "lines\"\"\"\n"
        "other = 1 # kept\n"
        "born = 1979-05-27T07:32:00Z\n";
    const std::string table = "\n[Section]\nTestInteger = 3 # no setting of ours\n";
    const struct {
        const char* name;
        std::string file;
        std::string key;
        Value value;
        std::string expected;
    } rows[] = {
        {"replaces all lines of a value", before, "TestString", "new",
         "# mine\nTestString = 'new'\nother = 1 # kept\nborn = 1979-05-27T07:32:00Z\n"},
        {"appends", before, "TestInteger", 7, before + "TestInteger = 7\n"},
        {"appends to a last line without its end", "a = 1", "b c", true, "a = 1\n'b c' = true\n"},
        {"stays out of a table", before + table, "TestInteger", 7,
         "TestInteger = 7\n" + before + table},
        {"removes",
         before,
         "other",
         {},
         "# mine\nTestString = \"\"\"\ntwo\nlines\"\"\"\nborn = 1979-05-27T07:32:00Z\n"},
        {"keeps what stands behind a value", before, "other", Array{"ü"},
         "# mine\nTestString = \"\"\"\ntwo\nlines\"\"\"\nother = [ 'ü' ] # kept\n"
         "born = 1979-05-27T07:32:00Z\n"},
        {"writes text for a switch as a switch", "", "TestBoolean", "YES", "TestBoolean = true\n"},
        {"removes the only one", "a = 1\n", "a", {}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = folder_.write("c.toml", row.file);
        ASSERT_TRUE(defaults_.loadUserFile(file));
        Error error;
        ASSERT_TRUE(defaults_.setValue(row.key, row.value, &error)) << error.description();
        EXPECT_EQ(contentsOfFile(file), row.expected);
        const Value held = defaults_.value(row.key);
        ASSERT_TRUE(defaults_.loadUserFile(file));
        EXPECT_EQ(defaults_.value(row.key), held);
    }
}

TEST_F(UserDefaultsTest, ANewFileIsPrivateAndItsFoldersAreMade) {
    const std::string file = folder_.at("a/b/config.toml");
    ASSERT_TRUE(defaults_.loadUserFile(file));
    const Value deep = Dictionary{{"list", Array{1, 2.5, "x", Array{}}}, {"table", Dictionary{}}};
    ASSERT_TRUE(defaults_.setValue("Deep", deep));
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_TRUE(defaults_.loadUserFile(file));
    EXPECT_EQ(defaults_.value("Deep"), deep);
}

TEST_F(UserDefaultsTest, WhatDoesNotFitIsRefusedAndChangesNothing) {
    const std::string file = folder_.write("c.toml", "TestInteger = 3\n");
    ASSERT_TRUE(defaults_.loadUserFile(file));
    const struct {
        const char* key;
        Value value;
    } rows[] = {
        {"TestInteger", "12x"},  {"TestBoolean", "maybe"},     {"TestString", Array{}},
        {"Free", velto::Null{}}, {"Free", Dictionary{{1, 2}}}, {"Free", "\xff"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key + std::string(" = ") + row.value.description());
        Error error;
        EXPECT_FALSE(defaults_.setValue(row.key, row.value, &error));
        EXPECT_THAT(error, IsError(velto::SettingsErrorDomain, 2));
    }
    EXPECT_EQ(contentsOfFile(file), "TestInteger = 3\n");
}

TEST_F(UserDefaultsTest, AMalformedFileIsAnErrorWithItsLineAndNoneOfItsText) {
    const std::string canary = "canary-5417";
    for (const std::string& text :
         {"a = 1\nVeltoPassword = t" + canary, "a = 1\nVeltoPassword = \"" + canary,
          "a = 1\nVeltoPassword = 1" + canary, "a = 1\n" + canary + " = 1\n" + canary + " = 2\n"}) {
        SCOPED_TRACE(text);
        const std::string file = folder_.write("c.toml", text);
        Error error;
        EXPECT_FALSE(defaults_.loadUserFile(file, &error));
        EXPECT_THAT(error, IsError(velto::SettingsErrorDomain, 1));
        EXPECT_EQ(defaults_.loadError(), error);
        EXPECT_EQ(error.description().find("canary"), std::string::npos) << error.description();
        EXPECT_NE(error.description().find("Line "), std::string::npos) << error.description();
        EXPECT_EQ(defaults_.value("a"), Value());
        // Writing would lose what is there.
        EXPECT_FALSE(defaults_.setValue("a", 2, &error));
        EXPECT_EQ(contentsOfFile(file), text);
    }
    EXPECT_TRUE(defaults_.loadUserFile(folder_.at("missing.toml")));
    EXPECT_FALSE(defaults_.loadError());
    EXPECT_FALSE(defaults_.loadUserFile(std::string(folder_.path())));
}

TEST_F(UserDefaultsTest, WhatIsNestedTooDeeplyIsRefusedBeforeItIsRead) {
    const auto times = [](std::string_view text, int count) {
        std::string result;
        while (count-- > 0) {
            result += text;
        }
        return result;
    };
    const std::string dots = times("a.", 35'000) + "a";
    const std::string fitting = "{" + times("a.", 60) + "a = '.....[[[[[#', b = 1.5}";
    velto::testing::onSmallStack([&] {
        for (const std::string& text :
             {dots + " = 1", "[" + dots + "]", "[[" + dots + "]]", "x = {" + dots + " = 1}",
              "x = " + times("{" + times("a.", 40) + "a = ", 20), "x = " + times("[", 30'000),
              R"(x = """"[\"""""")" + ("\n" + dots + " = 1"), "x = '''\n''''\n" + dots + " = 1"}) {
            SCOPED_TRACE(text.substr(0, 20));
            Error error;
            EXPECT_FALSE(defaults_.loadUserFile(folder_.write("c.toml", text), &error));
            EXPECT_THAT(error, IsError(velto::SettingsErrorDomain, 1));
            EXPECT_NE(error.description().find("too deeply"), std::string::npos);
        }
        // A server's text too.
        defaults_.setPriorityDefaults({{"TestRemoteTable", "{" + dots + " = 1}"}});
        EXPECT_TRUE(remoteTable.value().isNone());
        defaults_.setPriorityDefaults({{"TestRemoteTable", fitting}});
        EXPECT_TRUE(remoteTable.value().isDictionary());
        EXPECT_TRUE(defaults_.loadUserFile(
            folder_.write("c.toml", "x = [[1.5], [2.5]] # [.\ny = " + fitting + "\n")));
    });
}

TEST_F(UserDefaultsTest, AFileThatOthersMayWriteIsNotUsed) {
    const std::string folder = folder_.at("open");
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const std::string file = folder_.write("open/c.toml", "TestInteger = 3\n");
    const std::string link = folder_.at("link.toml");
    ASSERT_EQ(symlink("open/c.toml", link.c_str()), 0);
    const struct {
        mode_t folder, file;
        bool isUsed;
    } rows[] = {{0755, 0644, true}, {0755, 0646, false}, {0757, 0600, false}, {01777, 0600, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << std::oct << row.folder << ' ' << row.file);
        ASSERT_EQ(chmod(folder.c_str(), row.folder) + chmod(file.c_str(), row.file), 0);
        for (const std::string& path : {file, link}) {
            Error error;
            EXPECT_EQ(defaults_.loadUserFile(path, &error), row.isUsed);
            EXPECT_EQ(integer.integerValue(), row.isUsed ? 3 : 10);
            EXPECT_EQ(defaults_.setValue("TestInteger", 3, &error), row.isUsed);
            EXPECT_EQ(error.code(), row.isUsed ? 0 : velto::SettingsErrorUnsafeFile);
        }
    }
}

TEST_F(UserDefaultsTest, ALinkStaysOneAndOneThatLeadsNowhereIsNotReplaced) {
    const std::string link = folder_.at("link.toml");
    ASSERT_EQ(symlink("real.toml", link.c_str()), 0);
    ASSERT_TRUE(defaults_.loadUserFile(link));
    EXPECT_FALSE(defaults_.setValue("TestInteger", 3));
    const std::string file = folder_.write("real.toml", "");
    EXPECT_TRUE(defaults_.setValue("TestInteger", 3));
    EXPECT_EQ(contentsOfFile(file), "TestInteger = 3\n");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(UserDefaultsTest, ReadersSeeWholeChangesWhileOthersWrite) {
    defaults_.setArguments({{"TestString", "s"}});
    std::atomic<bool> done = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            std::int64_t last = 0;
            while (!done) {
                const std::int64_t now = integer.integerValue();
                EXPECT_GE(now, last);
                EXPECT_EQ(string.stringValue().substr(0, 1), "s");
                last = now;
            }
        });
    }
    for (int i = 11; i < 500; ++i) {
        defaults_.setArguments({{"TestInteger", i}, {"TestString", "s" + std::to_string(i)}});
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(integer.integerValue(), 499);
}

}  // namespace
