#include <VeltoConnectFoundation/Platform/SecretRegistry.h>

#include <VeltoConnectFoundation/Platform/Base64.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <random>

namespace velto {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::string_view secret = R"(Pä+ss "w0rd" <&> it's\%41)";

TEST(SecretRegistry, SeesThroughEncodings) {
    const RegisteredSecret registered(secret);
    const std::string url = encodeBase64("id:" + std::string(secret), Base64Form::url);
    const struct {
        const char* name;
        std::string text;
    } rows[] = {
        {"as it is", std::string(secret)},
        {"lower case", R"(pä+ss "w0rd" <&> it's\%41)"},
        {"upper case", R"(PÄ+SS "W0RD" <&> IT'S\%41)"},
        {"percent", "P%C3%a4%2Bss%20%22w0rd%22%20%3c%26%3E%20it%27s%5C%2541"},
        {"form", "P%C3%A4%2Bss+%22w0rd%22+%3C%26%3E+it%27s%5C%2541"},
        {"percent twice",
         "P%25C3%25A4%252Bss%2520%2522w0rd%2522%2520%253C%2526%253E%2520it%2527s"
         "%255C%252541"},
        {"JSON", R"(Pä+ss \"w0rd\" <&> it's\\%41)"},
        {"JSON, ASCII only", R"(P\u00E4+ss \u0022w0rd\" \u003C&\u003e it's\u005c%41)"},
        {"JSON in JSON", R"(P\\u00e4+ss \\\"w0rd\\\" <&> it's\\\\%41)"},
        {"XML, named", "Pä+ss &quot;w0rd&quot; &lt;&amp;&gt; it&apos;s\\%41"},
        {"XML, numbers", "P&#xE4;+ss &#34;w0rd&#x022; &#60;&amp;&#62; it&#0039;s\\%41"},
        {"shell's quotes", R"('Pä+ss "w0rd" <&> it'\''s\%41')"},
        {"shell's backslashes", R"(Pä+ss\ \"w0rd\"\ \<\&\>\ it\'s\\%41)"},
        {"Latin-1", "P\xE4+ss \"w0rd\" <&> it's\\%41"},
        {"UTF-8 read as Latin-1", "PÃ¤+ss \"w0rd\" <&> it's\\%41"},
        {"base64", encodeBase64(secret)},
        {"base64, one byte before", encodeBase64("x" + std::string(secret) + "y")},
        {"base64, two bytes before", encodeBase64("xy" + std::string(secret) + "z")},
        {"base64 behind other digits", "a/" + url},
        {"base64 in lines",
         encodeBase64(std::string(50, 'x') + std::string(secret), Base64Form::lines64)},
        {"base64 of base64",
         encodeBase64(R"({"Authorization":"Basic )" + encodeBase64(secret) + "\"}")},
        {"base64 of JSON", encodeBase64(R"(["P\u00e4+ss \"w0rd\" <&> it's\\%41"])")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string hidden = hidingSecrets("before " + row.text + " after");
        EXPECT_THAT(hidden, HasSubstr(hiddenValue));
        EXPECT_LT(hidden.size(), 24 + hiddenValue.size() + 70) << hidden;
        for (const char* part : {"w0rd", "W0RD", "%41", "%2541"})
            EXPECT_THAT(hidden, Not(HasSubstr(part)));
        EXPECT_THAT(hidden, ::testing::StartsWith("before "));
        EXPECT_THAT(hidden, ::testing::EndsWith(" after"));
    }
}

TEST(SecretRegistry, LeavesWhatIsNoSecret) {
    const std::string text =
        "Demo DEMO dem &amp; ZGVtbw== 100% \\u0064 secre, Q2FuYXJ5 **hidden value** e";
    EXPECT_EQ(hidingSecrets(text), text);
    {
        const RegisteredSecret inItsCaseOnly("demo");
        const RegisteredSecret asItIsOnly("64 ");
        const RegisteredSecret empty("");
        EXPECT_EQ(hidingSecrets(text),
                  "Demo DEMO dem &amp; **hidden value**== 100% \\u00**hidden value**secre, "
                  "Q2FuYXJ5 **hidden value** e");
        const RegisteredSecret letter("e");
        EXPECT_EQ(hidingSecrets("he **hidden value**"), "h**hidden value** **hidden value**");
    }
    EXPECT_EQ(hidingSecrets(text), text);
}

/// A secret is found wherever in a long text it lies, and the time does not grow with the number of
/// secrets. The limit is far above what it takes, and far below what a search for each would.
TEST(SecretRegistry, LongTextsStayCheap) {
    std::vector<RegisteredSecret> secrets;
    std::vector<std::string> texts;
    for (int index = 0; index < 20; ++index) {
        texts.push_back("canary & secret " + std::to_string(index) + " of many");
        secrets.emplace_back(texts.back());
    }
    std::mt19937 random(1);  // NOLINT: the same text each time
    std::string text;
    while (text.size() < 1 << 20)
        text += text.size() % 2 == 0 ? " some words & more 100% \\n"
                                     : std::string(1, "AZaz09"[random() % 6]);
    std::string mixed = text;
    for (std::size_t at = 1000; at < text.size(); at += 65'521)
        mixed.insert(at, " " + encodeBase64(texts[at % 20]) + " ");
    const std::clock_t start = std::clock();  // of the processor: the machine may be busy
    const std::string hidden = hidingSecrets(mixed);
    EXPECT_LT(std::clock() - start, 2 * CLOCKS_PER_SEC);
    std::size_t count = 0;
    for (std::size_t at = hidden.find(hiddenValue); at != std::string::npos;
         at = hidden.find(hiddenValue, at + 1))
        ++count;
    EXPECT_EQ(count, (text.size() - 1000 + 65'520) / 65'521);
}

}  // namespace
}  // namespace velto
