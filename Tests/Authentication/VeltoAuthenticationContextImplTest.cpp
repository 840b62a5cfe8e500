#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>

#include <VeltoConnectFoundation/Authentication/KVZarnetIDSession.h>
#include <VeltoConnectFoundation/Platform/PropertyList.h>
#include <VeltoConnectFoundation/Platform/URLRequest.h>
#include <VeltoConnectFoundation/Platform/URLResponse.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/KeyFile.h>
#include <Tests/Support/ScopedUserDefaults.h>
#include <Tests/Support/TemporaryDirectory.h>

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

using velto::Array;
using velto::Data;
using velto::Dictionary;
using velto::Error;
using velto::URLRequest;
using velto::URLResponse;
using velto::Value;
using velto::testing::CapturedLog;
using velto::testing::IsError;
using velto::testing::KeyFile;
using velto::testing::ScopedUserDefaults;
using velto::testing::TemporaryDirectory;
using Context = VeltoAuthenticationContextImpl;

Data plist(const Dictionary& content) {
    return Data(std::string_view(velto::PropertyList::xml(content).value_or("")));
}

std::string headersOf(const URLRequest& request) {
    std::string text;
    for (const auto& field : request.headers) {
        text += field.name + "=" + field.value + ";";
    }
    return text;
}

/// An account service that answers what it is told to.
class FakeSession : public KVZarnetIDSession {
public:
    Dictionary appHeadersForRequest(const URLRequest& request) override {
        return {{"X-Session-For", request.url}, {"X-Vny-Device-Id", "from session"}};
    }
    bool handleResponse(const URLResponse& response, const URLRequest&) override {
        return response.statusCode == 401;
    }
};

class AuthenticationContext : public ::testing::Test {
protected:
    AuthenticationContext() {
        scope_.set("VeltoConnectDebugLoggingEnabled", true);
        scope_.set("VeltoPrivateKeysPath", std::string(folder_.path()));
        MZLoggingSetLogLevelEnabled(MZLogLevelDebug, true);
    }

    TemporaryDirectory folder_;
    ScopedUserDefaults scope_;
    CapturedLog log_;
};

TEST_F(AuthenticationContext, TheCookieIsExtractedWheneverATokenIsSet) {
    const Data token = plist({{"rovquill", "canary-cookie"}, {"resultCode", "0"}});
    const auto context = Context::contextWithToken(token, "joe", {});
    EXPECT_EQ(context->rovquill(), "canary-cookie");
    EXPECT_EQ(context->token(), token);
    EXPECT_EQ(context->username(), "joe");
    EXPECT_FALSE(context->hasError());

    context->setToken(plist({{"rovquill", "second"}}));
    EXPECT_EQ(context->rovquill(), "second");
    context->setToken({});
    EXPECT_EQ(context->rovquill(), "");
    EXPECT_FALSE(context->hasError());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(AuthenticationContext, ATokenWithoutACookieIsAnErrorOfItsOwnText) {
    const std::string_view domain = "VeltoConnectFoundationErrorDomain";
    const struct {
        const char* name;
        Dictionary plist;
        std::string_view domain;
        std::int64_t code;
        std::string description;
    } rows[] = {
        {"text and code", {{"resultCode", 3}, {"userString", "Locked"}}, domain, 3, "Locked"},
        {"code as text", {{"resultCode", "7"}, {"userString", "Locked"}}, domain, 7, "Locked"},
        {"no code", {{"userString", "Locked"}}, domain, -20000, "Locked"},
        {"the other text",
         {{"userString", ""}, {"resultString", "Bad"}, {"resultCode", -1}},
         domain,
         -1,
         "Bad"},
        {"empty cookie", {{"rovquill", ""}, {"userString", "Bad"}}, domain, -20000, "Bad"},
        {"no text",
         {{"resultCode", 3}},
         VeltoConnectionAuthenticationErrorDomain,
         -26000,
         "Could not obtain authorization token. Missing rovquill from plist: "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        log_.clear();
        const auto context = Context::contextWithToken(plist(row.plist), "joe", {});
        ASSERT_EQ(context->errors().size(), 1U);
        EXPECT_THAT(context->error(), IsError(row.domain, row.code));
        EXPECT_TRUE(context->error().localizedDescription().starts_with(row.description))
            << context->error().localizedDescription();
        EXPECT_EQ(context->rovquill(), "");
        EXPECT_TRUE(log_.contains(
            "*** AUTH: Could not obtain authorization token. Missing rovquill from plist: "));
    }
}

TEST_F(AuthenticationContext, ABadTokenIsAnErrorAndForgetsTheOldCookie) {
    const auto context = Context::contextWithToken(plist({{"rovquill", "old"}}), "joe", {});
    context->setToken(Data(std::string_view("canary rubbish")));
    EXPECT_EQ(context->rovquill(), "");
    EXPECT_THAT(context->error(), IsError("VeltoPropertyListErrorDomain", 1));
    EXPECT_TRUE(log_.contains("*** AUTH: Extracting authorization token: "));
    EXPECT_FALSE(log_.contains("canary"));
}

TEST_F(AuthenticationContext, MessagesBecomeErrorsWithTheirCode) {
    const struct {
        const char* message;
        std::int64_t code;
    } rows[] = {
        {"Sign in again (-22938)", -22938},
        {"Sign in again (12) \n ", 12},
        {"(5)", 5},
        {"Sign in again (0)", -26000},
        {"Sign in again", -26000},
        {"Sign in (12) again", -26000},
        {"Sign in again (12a)", -26000},
        {"two\nlines (12)", -26000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const auto context = Context::contextWithErrorMessage(row.message);
        const Error error = context->error();
        EXPECT_THAT(error, IsError("VeltoConnectionAuthenticationErrorDomain", row.code));
        EXPECT_EQ(error.localizedRecoverySuggestion(), error.localizedDescription());
        EXPECT_EQ(error.localizedFailureReason(),
                  MZStoreMessages::sharedStoreMessages()->operationFailedWithStoreMessage());
        // What the localizer knows by code has a text of its own.
        EXPECT_EQ(error.localizedDescription() == row.message, row.code != -22938);
    }
    const auto context = Context::contextWithErrorMessage("");
    EXPECT_FALSE(context->hasError());
    context->addErrorMessages({"one", "", "two"});
    context->addErrors({Error("Domain", 4), Error()});
    EXPECT_EQ(context->errors().size(), 3U);
    EXPECT_EQ(context->error().localizedDescription(), "one");
    EXPECT_FALSE(Context::contextWithError({})->hasError());
    EXPECT_THAT(Context::contextWithError(Error("Domain", 4))->error(), IsError("Domain", 4));
}

TEST_F(AuthenticationContext, TheErrorsOfATokenReachTheCaller) {
    std::vector<Error> errors{Error("Before", 1)};
    Context::contextWithToken(plist({{"rovquill", "x"}}), "joe", {}, {}, &errors);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_THAT(errors[0], IsError("Before", 1));
    Context::contextWithToken(plist({{"userString", "Bad"}}), "joe", {}, {}, &errors);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].localizedDescription(), "Bad");
}

TEST_F(AuthenticationContext, AnAPIKeySignsAtOnceAndAfreshForACopy) {
    folder_.write("KEY.p8", KeyFile::make("P-256").pem());
    const auto context = Context::contextWithApiKey("KEY", "issuer", {});
    EXPECT_FALSE(context->hasError());
    EXPECT_TRUE(context->canJWTAuthenticate());
    const std::string bearer(context->httpHeaders()["Authorization"].string());
    EXPECT_TRUE(bearer.starts_with("Bearer eyJ")) << bearer.substr(0, 10);
    EXPECT_EQ(context->httpHeadersForURLRequest({}), context->httpHeaders());

    const auto copy = Context::newContextWithContext(*context);
    EXPECT_NE(copy->httpHeaders()["Authorization"].string(), bearer);
    EXPECT_FALSE(log_.contains("eyJ"));

    std::filesystem::remove(folder_.at("KEY.p8"));
    const auto failed = Context::newContextWithContext(*context);
    ASSERT_EQ(failed->errors().size(), 1U);
    EXPECT_EQ(failed->error().domain(), VeltoConnectionAuthenticationErrorDomain);
    EXPECT_TRUE(
        failed->error().localizedDescription().starts_with("Failed to generate JWT token: "));
    EXPECT_TRUE(log_.contains("*** Failed to generate JWT token: "));
}

TEST_F(AuthenticationContext, AnIssuerAloneSignsNothing) {
    const auto context = Context::contextWithApiKey("", "issuer", {});
    EXPECT_FALSE(context->canJWTAuthenticate());
    EXPECT_FALSE(context->hasError());
    EXPECT_TRUE(context->httpHeadersForURLRequest({}).isEmpty());
}

TEST_F(AuthenticationContext, AnAccountSendsItsOwnHeadersAndThoseOfItsSession) {
    const Dictionary own{{"X-Zarnet-App-Info", "service"},
                         {"X-Zarnet-I-Identity-Id", "alt"},
                         {"X-Zarnet-PM-Token", "pm"}};
    const Dictionary device{{"X-Vny-Device-Id", "device"}, {"X-Vny-Client-Info", "client"}};
    const Dictionary session{{"X-Vny-Device-Id", "from session"},
                             {"X-Session-For", "https://store.invalid"}};
    const struct {
        const char* name;
        const char* deviceID;
        const char* clientInfo;
        bool hasSession;
        Dictionary more;
    } rows[] = {
        {"all", "device", "client", false, device},
        {"no device", "", "", false, {}},
        {"session", "device", "", true, session},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.hasSession) {
            KVZarnetIDSession::setFactory([](std::string_view serviceID) {
                EXPECT_EQ(serviceID, "service");
                return std::make_shared<FakeSession>();
            });
        }
        const auto context =
            Context::contextWithServiceID("service", row.deviceID, "alt", "pm", row.clientInfo, {});
        KVZarnetIDSession::setFactory({});
        context->setHttpHeaders({{"Not", "sent"}});
        Dictionary expected = own;
        expected.merge(row.more);
        EXPECT_EQ(context->httpHeadersForURLRequest({.url = "https://store.invalid"}), expected);
        EXPECT_EQ(context->canHSA2Authenticate(), *row.deviceID != '\0' && *row.clientInfo != '\0');

        EXPECT_FALSE(context->handleResponse({.statusCode = 200}, {}));
        EXPECT_EQ(context->handleResponse({.statusCode = 401}, {}), row.hasSession);
        EXPECT_EQ(log_.contains("zarnetIDSession handleResponse: wants us to retry."),
                  row.hasSession);

        const auto copy = Context::newContextWithContext(*context);
        EXPECT_EQ(copy->serviceID(), "service");
        EXPECT_EQ(copy->canHSA2Authenticate(), context->canHSA2Authenticate());
    }
}

TEST_F(AuthenticationContext, DecoratingReplacesTheHeadersOfTheRequest) {
    const auto context =
        Context::contextWithHttpHeaders({{"Authorization", "new"}, {"Extra", "x"}}, "joe", {});
    URLRequest request;
    request.headers.add("authorization", "old");
    request.headers.add("Authorization", "older");
    context->decorateWithAuthHeadersForRequest(request);
    EXPECT_EQ(headersOf(request), "authorization=new;Extra=x;");
}

TEST_F(AuthenticationContext, KindsShowFromTheFieldsThatAreFilled) {
    const auto context = Context::contextWithHttpHeaders({}, "joe", {});
    EXPECT_FALSE(context->isSessionEnabled());
    context->setSessionID("id");
    EXPECT_FALSE(context->isSessionEnabled());
    context->setSharedSecret("secret");
    EXPECT_TRUE(context->isSessionEnabled());

    EXPECT_FALSE(context->hasDataCenters());
    EXPECT_EQ(context->getDataCenters(), std::nullopt);
    context->setDataCenters({"a", "b"});
    EXPECT_TRUE(context->hasDataCenters());
    EXPECT_EQ(context->getDataCenters(), "a, b");
    EXPECT_TRUE(context->httpHeadersForURLRequest({}).isEmpty());
}

TEST_F(AuthenticationContext, AllowedPlatformsBecomeARegisteredDefault) {
    const auto context = Context::contextWithHttpHeaders({}, "", {});
    context->setAllowedPlatformsInfo(Dictionary{{"ios", true}});
    EXPECT_EQ(context->allowedPlatformsInfo(), Value(Dictionary{{"ios", true}}));
    EXPECT_EQ(velto::UserDefaults::shared().value("VeltoSoftwareService_AllowedPlatforms"),
              Value(Dictionary{{"ios", true}}));
}

TEST_F(AuthenticationContext, TheDelegateIsHeldWeakly) {
    auto delegate = std::make_shared<VeltoAuthenticationContextDelegate>();
    const auto context = Context::contextWithHttpHeaders({}, "", delegate);
    EXPECT_EQ(context->delegate(), delegate);
    EXPECT_EQ(Context::newContextWithContext(*context)->delegate(), delegate);
    delegate.reset();
    EXPECT_EQ(context->delegate(), nullptr);
}

TEST_F(AuthenticationContext, RequestsReadItWhileANewTokenComesIn) {
    const auto context = Context::contextWithToken(plist({{"rovquill", "0"}}), "joe", {});
    std::vector<std::thread> readers;
    std::atomic<bool> done = false;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                EXPECT_FALSE(context->rovquill().empty());
                EXPECT_FALSE(context->hasError());
                EXPECT_EQ(context->httpHeadersForURLRequest({}).size(), 0U);
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        context->setToken(plist({{"rovquill", std::to_string(i)}}));
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(context->rovquill(), "199");
}

}  // namespace
