#include <CommandLine/MetadataName.h>
#include <CommandLine/PackageInspection.h>
#include <Tests/CommandLine/VeltoFixture.h>
#include <Tests/Support/SmallDisk.h>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <ctime>
#include <regex>

namespace cli_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class PackageTest : public VeltoTest {
protected:
    static Strings create(const std::filesystem::path& video, const Strings& more = {}) {
        Strings words{"package", "create", video, "--provider", "DemoStudio", "--vendor-id", "V1"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    /// Packages and their parts beside a video.
    std::size_t packagesIn(const std::filesystem::path& place) const {
        return static_cast<std::size_t>(std::ranges::count_if(
            std::filesystem::directory_iterator(place),
            [](const auto& each) { return each.path().extension() == ".velmp"; }));
    }
};

TEST_F(PackageTest, WhatIsCreatedHoldsAndIsTakenByTheStore) {
    write(folder / "Ünser Film.mov", std::string(3'000'000, 'v'));
    const Child made =
        finished(create(folder / "Ünser Film.mov", {"--asset", "trailer", "--json"}));
    ASSERT_EQ(made.exitCode, 0) << made.all();
    EXPECT_EQ(made.errors, "");
    const Json result = objectsOf(made.output).back();
    const std::string package = result["package"];
    EXPECT_EQ(package, folder / "Ünser Film-UntitledVeltoStoreDelivery.velmp");
    EXPECT_EQ(result["assetType"], "preview");
    EXPECT_EQ(result["size"], 3'000'000);

    const Child inspected = finished({"package", "inspect", package + "/", "--json"});
    EXPECT_EQ(inspected.exitCode, 0) << inspected.all();
    const Json found = objectsOf(inspected.output).back();
    EXPECT_EQ(found["holds"], true);
    EXPECT_EQ(found["vendorID"], "V1");
    EXPECT_EQ(found["mediaType"], "Film");
    EXPECT_EQ(found["files"][0]["md5"], result["md5"]);
    EXPECT_EQ(found["files"][0]["name"], "Ünser Film.mov");

    const Child verified = finished(job("verify", package));
    EXPECT_EQ(verified.exitCode, 0) << verified.all();

    const Child again = finished(create(folder / "Ünser Film.mov"));
    EXPECT_THAT(again.output,
                AllOf(HasSubstr("Copying media to the package…\n"),
                      HasSubstr("Generated package: " + package.substr(0, package.size() - 6) +
                                "-1.velmp 2.8 MB in")));
    EXPECT_EQ(again.output.find("Generated"), again.output.rfind("Generated"));
}

TEST_F(PackageTest, RefusesWhatNoPackageCanBeMadeOf) {
    for (const char* name : {"a&b.mov", "metadata.xml", "new\nline.mov", "\xff.mov", "good.mov"})
        write(folder / name, "x");
    write(folder / "empty.mov", "");
    std::filesystem::create_symlink("good.mov", folder / "link.mov");
    std::filesystem::create_directory(folder / "folder.mov");
    const std::string longName(230, 'n');
    write(folder / longName, "x");
    std::filesystem::create_directory(folder / "piped.velmp");
    ASSERT_EQ(mkfifo((folder / "piped.velmp/metadata.xml").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((folder / "pipe.mov").c_str(), 0600), 0);
    const auto with = [&](const Strings& options) {
        Strings words{"package", "create", folder / "good.mov"};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    };
    const struct {
        Strings arguments;
        int exitCode;
        const char* said;
    } rows[] = {
        {create(folder / "none.mov"), 1, "No such file"},
        {create(folder / "a&b.mov"), 1, "the character &"},
        {create(folder / "metadata.xml"), 1, "bears this name"},
        {create(folder / "new\nline.mov"), 1, "U+000A"},
        {create(folder / "\xff.mov"), 1, "no valid UTF-8"},
        {create(folder / "link.mov"), 1, "/good.mov"},
        {create(folder / "folder.mov"), 1, "not a file"},
        {create(folder / "pipe.mov"), 1, "not a file"},
        {create(folder / "empty.mov"), 1, "empty"},
        {create(folder / longName), 1, "is too long for the package's folder"},
        {with({"--vendor-id", "V"}), 2, "needs --provider"},
        {with({"--provider", "P"}), 2, "needs --vendor-id"},
        {with({"--provider", "A&B", "--vendor-id", "V"}), 2, "the character &"},
        {with({"--provider", "P", "--vendor-id", "a\"b"}), 2, "the character \""},
        {with({"--provider", "P", "--vendor-id", "V", "--asset", "poster"}), 2, "poster"},
        {{"package", "create"}, 2, "needs VIDEO"},
        {{"package", "inspect", folder / "none.velmp"}, 1, "No such file"},
        {{"package", "inspect", folder / "folder.mov"}, 1, "package create"},
        {{"package", "inspect", folder / "piped.velmp"}, 1, "It is not a file"},
        {{"package", "mend"}, 2, "no command"},
    };
    for (const auto& row : rows) {
        const Child child = finished(row.arguments);
        SCOPED_TRACE(child.all());
        EXPECT_EQ(child.exitCode, row.exitCode) << row.said;
        EXPECT_THAT(child.errors, HasSubstr(row.said));
    }
    EXPECT_EQ(packagesIn(folder), 1U);
}

/// Behind a link to a folder, ".." is the folder above the one that it leads to.
TEST_F(PackageTest, TakesThePathAsTheSystemDoes) {
    std::filesystem::create_directories(folder / "x/y");
    std::filesystem::create_directory_symlink("x/y", folder / "ln");
    write(folder / "Film.mov", "wrong");
    write(folder / "x/Film.mov", "right one");
    Child made = velto(create(folder / "ln/.././Film.mov", {"--json"}));
    made.finish();
    EXPECT_EQ(made.exitCode, 0) << made.all();
    const Json result = objectsOf(made.output).back();
    EXPECT_EQ(result["size"], 9);
    EXPECT_EQ(result["package"].get<std::string>(),
              folder / "x/Film-UntitledVeltoStoreDelivery.velmp");
    Child inspected =
        velto({"package", "inspect", folder / "ln/../Film-UntitledVeltoStoreDelivery.velmp/./"});
    inspected.finish();
    EXPECT_EQ(inspected.exitCode, 0) << inspected.all();
}

TEST(MetadataName, TellsWhatWouldBeMalformed) {
    for (const char* fine : {"a", "A b-c_1.mov", "電影 🎬.mov", "it's", "\uFFFD", "a\u00A0b"})
        EXPECT_EQ(velto::cli::faultOfMetadataName(fine), "") << fine;
    for (const std::string& bad :
         {std::string(), std::string("a&"), std::string("<"), std::string("a>b"), std::string("\""),
          std::string("\t"), std::string("a\0b", 3), std::string("\x7f"), std::string("\xc2\x85"),
          std::string("\xc3"), std::string("\xed\xa0\x80"), std::string("\xef\xbf\xbe"),
          std::string(" a"), std::string("a "), std::string("a\u00A0")})
        EXPECT_NE(velto::cli::faultOfMetadataName(bad), "") << bad;
}

TEST_F(PackageTest, InspectTellsWhatDoesNotHold) {
    const std::string digest = "ef5940958c334bb7cfc4f3da6ad0f8c3";
    const std::string good = fileElement("first.mov", "11", digest);
    const struct {
        const char* name;
        std::string content;
        std::string metadata;
        const char* said;
    } rows[] = {
        {"another byte", "first filf\n", metadata(good), "its MD5 is"},
        {"a byte less", "first file", metadata(good), "it has 10 bytes, not 11"},
        {"no digest", "first file\n", metadata(fileElement("first.mov", "11", "")), "no MD5"},
        {"no size", "first file\n", metadata(fileElement("first.mov", "-1", digest)), "no number"},
        {"missing", "first file\n", metadata(fileElement("other.mov", "11", digest)), "missing"},
        {"above", "first file\n", metadata(fileElement("../secret", "11", digest)),
         "out of the package"},
        {"twice", "first file\n", metadata(good + good), "twice"},
        {"no file", "first file\n", metadata(""), "no file"},
        {"SHA-1", "first file\n", metadata(std::regex_replace(good, std::regex("md5"), "sha1")),
         "no MD5"},
        {"malformed", "first file\n", "<package", "metadata.xml cannot be read"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        write(folder / "P.velmp/first.mov", row.content);
        write(folder / "P.velmp/metadata.xml", row.metadata);
        const Child text = finished({"package", "inspect", folder / "P.velmp"});
        EXPECT_EQ(text.exitCode, 1);
        EXPECT_THAT(text.errors, HasSubstr(row.said));
        const Child json = finished({"package", "inspect", folder / "P.velmp", "--json"});
        EXPECT_EQ(json.exitCode, 1);
        const Json result = objectsOf(json.output).back();
        EXPECT_EQ(result["outcome"], "failed");
        EXPECT_FALSE(result.value("holds", false));
    }
    write(folder / "P.velmp/first.mov", "first file\n");
    write(folder / "P.velmp/metadata.xml", metadata(good));
    write(folder / "P.velmp/stranger", "?");
    const Child fine = finished({"package", "inspect", folder / "P.velmp"});
    EXPECT_EQ(fine.exitCode, 0) << fine.all();
    EXPECT_THAT(fine.output, AllOf(HasSubstr("11 bytes"), HasSubstr("does not tell of stranger")));
}

TEST_F(PackageTest, ReadsManyFilesInTimeByTheirNumber) {
    const auto seconds = [&](int count) {
        std::string files;
        for (int index = 0; index < count; ++index)
            files += fileElement("a file with a name of its own " + std::to_string(index), "1", "");
        write(folder / "P.velmp/metadata.xml", metadata(files));
        velto::cli::InspectedPackage package;
        velto::cli::Failure failure;
        const std::clock_t start = std::clock();
        EXPECT_TRUE(package.read(folder / "P.velmp", failure));
        return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    };
    EXPECT_LT(seconds(40'000), 8 * seconds(10'000) + 0.05);
}

/// The next one takes its name and its room.
TEST_F(PackageTest, TakesOverWhatAKilledOneLeft) {
    write(folder / "movie.mov", std::string(50'000'000, 'v'));
    for (const int signal : {SIGKILL, 0}) {
        Child child = velto(create(folder / "movie.mov"));
        ASSERT_TRUE(child.readUntil("Copying media")) << child.all();
        kill(child.pid, signal);
        child.finish();
    }
    EXPECT_EQ(packagesIn(folder), 1U);
    const Child inspected =
        finished({"package", "inspect", folder / "movie-UntitledVeltoStoreDelivery.velmp"});
    EXPECT_EQ(inspected.exitCode, 0) << inspected.all();
    EXPECT_EQ(inspected.output.find("Warning"), std::string::npos) << inspected.all();
}

/// In whatever phase it comes: nothing is left, and the last line says so.
TEST_F(PackageTest, CtrlCLeavesNothingBehind) {
    const auto video = folder / "movie.mov";
    write(video, "x");
    // A hole of a tebibyte is digested for longer than any test waits.
    std::filesystem::resize_file(video, std::uintmax_t{1} << 40);
    Child child = velto(create(video, {"--json"}));
    ASSERT_TRUE(child.readUntil("\"completed\"")) << child.all();
    kill(child.pid, SIGINT);
    child.finish();
    EXPECT_EQ(child.exitCode, 130);
    const Json result = objectsOf(child.output).back();
    EXPECT_EQ(result["outcome"], "stopped");
    EXPECT_THAT(result["what"].get<std::string>(), HasSubstr("The unfinished package was removed"));
    EXPECT_EQ(packagesIn(folder), 0U);

    write(video, std::string(50'000'000, 'v'));
    unsigned whole = 0;
    for (unsigned round = 0; round < 3; ++round) {
        Child stopped = velto(create(video));
        // The last word before the copy, so that the signal comes while it runs or soon after.
        ASSERT_TRUE(stopped.readUntil("Copying media")) << stopped.all();
        kill(stopped.pid, SIGINT);
        stopped.finish();
        SCOPED_TRACE(stopped.all());
        if (stopped.exitCode == 0) {
            ++whole;
        } else {
            EXPECT_EQ(stopped.exitCode, 130);
            EXPECT_THAT(stopped.errors, HasSubstr("The unfinished package was removed: "));
        }
        EXPECT_EQ(packagesIn(folder), whole);
    }
}

/// The disk is full before the copy is whole: the reason, no package, and room again.
TEST_F(PackageTest, AFullDiskLeavesNothingBehind) {
    if (velto::testing::ranOnSmallDisk(4))
        return;
    const auto disk = velto::testing::smallDisk();
    constexpr std::size_t page = 4096;
    write(disk / "movie.mov", std::string(300 * page, 'v'));
    // One page too few for the copy, which shows at once; then none for the metadata.
    const std::size_t room = std::filesystem::space(disk).available / page;
    const struct {
        std::size_t filled;
        const char* remains;
    } rows[] = {{room - 299, "No package can be made"},
                {room - 300, "The unfinished package was removed"}};
    for (const auto& row : rows) {
        write(disk / "filler", std::string(row.filled * page, 'f'));
        Child child = velto(create(disk / "movie.mov"));
        child.finish();
        EXPECT_EQ(child.exitCode, 1) << child.all();
        EXPECT_THAT(child.errors, AllOf(HasSubstr("No space left on device"),
                                        HasSubstr("Make room"), HasSubstr(row.remains)));
        EXPECT_EQ(packagesIn(disk), 0U);
    }
}

}  // namespace
}  // namespace cli_test
