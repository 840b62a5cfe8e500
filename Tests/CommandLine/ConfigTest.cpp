#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class ConfigTest : public VeltoTest {
protected:
    /// What a command prints, without the line feed.
    std::string answer(const Strings& arguments) const {
        const Child child = finished(arguments);
        EXPECT_EQ(child.exitCode, 0) << child.all();
        EXPECT_EQ(child.errors, "");
        return child.output.substr(0, child.output.find_last_not_of('\n') + 1);
    }
    std::string layerOf(const std::string& key, const Strings& options = {}) const {
        Strings words{"config", "get", key, "--json"};
        words.insert(words.end(), options.begin(), options.end());
        const Json object = Json::parse(answer(words));
        return object["layer"].get<std::string>() + ": " + object["value"].dump();
    }
};

TEST_F(ConfigTest, TheFirstLayerThatHoldsAKeyWins) {
    const std::string key = "MZWorkSeriesManagerMaxCompletedWork";
    EXPECT_EQ(layerOf(key), "default: 10");
    answer({"config", "set", key, "20"});
    EXPECT_EQ(layerOf(key), "user: 20");
    environment["VELTO_MZWORKSERIESMANAGERMAXCOMPLETEDWORK"] = "30";
    EXPECT_EQ(layerOf(key), "environment: 30");
    EXPECT_EQ(layerOf(key, {"--set", key + "=40"}), "arguments: 40");
    environment.erase("VELTO_MZWORKSERIESMANAGERMAXCOMPLETEDWORK");
    answer({"config", "unset", key});
    EXPECT_EQ(layerOf(key), "default: 10");

    write(folder / "other.toml", key + " = 50\n");
    EXPECT_EQ(layerOf(key, {"--config", folder / "other.toml"}), "user: 50");
    EXPECT_EQ(answer({"config", "path", "--config", folder / "other.toml"}), folder / "other.toml");
}

TEST_F(ConfigTest, OptionsAreTheArgumentsLayer) {
    EXPECT_EQ(layerOf("VeltoProcessTerminationGrace"), "default: 1");
    environment["VELTO_VELTOPROCESSTERMINATIONGRACE"] = "3";
    EXPECT_EQ(layerOf("VeltoProcessTerminationGrace"), "environment: 3");
    EXPECT_EQ(layerOf("VeltoConnectDebugLoggingEnabled", {"--log-file", folder / "log"}),
              "arguments: true");
}

TEST_F(ConfigTest, TheUsersFileIsPrivate) {
    answer({"config", "set", "VeltoDrovanProxyHost", "proxy.invalid"});
    const std::filesystem::path path = answer({"config", "path"});
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    EXPECT_THAT(contentOf(path), HasSubstr("proxy.invalid"));
}

TEST_F(ConfigTest, SecretsAreHidden) {
    write(folder / "home/.config/velto/config.toml",
          "VeltoPasswords = [\"canary-1\"]\nVeltoDrovanExtraArgs = [\"-p\", \"canary-2\", \"-v\", "
          "\"off\"]\n");
    for (const Strings& words : {Strings{"config"}, Strings{"config", "list", "--json"},
                                 Strings{"config", "get", "VeltoPasswords"},
                                 Strings{"config", "get", "VeltoDrovanExtraArgs"}})
        EXPECT_THAT(answer(words), Not(HasSubstr("canary"))) << ::testing::PrintToString(words);
    EXPECT_THAT(answer({"config", "get", "VeltoDrovanExtraArgs"}), HasSubstr("-v, off"));
    EXPECT_THAT(answer({"config", "get", "VeltoPasswords"}), HasSubstr("hidden"));
}

TEST_F(ConfigTest, ASettingsFileIsCheckedWhereItIsWrong) {
    const std::filesystem::path path = folder / "home/.config/velto/config.toml";
    const struct {
        const char* text;
        int verifies, lists;  ///< Exit codes.
        const char* said;
    } rows[] = {
        {"# ok\n\nVeltoDrovanProxyPort = 70000\n", 2, 0,
         "config.toml, line 3: VeltoDrovanProxyPort"},
        {"SendDAVTransport = 'perhaps'\n", 2, 0, "line 1: SendDAVTransport"},
        {"VeltoTransport = 'dav'\n", 2, 0, "DAV, Signiant or Aspera"},
        {"VeltoProcessTerminationGrace = nan\n", 2, 0, "from 0 to 3600"},
        {"MZInflatedSizeLimit = [1]\n", 2, 0, "a whole number"},
        {"VeltoUsrname = 'me'\n", 1, 0,
         "line 1: There is no setting ‘VeltoUsrname’. Did you mean VeltoUsername"},
        {"VeltoPassword = 'canary'\n", 1, 0, "line 1: velto takes no password from a file"},
        {"a = [\n", 2, 2, "Line 1, column"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        write(path, row.text);
        const Child verify = finished(job("verify", folder / "none.velmp"));
        const Child list = finished({"config"});
        EXPECT_EQ(verify.exitCode, row.verifies) << verify.all();
        EXPECT_EQ(list.exitCode, row.lists) << list.all();
        EXPECT_THAT(verify.errors, HasSubstr(row.said));
        EXPECT_THAT(list.errors, HasSubstr(row.said));
        EXPECT_THAT(list.all(), Not(HasSubstr("canary")));
        EXPECT_EQ(answer({"config", "path"}), path);
    }
    write(path, "VeltoUsrname = 'me'\nVeltoDrovanProxyPort = 0\n# kept\n");
    EXPECT_EQ(finished({"config", "unset", "VeltoUsrname"}).exitCode, 0);
    EXPECT_EQ(finished({"config", "set", "VeltoDrovanProxyPort", "1"}).exitCode, 0);
    EXPECT_EQ(contentOf(path), "VeltoDrovanProxyPort = '1'\n# kept\n");
    std::string odd;
    for (int number = 0; number < 1000; ++number) {
        odd += "Odd" + std::to_string(number) + " = 1\n";
    }
    write(path, odd);
    const Child many = finished({"config"});
    EXPECT_THAT(linesOf(many.errors), ::testing::SizeIs(21));
    EXPECT_THAT(many.errors, HasSubstr("there are 980 more keys"));
    std::filesystem::permissions(path, std::filesystem::perms(0666));
    const Child child = finished({"config"});
    EXPECT_EQ(child.exitCode, 2);
    EXPECT_THAT(child.errors, HasSubstr("chmod go-w"));
}

TEST_F(ConfigTest, WritersAtTheSameTimeLoseNothing) {
    const std::vector<std::string> keys{"VeltoUsername",
                                        "VeltoProviderShortname",
                                        "VeltoDrovanProxyHost",
                                        "VeltoPackagePath",
                                        "VeltoPrivateKeysPath",
                                        "velmDrovanServiceAddress",
                                        "VeltoVTCProviderShortname"};
    std::vector<std::unique_ptr<Child>> children;
    for (const std::string& key : keys)
        children.push_back(std::make_unique<Child>(
            velto::testing::veltoProgram(), Strings{"config", "set", key, "x"}, environment));
    for (const auto& child : children)
        EXPECT_EQ(child->finish().exitCode, 0) << child->all();
    const std::string text = contentOf(folder / "home/.config/velto/config.toml");
    for (const std::string& key : keys)
        EXPECT_THAT(text, HasSubstr(key + " = 'x'\n"));
}

TEST_F(ConfigTest, WhatCannotBeSetIsRefused) {
    const struct {
        Strings words;
        const char* said;
    } rows[] = {
        {{"MZWorkSeriesManagerMaxCompletedWork", "many"}, "whole number"},
        {{"VeltoProcessTerminationGrace", "1s"}, "a number"},
        {{"SendDAVTransport", "perhaps"}, "yes or no"},
        {{"VeltoDrovanProxyHost", "a", "b"}, "one text"},
        {{"VeltoDrovanProxyHots", "a"}, "VeltoDrovanProxyHost"},
        {{"VeltoDrovanProxyPort", "70000"}, "from 1 to 65535"},
        {{"VeltoTransport", "dav"}, "DAV, Signiant or Aspera"},
        {{"VeltoPassword", "canary"}, "VELTO_PASSWORD"},
        {{"VeltoPasswords", "canary"}, "editor"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.said);
        Strings words{"config", "set"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const Child child = finished(words);
        EXPECT_EQ(child.exitCode, 2) << child.all();
        EXPECT_THAT(child.errors, HasSubstr(row.said));
        EXPECT_THAT(child.errors, Not(HasSubstr("canary")));
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "home/.config/velto/config.toml"));
}

}  // namespace
}  // namespace cli_test
