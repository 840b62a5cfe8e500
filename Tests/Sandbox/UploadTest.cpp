#include <Tests/Sandbox/SandboxFixture.h>

#include <algorithm>
#include <numeric>

using namespace sandbox_test;

namespace {

class UploadTest : public SandboxTest {
protected:
    void expectDelivered(const std::filesystem::path& package, const std::string& vendorID) const {
        const auto delivered = folder / "store/DemoStudio" / (vendorID + ".velmp");
        std::vector<std::string> names[2];
        for (int i = 0; i < 2; ++i) {
            for (const auto& entry :
                 std::filesystem::directory_iterator(i == 0 ? package : delivered))
                names[i].push_back(entry.path().filename());
            std::sort(names[i].begin(), names[i].end());
        }
        ASSERT_EQ(names[0], names[1]);
        for (const auto& name : names[0])
            EXPECT_TRUE(contentOf(package / name) == contentOf(delivered / name)) << name;
        EXPECT_FALSE(std::filesystem::exists(delivered.string() + ".incoming"));
    }

    std::filesystem::path incoming(const std::string& vendorID) const {
        return folder / "store/DemoStudio" / (vendorID + ".velmp.incoming");
    }
};

/// What a driver makes of the lines: the highest total, counted as it does.
struct Progress {
    long long total = 0, sent = 0;
    int percentLines = 0, skips = 0, restarts = 0;
    std::map<std::string, long long> sizes, bytes;

    explicit Progress(const std::string& output) {
        for (const auto& line : linesOf(output)) {
            std::istringstream stream(line);
            const Strings words{std::istream_iterator<std::string>(stream), {}};
            const auto after = [&](std::string_view marker) {
                const std::size_t at = line.find(marker);
                return at == std::string::npos ? std::string() : line.substr(at + marker.size());
            };
            if (const auto rest = after("adding file for % complete logging: "); !rest.empty()) {
                sizes[rest.substr(0, rest.find(' '))] = std::atoll(words.back().c_str());
            } else if (const auto size = after("Setting total size of files for upload to: ");
                       !size.empty()) {
                total = std::atoll(size.c_str());
            } else if (line.find("Scheduling automatic restart in") != std::string::npos) {
                ++restarts;
                sent = 0;
                bytes.clear();
            } else if (const auto file = after("The file named "); !file.empty()) {
                ++skips;
                sent += sizes.at(file.substr(0, file.find(" has been skipped because it already "
                                                          "exists on the remote server")));
            } else if (line.ends_with("% completed")) {
                ++percentLines;
                const auto counts = std::find_if(words.rbegin(), words.rend(),
                                                 [](const auto& w) { return w.ends_with(','); });
                const long long now = std::atoll(counts->c_str());
                sent += now - bytes[*(counts + 1)];
                bytes[*(counts + 1)] = now;
            }
        }
    }
};

}  // namespace

TEST_F(UploadTest, DeliversAndReports) {
    const auto package = makePackage();
    Strings words = arguments("upload", package);
    words.insert(words.end(), {"-t", "Signiant", "-k", "100000"});
    const Child run = finishedTool(words);
    ASSERT_EQ(run.exitCode, 0) << run.all();
    expectDelivered(package, "V1");
    const std::string size = std::to_string(std::filesystem::file_size(package / "metadata.xml"));
    const std::string total = std::to_string(11 + std::stoi(size));
    Strings lines = linesOf(run.output);
    std::erase_if(lines, [](const auto& line) { return line.find("has room") != line.npos; });
    EXPECT_EQ(lines, (Strings{
                         "Signing in to the store",
                         "Signed in as demo@sandbox.invalid",
                         "Performing authentication of package " + package.string(),
                         "Checking the MD5 checksum of first.mov",
                         "Done checking the md5 checksum.",
                         "Checking the MD5 checksum of empty.mov",
                         "Done checking the md5 checksum.",
                         "Performing transport diagnostic test of Signiant",
                         "Computing total size of files to upload",
                         "adding file for % complete logging: first.mov size: 11",
                         "adding file for % complete logging: empty.mov size: 0",
                         "adding file for % complete logging: metadata.xml size: " + size,
                         "Setting total size of files for upload to: " + total,
                         "first.mov 11/11, 100% completed",
                         "empty.mov 0/0, 100% completed",
                         "metadata.xml " + size + "/" + size + ", 100% completed",
                         "Performing uploadDone notification to Zarnet for package V1.velmp",
                         "The package was delivered: V1.velmp",
                     }));
    EXPECT_EQ(run.errors,
              R"(JSON-START>>{"package":"V1.velmp","provider":"DemoStudio","vendorID":"V1",)"
              R"("files":[{"name":"first.mov","size":11,"skipped":false},)"
              R"({"name":"empty.mov","size":0,"skipped":false},)"
              R"({"name":"metadata.xml","size":)" +
                  size + R"(,"skipped":false}]}<<JSON-END)" + "\nNewPackageName = V1.velmp\n");
}

TEST_F(UploadTest, SkipsWhatTheStoreHasAndReplacesTheRest) {
    ASSERT_EQ(tool(arguments("upload", makePackage())).finish().exitCode, 0);
    {
        Child again = tool(arguments("upload", folder / "P.velmp"));
        const Progress progress(again.finish().output);
        EXPECT_EQ(progress.skips, 3);
        EXPECT_EQ(progress.percentLines, 0);
        EXPECT_EQ(progress.sent, progress.total);
    }
    // A stored file that is damaged counts as none, and one that the package lost goes.
    write(folder / "store/DemoStudio/V1.velmp/first.mov", "first filE\n");
    std::filesystem::remove(folder / "P.velmp/empty.mov");
    makePackage({{"first.mov", "first file\n", "ef5940958c334bb7cfc4f3da6ad0f8c3"}});
    Child run = tool(arguments("upload", folder / "P.velmp"));
    const Progress progress(run.finish().output);
    EXPECT_EQ(progress.skips, 0) << run.all();
    expectDelivered(folder / "P.velmp", "V1");
}

TEST_F(UploadTest, StartsAgainWhereItBrokeOff) {
    useScenario("restart=0@transfer:10\nrestart=0@transfer:60\n");
    const auto package = makeLargePackage(8);
    const Child run = finishedTool(arguments("upload", package));
    ASSERT_EQ(run.exitCode, 0) << run.all();
    const Progress progress(run.output);
    EXPECT_EQ(progress.restarts, 2);
    EXPECT_EQ(progress.sent, progress.total);
    expectDelivered(package, "LARGE");
}

TEST_F(UploadTest, AFileSentBeforeTheBreakIsSkippedAfterIt) {
    // The break comes in metadata.xml, the last file.
    useScenario("restart=0@transfer:100\n");
    Child run = tool(arguments("upload", makePackage()));
    const Progress progress(run.finish().output);
    EXPECT_EQ(progress.restarts, 1);
    EXPECT_EQ(progress.skips, 2) << run.all();
    EXPECT_EQ(progress.sent, progress.total);
    expectDelivered(folder / "P.velmp", "V1");
}

TEST_F(UploadTest, IsAloneWithItsPackageAndLeavesNothingWhenToldToEnd) {
    useScenario("hang=yes@transfer:50\n");
    const auto package = makeLargePackage(4);
    Strings words = arguments("upload", package);
    Child first = tool(words);
    ASSERT_TRUE(first.readUntil("hanging"));
    EXPECT_TRUE(std::filesystem::exists(incoming("LARGE")));
    environment["VELM_SANDBOX_SCENARIO"] = "";
    const Child second = finishedTool(words);
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.errors.find("(-24203)"), std::string::npos) << second.all();
    kill(first.pid, SIGTERM);
    first.finish();
    EXPECT_EQ(first.signal, SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(incoming("LARGE")));
    EXPECT_EQ(tool(words).finish().exitCode, 0);
    expectDelivered(package, "LARGE");
}

TEST_F(UploadTest, RecoversFromACrash) {
    useScenario("crash=KILL@transfer:50\n");
    const auto package = makeLargePackage(2);
    EXPECT_EQ(tool(arguments("upload", package)).finish().signal, SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(incoming("LARGE")));
    EXPECT_FALSE(std::filesystem::exists(folder / "store/DemoStudio/LARGE.velmp/large.mov"));
    environment["VELM_SANDBOX_SCENARIO"] = "";
    EXPECT_EQ(tool(arguments("upload", package)).finish().exitCode, 0);
    expectDelivered(package, "LARGE");
}
