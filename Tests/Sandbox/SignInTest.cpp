#include <Tests/Sandbox/SandboxFixture.h>

using namespace sandbox_test;

namespace {

/// Plain base64, also the form in lines of 64 with CR LF between them.
std::string base64(std::string_view bytes, bool lines = false) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    std::size_t column = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        if (lines && column == 64) {
            text += "\r\n";
            column = 0;
        }
        unsigned bits = 0;
        for (std::size_t j = 0; j < 3; ++j)
            bits =
                bits << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0);
        for (std::size_t j = 0; j < 4; ++j)
            text += i + j <= bytes.size() ? digits[bits >> (18 - 6 * j) & 63] : '=';
        column += 4;
    }
    return text;
}

class SignInTest : public SandboxTest {
protected:
    struct Row {
        std::string name;
        Strings credentials;
        int code;  ///< 0: signs in.
    };

    void check(const std::vector<Row>& rows) {
        const auto package = makePackage();
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            for (const char* mode : {"verify", "upload"}) {
                Strings words{"-m", mode, "-f", package};
                words.insert(words.end(), row.credentials.begin(), row.credentials.end());
                const Child run = finishedTool(words);
                EXPECT_EQ(run.exitCode, row.code ? 1 : 0) << run.all();
                const Strings block = errorBlock(run.errors);
                if (row.code == 0) {
                    EXPECT_TRUE(block.empty());
                    continue;
                }
                ASSERT_EQ(block.size(), 1u) << run.all();
                EXPECT_NE(block[0].find("(" + std::to_string(row.code) + ")"), std::string::npos)
                    << block[0];
                // The package's provider is known after sign-in only.
                EXPECT_TRUE(row.code == -24001 ||
                            run.output.find("Signed in") == std::string::npos);
                for (const auto& [variable, secret] : secrets)
                    EXPECT_EQ(run.all().find(secret), std::string::npos) << variable;
            }
        }
    }

    void setSecrets(Environment values) {
        secrets = std::move(values);
        environment.insert(secrets.begin(), secrets.end());
    }

    Environment secrets;
};

}  // namespace

TEST_F(SignInTest, ChecksEachForm) {
    setSecrets({{"BAD", "wrong-secret"},
                {"HARA", "it's \"quoted\" \\ and spaced"},
                {"HOUSE", "house-password"},
                {"STEP", "twostep-password"},
                {"APP", "abcd-efgh-ijkl-mnop"},
                {"LOCKED", "locked-password"},
                {"TOKEN", "demo-token"},
                {"SESSION", "demo-session"},
                {"SHARED", "demo-shared-secret"}});
    const std::string demo = "'demo@sandbox.invalid'";
    const auto headers = [](const std::string& json) { return base64(json, true); };
    const std::string account =
        R"({"X-Zarnet-App-Info":"an application with a rather long name, so that lines are broken",)"
        R"("X-Zarnet-I-Identity-Id":"demo-identity","X-Zarnet-PM-Token":")";
    std::string unbroken = base64(account + "demo-identity-token\"}");
    check({
        {"password", {"-u", demo, "-p", "@env:PW"}, 0},
        {"wrong password", {"-u", demo, "-p", "@env:BAD"}, -20101},
        {"unknown user", {"-u", "'x'", "-p", "@env:PW"}, -20101},
        {"no user", {"-u", "zarnet", "-p", "@env:PW"}, -20101},
        {"variable missing", {"-u", demo, "-p", "@env:NOT_SET"}, -20283},
        {"plain password", {"-u", demo, "-p", "wrong-secret"}, -24302},
        {"plain shared secret",
         {"-u", demo, "-sessionid", "@env:SESSION", "-sharedsecret", "wrong-secret"},
         -24302},
        {"app password needed", {"-u", "'twostep@sandbox.invalid'", "-p", "@env:STEP"}, -22938},
        {"app password", {"-u", "'twostep@sandbox.invalid'", "-p", "@env:APP"}, 0},
        {"locked", {"-u", "'locked@sandbox.invalid'", "-p", "@env:LOCKED"}, -20209},
        {"nothing", {"-u", demo}, -20283},
        {"two forms", {"-u", demo, "-p", "@env:PW", "-dsToken", "@env:TOKEN"}, -20283},
        {"token", {"-u", "zarnet", "-dsToken", "@env:TOKEN"}, 0},
        {"token of another", {"-u", "'house@sandbox.invalid'", "-dsToken", "@env:TOKEN"}, -20283},
        {"wrong token", {"-u", "zarnet", "-dsToken", "@env:BAD"}, -20283},
        {"session", {"-u", demo, "-sessionid", "@env:SESSION", "-sharedsecret", "@env:SHARED"}, 0},
        {"wrong shared secret",
         {"-u", demo, "-sessionid", "@env:SESSION", "-sharedsecret", "@env:BAD"},
         -20283},
        {"half a session", {"-u", demo, "-sessionid", "@env:SESSION"}, -20283},
        {"account session",
         {"-u", demo, "-hsa2headers", headers(account + "demo-identity-token\"}")},
         0},
        {"account session, one long line", {"-u", demo, "-hsa2headers", unbroken}, -20283},
        {"wrong account session", {"-u", demo, "-hsa2headers", headers(account + "x\"}")}, -20283},
        {"headers of nobody", {"-u", demo, "-hsa2headers", headers("{}")}, -20283},
        {"headers no JSON", {"-u", demo, "-hsa2headers", headers("[1]")}, -20283},
        {"no provider of several", {"-u", "'house@sandbox.invalid'", "-p", "@env:HOUSE"}, -24002},
        {"one of several",
         {"-u", "'house@sandbox.invalid'", "-p", "@env:HOUSE", "-s", "'DemoStudio'"},
         0},
        {"the other provider option counts",
         {"-u", "'house@sandbox.invalid'", "-p", "@env:HOUSE", "-vtc_provider", "'DemoStudio'",
          "-s", "'No'"},
         0},
        {"foreign provider", {"-u", demo, "-p", "@env:PW", "-s", "'OtherStudio'"}, -24001},
        {"the package's provider is foreign",
         {"-u", R"('o'\''hara@sandbox.invalid')", "-p", "@env:HARA"},
         -24001},
        {"quotes in the provider",
         {"-u", R"('o'\''hara@sandbox.invalid')", "-p", "@env:HARA", "-s", R"('Not O'\''Hara')"},
         -24001},
    });
}

/// Signed headers come from velto itself: see its tests.
TEST_F(SignInTest, ChecksKeyFiles) {
    const auto tools = velto::testing::sourceFolder() / "Sandbox";
    for (const Strings& key : {Strings{"KEY1", "issuer-1", "DemoStudio", folder},
                               Strings{"OTHER", "issuer-1", "DemoStudio", folder / "other"}})
        ASSERT_EQ(Child(tools / "make-key", key, {}).finish().exitCode, 0);
    std::filesystem::create_directory(folder / "wrong");
    std::filesystem::copy(folder / "other/OTHER.p8", folder / "wrong/KEY1.p8");
    environment["VELM_SANDBOX_ACCOUNTS"] = folder / "accounts.json";
    environment["VELM_PRIVATE_KEYS"] = folder;
    check({
        {"key file", {"-u", "zarnet", "-apiKey", "KEY1", "-apiIssuer", "issuer-1"}, 0},
        {"key of no issuer", {"-u", "zarnet", "-apiKey", "KEY1"}, -20283},
        {"unknown key id", {"-u", "zarnet", "-apiKey", "KEY2", "-apiIssuer", "issuer-1"}, -20283},
    });
    environment["VELM_PRIVATE_KEYS"] = folder / "wrong";
    check({{"file of another key",
            {"-u", "zarnet", "-apiKey", "KEY1", "-apiIssuer", "issuer-1"},
            -20283}});
}
