#include <VeltoConnectFoundation/Platform/ArgumentMask.h>

#include <gtest/gtest.h>

#include <vector>

namespace velto {
namespace {

TEST(ArgumentMaskTest, HidesTheValuesOfSecretOptions) {
    const struct {
        std::vector<std::string> arguments;
        const char* line;
    } rows[] = {
        {{}, ""},
        {{"-m", "upload", "-u", "'me'"}, "-m upload -u 'me'"},
        {{"-p", "secret", "-v"}, "-p **hidden value** -v"},
        {{"-p", "@env:A-B"}, "-p @env:A-B"},
        {{"-sharedsecret", "a", "-sessionid", "b"},
         "-sharedsecret **hidden value** -sessionid **hidden value**"},
        {{"-dsToken", "a", "-hsa2headers", "b"},
         "-dsToken **hidden value** -hsa2headers **hidden value**"},
        {{"-DTxHeaders=aGVs\r\nbG8="}, "-DTxHeaders=**hidden value**"},
        {{"-DTxHeaders", "x"}, "-DTxHeaders **hidden value**"},
        {{"-p=@env:X", "-p=x"}, "-p=@env:X -p=**hidden value**"},
        {{"-p secret"}, "-p **hidden value**"},
        {{"-p", "-p", "plain"}, "-p **hidden value** plain"},
        {{"-p"}, "-p"},
        {{"-P", "x", "-path", "y"}, "-P x -path y"},
        {{"", "a"}, " a"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(maskedArguments(row.arguments), row.line);
    }
}

}  // namespace
}  // namespace velto
