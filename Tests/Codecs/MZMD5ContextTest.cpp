#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/IsError.h>
#include <Tests/Support/RandomSeed.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <VeltoConnectFoundation/Codecs/MZMD5Context.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

namespace {

using velto::Error;
using velto::testing::IsError;
using velto::testing::IsNoError;

constexpr std::string_view nothing = "d41d8cd98f00b204e9800998ecf8427e";

TEST(MZMD5Context, MakesTheDigestOfWhatItWasGiven) {
    MZMD5Context context = MZMD5Context::context();
    EXPECT_EQ(context.state(), MZMD5ContextState::uninitialized);
    EXPECT_THAT(context.updateWithBytes("a", 1), IsNoError());
    EXPECT_EQ(context.state(), MZMD5ContextState::open);
    EXPECT_THAT(context.updateWithBytes(nullptr, 0), IsNoError());
    EXPECT_THAT(context.updateWithBytes("bc", 2), IsNoError());
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(context.md5WithError(), "900150983cd24fb0d6963f7d28e17f72");
        EXPECT_EQ(context.state(), MZMD5ContextState::closed);
    }
    EXPECT_EQ(MZMD5Context().md5WithError(), nothing);
}

TEST(MZMD5Context, TheFirstErrorIsFinal) {
    struct Row {
        std::function<void(MZMD5Context&)> before;
        std::function<Error(MZMD5Context&)> call;
        std::int64_t code;
        const char* text;
    };
    const auto open = [](MZMD5Context& context) { return context.open(); };
    const auto close = [](MZMD5Context& context) { return context.close(); };
    const auto update = [](MZMD5Context& context) { return context.updateWithBytes("x", 1); };
    const auto ask = [](MZMD5Context& context) {
        Error error;
        EXPECT_FALSE(context.md5WithError(&error));
        return error;
    };
    const Row rows[] = {
        {open, open, -19002, "MD5 conext must be uninitialized before attempting to open it."},
        {[&](MZMD5Context& context) { open(context), close(context); }, update, -19003,
         "MD5 conext must be open before attempting to update it."},
        {[](MZMD5Context&) {}, close, -19004,
         "MD5 conext must be open before attempting to close it."},
        {[](MZMD5Context& context) { context.setError({}); }, ask, -19007,
         "MD5 conext must be closed before attempting retrieve the MD5."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        MZMD5Context context;
        row.before(context);
        const Error error = row.call(context);
        EXPECT_THAT(error, IsError("MZMD5ContextErrorDomain", row.code));
        EXPECT_EQ(error.localizedDescription(), row.text);
        EXPECT_EQ(error.localizedFailureReason(), row.text);
        EXPECT_EQ(context.state(), MZMD5ContextState::error);
        for (const Error& later :
             {open(context), update(context), close(context), ask(context), context.error()}) {
            EXPECT_EQ(later, error);
        }
    }
}

// A system that forbids the algorithm is pretended by its library's own configuration.
TEST(MZMD5Context, ASystemWithoutTheAlgorithmIsAnError) {
    const velto::testing::TemporaryDirectory folder;
    if (!velto::testing::isFreshProcess()) {
        ASSERT_EQ(setenv("OPENSSL_CONF",
                         folder
                             .write("openssl.cnf",
                                    "openssl_conf = all\n[all]\nalg_section = algorithms\n"
                                    "[algorithms]\ndefault_properties = fips=yes\n")
                             .c_str(),
                         1),
                  0);
    }
    const bool elsewhere = velto::testing::ranInFreshProcess();
    if (elsewhere) {
        unsetenv("OPENSSL_CONF");
        return;
    }
    MZMD5Context context;
    EXPECT_THAT(context.updateWithBytes("x", 1), IsError("MZMD5ContextErrorDomain", -19001));
    EXPECT_EQ(context.error().localizedDescription(), "Unable to initialize the MD5 context.");
}

TEST(MZMD5Context, AgreesWithAnotherImplementationHoweverTheBytesAreCut) {
    std::mt19937_64 random(velto::testing::randomSeed());
    for (std::size_t round = 0; round < 10000; ++round) {
        std::string bytes(round < 300 ? round : random() % 700, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        MZMD5Context context;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t length = std::min<std::size_t>(random() % 130, bytes.size() - at);
            ASSERT_THAT(context.updateWithBytes(bytes.data() + at, length), IsNoError());
            at += length;
        }
        char* expected = g_compute_checksum_for_data(
            G_CHECKSUM_MD5, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
        ASSERT_EQ(context.md5WithError(), expected) << "round " << round;
        g_free(expected);
    }
}

}  // namespace
