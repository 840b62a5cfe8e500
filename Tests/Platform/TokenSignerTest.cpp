#include <VeltoConnectFoundation/Platform/TokenSigner.h>

#include <VeltoConnectFoundation/Platform/Base64.h>
#include <VeltoConnectFoundation/Platform/FileManager.h>
#include <VeltoConnectFoundation/Platform/StandardJSON.h>
#include <VeltoConnectFoundation/Platform/TextEncoding.h>

#include <Tests/Support/IsError.h>
#include <Tests/Support/KeyFile.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using velto::Date;
using velto::Error;
using velto::TokenSigner;
using velto::TokenSignerErrorCode;
using velto::Value;
using velto::testing::IsError;
using velto::testing::KeyFile;
using velto::testing::ScopedUserDefaults;
using velto::testing::TemporaryDirectory;

constexpr std::string_view keyID = "AB12CD34EF";
constexpr std::string_view issuer = "69a6de70-03db-47e3-e053-5b8c7c11a4d1";

class TokenSignerTest : public ::testing::Test {
protected:
    TokenSignerTest() { scope_.set("VeltoPrivateKeysPath", std::string(folder_.path())); }

    TemporaryDirectory folder_;
    ScopedUserDefaults scope_;
};

TEST_F(TokenSignerTest, TheTokenVerifiesAndClaimsWhatItShould) {
    const KeyFile key = KeyFile::make("P-256");
    folder_.write("AB12CD34EF.p8", key.pem());
    Error error;
    const auto signer = TokenSigner::signerWithKeyID(keyID, issuer, &error);
    ASSERT_NE(signer, nullptr) << error.description();
    // Signatures are random, and numbers that begin with zeros are rare: many of them.
    for (int i = 0; i < 300; ++i) {
        const auto token = signer->token(Date::fromUnixSeconds(1700000000.9 + i), &error);
        ASSERT_TRUE(token.has_value()) << error.description();
        const auto parts = velto::split(*token, ".");
        ASSERT_EQ(parts.size(), 3U);
        const auto signature = velto::decodeBase64(parts[2], velto::Base64Form::url);
        ASSERT_TRUE(signature.has_value());
        EXPECT_TRUE(key.verifies(token->substr(0, parts[0].size() + 1 + parts[1].size()),
                                 signature->view()));
        if (i != 0) {
            continue;
        }
        const auto json = [](std::string_view part) {
            return velto::parseJSON(
                velto::decodeBase64(part, velto::Base64Form::url).value_or(velto::Data()).view());
        };
        EXPECT_EQ(json(parts[0]),
                  Value(velto::Dictionary{{"alg", "ES256"}, {"kid", keyID}, {"typ", "JWT"}}));
        EXPECT_EQ(json(parts[1]), Value(velto::Dictionary{{"iss", issuer},
                                                          {"iat", 1700000000},
                                                          {"exp", 1700001200},
                                                          {"aud", TokenSigner::audience}}));
    }
}

TEST_F(TokenSignerTest, EveryFaultIsAnErrorOfItsOwnThatHoldsNothingOfTheFile) {
    const std::string good = KeyFile::make("P-256").pem();
    const std::string encrypted = KeyFile::make("P-256").encryptedPEM("canary-password");
    const std::string publicKey = KeyFile::make("P-256").publicPEM();
    const struct {
        const char* name;
        TokenSignerErrorCode code;
        std::string key;
        std::string file;
    } rows[] = {
        {"missing", TokenSignerErrorCode::missing, "Missing", ""},
        {"encrypted", TokenSignerErrorCode::encrypted, "K", encrypted},
        {"public", TokenSignerErrorCode::noPrivateKey, "K", publicKey},
        {"garbage", TokenSignerErrorCode::noPrivateKey, "K", "canary"},
        {"empty", TokenSignerErrorCode::noPrivateKey, "K", ""},
        {"cut", TokenSignerErrorCode::noPrivateKey, "K", good.substr(0, good.size() / 2)},
        {"another curve", TokenSignerErrorCode::wrongKind, "K", KeyFile::make("P-384").pem()},
        {"another kind", TokenSignerErrorCode::wrongKind, "K", KeyFile::make("RSA").pem()},
        {"too large", TokenSignerErrorCode::unreadable, "K", good + std::string(70000, '\n')},
        {"path as identifier", TokenSignerErrorCode::badIdentifier, "../K", good},
        {"no identifier", TokenSignerErrorCode::badIdentifier, "", good},
        {"zero byte", TokenSignerErrorCode::badIdentifier, std::string("K\0", 2), good},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        folder_.write("K.p8", row.file);
        Error error;
        EXPECT_EQ(TokenSigner::signerWithKeyID(row.key, issuer, &error), nullptr);
        EXPECT_THAT(error, IsError(velto::TokenSignerErrorDomain, static_cast<int>(row.code)));
        const std::string text = error.description();
        EXPECT_EQ(text.find("canary"), std::string::npos) << text;
        EXPECT_TRUE(row.file.size() < 80 ||
                    text.find(row.file.substr(40, 20)) == std::string::npos);
    }
    Error error;
    folder_.write("K.p8", good);
    EXPECT_EQ(TokenSigner::signerWithKeyID("K", "a\"b", &error), nullptr);
    EXPECT_THAT(error, IsError(velto::TokenSignerErrorDomain, 1));
    ASSERT_TRUE(velto::FileManager::createFolder(folder_.at("D.p8")));
    EXPECT_EQ(TokenSigner::signerWithKeyID("D", issuer, &error), nullptr);
    EXPECT_THAT(error, IsError(velto::TokenSignerErrorDomain, 3));
}

TEST_F(TokenSignerTest, LooksIntoTheConfigurationFolderLast) {
    const char* before = std::getenv("XDG_CONFIG_HOME");
    const std::string kept = before == nullptr ? "" : before;
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    folder_.write("velto/private-keys/K.p8", KeyFile::make("P-256").pem());
    EXPECT_NE(TokenSigner::signerWithKeyID("K", issuer), nullptr);
    scope_.set("VeltoPrivateKeysPath", {});
    EXPECT_NE(TokenSigner::signerWithKeyID("K", issuer), nullptr);
    // The first one found counts, usable or not.
    scope_.set("VeltoPrivateKeysPath", std::string(folder_.path()));
    folder_.write("K.p8", "x");
    EXPECT_EQ(TokenSigner::signerWithKeyID("K", issuer), nullptr);
    before == nullptr ? unsetenv("XDG_CONFIG_HOME") : setenv("XDG_CONFIG_HOME", kept.c_str(), 1);
}

}  // namespace
