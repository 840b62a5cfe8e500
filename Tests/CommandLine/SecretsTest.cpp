#include <Tests/CommandLine/VeltoFixture.h>

#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <regex>

namespace cli_test {
namespace {

/// Whole runs, looked at from outside: what is written, and what the system shows of the processes.
class SecretsTest : public VeltoTest {
protected:
    struct Form {
        const char* name;
        Strings options;
        sandbox_test::Environment variables;
    };

    std::vector<Form> forms() {
        write(folder / "token.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
              "<key>rovquill</key><string>canary-token</string></dict></plist>");
        write(folder / "broken.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
              "<key>other</key><string>canary-other</string></dict></plist>");
        EXPECT_EQ(Child(velto::testing::sourceFolder() / "Sandbox/make-key",
                        {"OURKEY", "our-issuer", "DemoStudio", folder / "keys"}, {})
                      .finish()
                      .exitCode,
                  0);
        return {
            {"password", {}, {{"VELTO_PASSWORD", "canary-password"}}},
            {"session",
             {},
             {{"VELTO_SESSION_ID", "canary-session"}, {"VELTO_SHARED_SECRET", "canary-shared"}}},
            {"token", {"--token-file", folder / "token.plist"}, {}},
            {"broken token", {"--token-file", folder / "broken.plist"}, {}},
            {"API key",
             {"--api-key", "OURKEY", "--issuer", "our-issuer", "--key-folder", folder / "keys"},
             {}},
        };
    }

    void expectNoSecret(const std::string& text, const std::string& where) {
        SCOPED_TRACE(where);
        EXPECT_EQ(text.find("canary"), std::string::npos) << text;
        // What a signed bearer token begins with; the tool gets it encoded once more.
        EXPECT_EQ(text.find("eyJhbGci"), std::string::npos) << text;
    }
};

TEST_F(SecretsTest, NoOutputAndNoLogHoldsOne) {
    const std::string package = makePackage();
    environment["VELTO_PASSWORD"] = "";
    useScenario(
        "info=The tool repeats canary-password, canary-shared and canary-token\n"
        "error=The store repeats canary-password, canary-session and canary-token (-20101)\n");
    for (const Form& form : forms()) {
        SCOPED_TRACE(form.name);
        const auto before = environment;
        for (const auto& [name, value] : form.variables)
            environment[name] = value;
        for (const Strings& style : {Strings{}, Strings{"--verbose"}, Strings{"--json"},
                                     Strings{"--quiet", "--set", "LogDrovanOutput=YES"}}) {
            Strings words = job("verify", package, form.options);
            words.insert(words.end(), style.begin(), style.end());
            words.insert(words.end(), {"--log-file", folder / "log"});
            const Child child = finished(words);
            EXPECT_NE(child.exitCode, 0);
            Child command = velto([&] {
                Strings shown{"tool",  "command", "verify",
                              package, "--user",  "demo@sandbox.invalid"};
                shown.insert(shown.end(), form.options.begin(), form.options.end());
                shown.insert(shown.end(), style.begin(), style.end());
                return shown;
            }());
            command.finish();
            // Only what this form knows can be hidden; the scenario repeats the other forms' too.
            std::string all = child.output + child.errors + command.output + command.errors +
                              contentOf(folder / "log");
            for (const std::string_view other :
                 {"canary-password", "canary-session", "canary-shared", "canary-token"}) {
                bool isOwn = std::string_view(form.name) == "token" && other == "canary-token";
                for (const auto& [name, value] : form.variables)
                    isOwn = isOwn || value == other;
                for (std::size_t at = 0; !isOwn && (at = all.find(other)) != std::string::npos;)
                    all.replace(at, other.size(), "-");
            }
            expectNoSecret(all, "output and log");
            std::filesystem::remove(folder / "log");
        }
        environment = before;
    }
}

TEST_F(SecretsTest, EncodingsHideNone) {
    const std::string package = makePackage();
    environment["VELTO_PASSWORD"] = "c\u00E4nary & c'o";
    const std::string tool = toolThatPrints(
        "INFO-X: Yzpjw6RuYXJ5ICYgYydvIQ== C\u00C4NARY & C'O c%C3%A4nary%20%26%20c%27o "
        "c\\u00e4nary & c\\'o c&#228;nary &amp; c&apos;o 'c\u00E4nary & c'\\''o'\n"
        // Not UTF-8 as a whole, so that the library takes all of it for Latin-1.
        "ERROR: \xFF c\u00E4nary & c'o c\xE4nary & c'o (-20101)\n",
        1);
    for (const Strings& style :
         {Strings{"--verbose"}, Strings{"--json"}, Strings{"--log-file", folder / "log"}}) {
        Strings words = job("verify", package, {"--tool", tool});
        words.insert(words.end(), style.begin(), style.end());
        const Child child = finished(words);
        const std::string all = child.all() + contentOf(folder / "log");
        EXPECT_THAT(all, ::testing::HasSubstr("hidden value"));
        for (const char* part : {"nary", "NARY", "YzpjdzRu", "uYXJ5", "c'o", "apos"})
            EXPECT_THAT(all, ::testing::Not(::testing::HasSubstr(part))) << style.front();
    }
}

TEST_F(SecretsTest, NoProcessShowsOne) {
    const std::string package = makePackage();
    environment["VELTO_PASSWORD"] = "";
    useScenario("hang=yes@start\n");
    for (const Form& form : forms()) {
        if (std::string_view(form.name) == "broken token")
            continue;
        SCOPED_TRACE(form.name);
        const auto before = environment;
        for (const auto& [name, value] : form.variables)
            environment[name] = value;
        Child child = velto(job("verify", package, form.options));
        environment = before;
        ASSERT_TRUE(child.readUntil("Authenticating")) << child.all();
        std::vector<pid_t> tools;
        while (tools.empty() && kill(child.pid, 0) == 0)
            tools = toolsOf(child.pid);
        ASSERT_EQ(tools.size(), 1U);
        expectNoSecret(commandLineOf(child.pid), "velto's command line");
        expectNoSecret(contentOf("/proc/" + std::to_string(child.pid) + "/environ"),
                       "velto's environment");
        // The tool's protocol wants signed headers as an argument; they must be encoded.
        expectNoSecret(commandLineOf(tools.front()), "the tool's command line");
        kill(child.pid, SIGINT);
        child.finish();
    }
}

TEST_F(SecretsTest, TheToolSignsWithAKeyThatItFindsItself) {
    forms();
    const std::string package = makePackage();
    environment["VELTO_PASSWORD"] = "";
    environment["VELM_SANDBOX_ACCOUNTS"] = folder / "keys/accounts.json";
    useScenario("record=" + (folder / "record").string() + "\n");
    std::filesystem::create_directory(folder / "others");
    std::filesystem::copy(folder / "keys/OURKEY.p8", folder / "others");
    const struct {
        std::string folderOfTool;
        Strings options;
        const char* expected;
    } rows[] = {
        {folder / "keys", {}, "-apiKey"},
        {folder / "keys", {"--key-folder", folder / "keys"}, "-apiKey"},
        {folder / "keys", {"--key-folder", folder / "none"}, "-apiKey"},
        {folder / "keys", {"--key-folder", folder / "others"}, "-hsa2headers"},
        {folder / "none", {"--key-folder", folder / "keys"}, "-hsa2headers"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.folderOfTool + " " + (row.options.empty() ? "" : row.options.back()));
        environment["VELM_PRIVATE_KEYS"] = row.folderOfTool;
        Strings words{"verify", package, "--api-key", "OURKEY", "--issuer", "our-issuer"};
        words.insert(words.end(), row.options.begin(), row.options.end());
        const Child child = finished(words);
        EXPECT_EQ(child.exitCode, 0) << child.all();
        const Json record = Json::parse(contentOf(folder / "record"))["arguments"];
        const auto has = [&record](const char* option) {
            return std::ranges::find(record, option) != record.end();
        };
        EXPECT_TRUE(has(row.expected)) << record;
        EXPECT_NE(has("-apiKey"), has("-hsa2headers"));
        std::filesystem::remove(folder / "record");
    }
}

TEST_F(SecretsTest, NoCoreIsWritten) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_CORE, &before), 0);
    const rlimit most{before.rlim_max, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_CORE, &most), 0);
    useScenario("hang=yes@start\n");
    const Child front = velto(job("verify", makePackage()));
    const Child tool(velto::testing::sandboxFolder() / "velm/bin/VelmDrovan", {}, environment);
    setrlimit(RLIMIT_CORE, &before);
    for (const pid_t process : {front.pid, tool.pid}) {
        const auto limits = std::filesystem::path("/proc") / std::to_string(process) / "limits";
        EXPECT_TRUE(velto::testing::waitUntil([&] {
            return std::regex_search(contentOf(limits), std::regex("Max core file size +0 +0 "));
        })) << contentOf(limits);
    }
}

TEST_F(SecretsTest, TheToolGetsTheSecretOnlyInItsOwnVariable) {
    environment["VELTO_VELTOPASSWORD"] = "demo-password";
    useScenario("record=" + (folder / "record").string() + "\nrecord-values=yes\n");
    const Child child = finished(job("verify", makePackage()));
    ASSERT_EQ(child.exitCode, 0) << child.all();
    const Json variables = Json::parse(contentOf(folder / "record"))["environment"];
    int holders = 0;
    for (const auto& [name, value] : variables.items())
        holders += value == "demo-password" ? 1 : 0;
    EXPECT_EQ(holders, 1);
}

}  // namespace
}  // namespace cli_test
