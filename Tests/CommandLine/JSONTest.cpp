#include <Tests/CommandLine/VeltoFixture.h>

#include <sys/stat.h>

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// What programs read: each object of `--json` as Documentation/velto-output.schema.json has it.
class JSONTest : public VeltoTest {
protected:
    /// Prints what does not keep to the schema.
    static constexpr const char* validator =
        "import json, jsonschema, sys\n"
        "validator = jsonschema.Draft202012Validator(json.load(open(sys.argv[1])))\n"
        "for line in open(sys.argv[2]):\n"
        "    for error in validator.iter_errors(json.loads(line)):\n"
        "        print(line, [str(e.message) for e in error.context or [error]])\n";

    void expectSchemaHolds(const std::string& lines) const {
        write(folder / "lines", lines);
        const Child child(
            Child::ToItsEnd(), "/usr/bin/python3",
            {"-c", validator,
             velto::testing::sourceFolder() / "Documentation/velto-output.schema.json",
             folder / "lines"},
            {});
        EXPECT_EQ(child.exitCode, 0) << child.errors;
        EXPECT_EQ(child.output, "");
    }
};

TEST_F(JSONTest, EveryRunEndsWithItsOnlyResultAndKeepsToTheSchema) {
    const std::string package = makePackage();
    write(folder / "damaged.velmp/metadata.xml",
          metadata(fileElement("first.mov", "11", "ef5940958c334bb7cfc4f3da6ad0f8c3")));
    write(folder / "abc", "abc");
    write(folder / "sums",
          "900150983cd24fb0d6963f7d28e17f72  abc\n" + std::string(32, '0') + "  gone\n");
    useScenario("warning=Careful\ninfo=Be it known\n");
    const auto inFolder = [&](const char* name) { return (folder / name).string(); };
    const struct {
        Strings words;
        int exitCode;
    } rows[] = {
        {{}, 2},
        {{"--version"}, 0},
        {{"upload", "--version"}, 0},
        {{"--help"}, 0},
        {{"package"}, 2},
        {{"man"}, 0},
        {{"completion", "bash"}, 0},
        {{"nonsense"}, 2},
        {{"verify"}, 2},
        {{"verify", package, "--set", "nonsense"}, 2},
        {{"verify", package, "--log-file", "/nowhere/log"}, 2},
        {job("verify", package), 0},
        {job("verify", package, {"--quiet"}), 0},
        {job("upload", package), 0},
        {job("verify", inFolder("damaged.velmp")), 1},
        {job("verify", inFolder("gone.velmp")), 1},
        {job("verify", package, {"--tool", "/nowhere"}), 6},
        {{"package", "inspect", package}, 0},
        {{"package", "inspect", inFolder("damaged.velmp")}, 1},
        {{"package", "create", inFolder("abc"), "--provider", "P", "--vendor-id", "V"}, 0},
        {{"package", "create", inFolder("gone"), "--provider", "P", "--vendor-id", "V"}, 1},
        {{"digest", inFolder("abc")}, 0},
        {{"digest", inFolder("gone")}, 1},
        {{"digest", "--check", inFolder("sums")}, 1},
        {{"tool", "locate"}, 0},
        {{"tool", "locate", "--all"}, 0},
        {{"tool", "version"}, 0},
        {{"tool", "command", "verify", package, "--user", "demo@sandbox.invalid"}, 0},
        {{"config"}, 0},
        {{"config", "get", "MZWorkSeriesManagerMaxCompletedWork"}, 0},
        {{"config", "get", "nonsense"}, 2},
        {{"config", "set", "VeltoDrovanProxyHost", "proxy.invalid"}, 0},
        {{"config", "unset", "VeltoDrovanProxyHost"}, 0},
        {{"config", "path"}, 0},
    };
    std::string all;
    environment["LANGUAGE"] = "de";
    for (const auto& row : rows) {
        Strings words = row.words;
        words.emplace_back("--json");
        SCOPED_TRACE(::testing::PrintToString(words));
        const Child child = finished(words);
        EXPECT_EQ(child.exitCode, row.exitCode) << child.all();
        EXPECT_EQ(child.errors, "");
        const std::vector<Json> objects = objectsOf(child.output);
        ASSERT_FALSE(objects.empty());
        for (const Json& object : objects) {
            EXPECT_EQ(object["type"] == "result", &object == &objects.back());
            EXPECT_EQ(object.contains("schema"), &object == &objects.front());
            EXPECT_NE(object.value("id", ""), "other") << object;
        }
        EXPECT_EQ(objects.back()["exitCode"], row.exitCode);
        if (row.words == Strings{"verify"} || row.words == Strings{"package"}) {
            EXPECT_EQ(objects.back()["command"], row.words.front());
            EXPECT_THAT(objects.back()["next"].get<std::string>(),
                        HasSubstr("velto " + row.words.front() + " --help"));
        }
        all += child.output;
    }
    expectSchemaHolds(all);
}

TEST_F(JSONTest, NothingFromOutsideSteersWhoReadsIt) {
    const std::string tool =
        toolThatPrints("ERROR: turned \u202Eround, \u009B31m and \x1b[31m (-1)\n", 1);
    environment["VELTO_PASSWORD"] = "e";  // of one letter, which every key has
    const auto package = folder / "P\u202E\n\x1b[31m.velmp";
    std::filesystem::rename(makePackage(), package);
    for (const Strings& words :
         {job("verify", package, {"--tool", tool, "--json"}),
          Strings{"package", "inspect", package, "--json"}, Strings{"package", "inspect", package},
          Strings{"digest", package, "--json"}}) {
        SCOPED_TRACE(words.front());
        const Child child = finished(words);
        for (const char* raw : {"\x1b", "\u202E", "\u009B"})
            EXPECT_THAT(child.all(), Not(HasSubstr(raw)));
        if (words.back() == "--json") {
            EXPECT_EQ(objectsOf(child.output).back()["exitCode"], child.exitCode);
        }
    }
}

TEST_F(JSONTest, FiguresStayWithinTheirBoundsAndAPhaseIsCut) {
    const std::filesystem::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string tool = toolThatPrints(
        R"(JSON: {"messageType":"VerifyProgress","description":"Adding asset to analyze:","asset":")" +
            std::string(100'000, 'x') + "\",\"count\":10,\"index\":50}\n",
        1, "read -r word <'" + pipe.string() + "'");
    Child child = velto(job("verify", makePackage(), {"--tool", tool, "--json"}));
    ASSERT_TRUE(child.readUntil("\"progress\"") && child.readUntil("\"percent\"")) << child.all();
    write(pipe, "on\n");
    child.finish();
    int count = 0;
    for (const Json& object : objectsOf(child.output)) {
        EXPECT_LE(object.value("percent", 0.0), 100);
        if (object.value("id", "") == "adding-asset") {
            ++count;
            EXPECT_LE(object["phase"].get<std::string>().size(), 210U);
        }
    }
    EXPECT_GE(count, 2);
    expectSchemaHolds(child.output);
}

}  // namespace
}  // namespace cli_test
