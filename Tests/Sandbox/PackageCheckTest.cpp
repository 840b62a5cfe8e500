#include <Tests/Sandbox/SandboxFixture.h>

#include <sys/stat.h>

#include <functional>

using namespace sandbox_test;

namespace {

class PackageCheckTest : public SandboxTest {};

}  // namespace

TEST_F(PackageCheckTest, TellsTheProgressOfAGoodPackage) {
    const Child run = finishedTool(arguments("verify", makePackage()));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.errors, "");
    const std::string start = R"(JSON: {"messageType":"VerifyProgress","description":)";
    const Strings expected{
        "Signing in to the store",
        "Signed in as demo@sandbox.invalid",
        "Performing authentication of package " + (folder / "P.velmp").string(),
        start + R"("Analyzing metadata"})",
        start + R"("Adding asset to analyze:","asset":"first.mov","count":11,"index":0})",
        start + R"("Adding asset to analyze:","asset":"empty.mov","count":11,"index":0})",
        "Starting media analysis of assets",
        start + R"("Validating assets","count":11,"index":0})",
        start + R"("Validating assets","asset":"first.mov","count":11,"index":11})",
        start + R"("Validation completed.","count":11,"index":11})",
        "The package was verified: P.velmp",
    };
    EXPECT_EQ(linesOf(run.output), expected);
    EXPECT_FALSE(std::filesystem::exists(folder / "store"));
}

TEST_F(PackageCheckTest, ReportsEveryDamage) {
    const std::string md5 = "ef5940958c334bb7cfc4f3da6ad0f8c3";
    const auto described = [&](const std::string& name, const std::string& size = "11",
                               std::string digest = {}) {
        return metadata(fileElement(name, size, digest.empty() ? md5 : digest));
    };
    using Codes = std::vector<int>;
    struct Row {
        const char* name;
        std::string metadata;  ///< Empty: left as it is.
        std::function<void(const std::filesystem::path&)> damage;
        Codes codes;
    };
    const auto nothing = [](const auto&) {};
    using Package = const std::filesystem::path&;
    const auto remove = [](const char* name) {
        return [name](Package p) { std::filesystem::remove_all(p / name); };
    };
    const auto put = [this](const char* name, const char* text) {
        return [this, name, text](Package p) { write(p / name, text); };
    };
    const auto link = [](Package p) {
        std::filesystem::rename(p / "first.mov", p / "../first.mov");
        std::filesystem::create_symlink("../first.mov", p / "first.mov");
    };
    const auto pipe = [](const char* name) {
        return [name](Package p) {
            std::filesystem::remove(p / name);
            mkfifo((p / name).c_str(), 0600);
        };
    };
    const auto several = [&](Package p) {
        std::filesystem::remove(p / "first.mov");
        write(p / "empty.mov", "not empty");
    };
    const std::string most = "9223372036854775807";
    const std::string entities =
        "<!DOCTYPE p [<!ENTITY a \"b\">]><package version=\"film2.3\">&a;</package>";
    const std::string first = fileElement("first.mov", "11", md5);
    const std::vector<Row> rows{
        {"sound", described("first.mov"), nothing, {}},
        {"upper-case digest",
         described("first.mov", "11", "EF5940958C334BB7CFC4F3DA6AD0F8C3"),
         nothing,
         {}},
        {"escaped name", described("first&#46;mov"), nothing, {}},
        {"unknown element", metadata("<x/>" + first), nothing, {}},
        {"document type", "<!DOCTYPE package>" + described("first.mov").substr(39), nothing, {}},
        {"a name with dots", described("Wait...mov"), put("Wait...mov", "first file\n"), {}},
        {"no metadata", {}, remove("metadata.xml"), {-24102}},
        {"no package", {}, remove(""), {-24101}},
        {"cut off", described("first.mov").substr(0, 200), nothing, {-24103}},
        {"bare ampersand", described("a&b.mov"), nothing, {-24103}},
        {"entities", entities, nothing, {-24103}},
        {"other version", "<package version=\"film9\"/>", nothing, Codes(5, -24104)},
        {"no files", metadata(""), nothing, {-24104}},
        {"path", described("../first.mov"), nothing, {-24105}},
        {"absolute path", described("/etc/passwd"), nothing, {-24105}},
        {"parent", described(".."), nothing, {-24105}},
        {"control character", described("a&#10;b"), nothing, {-24105}},
        {"described twice", metadata(first + first), nothing, {-24104}},
        {"size no number", described("first.mov", "11 bytes"), nothing, {-24104}},
        {"sizes beyond a count",
         metadata(fileElement("a", most, md5) + fileElement("b", most, md5)),
         nothing,
         {-24104}},
        {"digest cut", described("first.mov", "11", "ef59"), nothing, {-24104}},
        {"other size", described("first.mov", "12"), nothing, {-24107}},
        {"one byte changed", {}, put("first.mov", "first filE\n"), {-24108}},
        {"symbolic link", {}, link, {-24109}},
        {"named pipe", {}, pipe("first.mov"), {-24109}},
        {"metadata in a named pipe", {}, pipe("metadata.xml"), {-24102}},
        {"several at once", {}, several, {-24106, -24107}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove_all(folder / "P.velmp");
        const auto package = makePackage();
        if (!row.metadata.empty())
            write(package / "metadata.xml", row.metadata);
        row.damage(package);
        for (const char* mode : {"verify", "upload"}) {
            const Child run = finishedTool(arguments(mode, package));
            EXPECT_EQ(run.exitCode, row.codes.empty() ? 0 : 1) << run.all();
            const Strings block = errorBlock(run.errors);
            ASSERT_EQ(block.size(), row.codes.size()) << run.all();
            for (std::size_t i = 0; i < block.size(); ++i) {
                // The first parentheses of a message hold its code, whatever the names in it.
                EXPECT_EQ(std::atoi(block[i].c_str() + block[i].find('(') + 1), row.codes[i])
                    << block[i];
            }
            if (std::string_view(row.name).ends_with("named pipe")) {
                EXPECT_NE(block[0].find(": it is a named pipe"), std::string::npos) << block[0];
            }
            EXPECT_EQ(run.output.find("Validation failed.") != std::string::npos,
                      !row.codes.empty() && mode == std::string("verify"));
        }
    }
}

TEST_F(PackageCheckTest, WithoutChecksumsComparesSizesOnly) {
    const auto package = makePackage();
    write(package / "first.mov", "first filE\n");
    Strings words = arguments("verify", package);
    words.insert(words.end(), {"-checksumValidation", "false"});
    EXPECT_EQ(tool(words).finish().exitCode, 0);
    write(package / "first.mov", "shorter");
    EXPECT_EQ(tool(words).finish().exitCode, 1);
}

TEST_F(PackageCheckTest, AcceptsWhatMakePackageMakes) {
    write(folder / "it's <A> & \"B\" (1).mov", "second\n");
    const auto tools = velto::testing::sourceFolder() / "Sandbox";
    Child maker(tools / "make-package",
                {"--asset-type", "preview", folder / "it's <A> & \"B\" (1).mov", "A&B_1",
                 "DemoStudio", folder / "out"},
                {});
    ASSERT_EQ(maker.finish().exitCode, 0) << maker.errors;
    ASSERT_EQ(maker.output, (folder / "out/A&B_1.velmp").string() + "\n");
    const std::string text = contentOf(folder / "out/A&B_1.velmp/metadata.xml");
    EXPECT_NE(text.find("\t\t\t\t<checksum type=\"md5\">59d0d19fc45ca69230d858f60a5557f8"
                        "</checksum>\n"),
              std::string::npos)
        << text;
    Child run = tool(arguments("verify", folder / "out/A&B_1.velmp/"));
    EXPECT_EQ(run.finish().exitCode, 0) << run.all();

    write(folder / "out/A&B_1.velmp/it's <A> & \"B\" (1).mov", "second!");
    const Child damaged = finishedTool(arguments("verify", folder / "out/A&B_1.velmp"));
    ASSERT_EQ(errorBlock(damaged.errors).size(), 1u);
    EXPECT_NE(errorBlock(damaged.errors)[0].find("(-24108): it's <A> & \"B\" (1).mov"),
              std::string::npos)
        << damaged.errors;
}
