#include <Tests/CommandLine/VeltoFixture.h>

#include <sys/stat.h>

namespace cli_test {
namespace {

/// `velto digest` beside the real md5sum, in a folder of its own.
class DigestTest : public VeltoTest {
protected:
    DigestTest() {
        std::filesystem::create_directories(files);
        write("abc", "abc");
        write("empty", "");
        write("with space ", "a name");
        write("line\nfeed", "a name");
        write("back\\slash\r", "a name");
        write("large", std::string(1000001, 'x'));
    }

    void write(const std::string& name, const std::string& bytes) const {
        std::ofstream(files / name, std::ios::binary) << bytes;
    }

    Child run(const std::string& program, const std::string& arguments) const {
        return Child("/bin/sh", {"-c", "cd '" + files.string() + "' && " + program + arguments},
                     environment);
    }
    Child velto(const std::string& arguments) const {
        return run("'" + velto::testing::veltoProgram().string() + "' digest ", arguments);
    }

    const std::filesystem::path files = folder / "files";
};

TEST_F(DigestTest, PrintsAndChecksAsTheRealOne) {
    const std::string sum = "900150983cd24fb0d6963f7d28e17f72";
    const std::string none = std::string(32, '0');
    write("all", run("md5sum ", "*").finish().output);
    write("tagged", run("md5sum ", "--tag *").finish().output);
    write("binary", run("md5sum ", "-b *").finish().output);
    write("mixed", "# a comment\n\n" + sum + "  abc\r\n \t" + sum + " *abc\n" + none + "  abc\n" +
                       none + "  missing\nnot a line\n" + sum + " abc\n" + sum + " \n\\" + sum +
                       "  a\\bc\nMD5 (abc) = " + sum + "\nMD5(abc)=" + sum + "\nMD5 abc = " + sum +
                       "\nMD5 (abc) " + sum + "\nMD5 (abc) = 0\n" + sum + "  -");
    write("bare", "900150983CD24FB0D6963F7D28E17F72 abc\n" + sum + "  abc\n");
    write("wrong", none + "  abc\n" + none + "  empty");
    write("unreadable", sum + "  missing\n");
    std::filesystem::create_symlink("loop", files / "loop");
    write("loops", sum + "  abc\n" + sum + "  loop\n");
    write("one of each", none + "  abc\n" + sum + "  missing\nnot a line\n");
    for (const std::string arguments : {"*",
                                        "abc - < large",
                                        "- < /dev/null",
                                        "missing abc .",
                                        "-- abc",
                                        "-c all",
                                        "-c tagged binary",
                                        "-c mixed < abc",
                                        "-c - < all",
                                        "-c - < mixed",
                                        "-c bare",
                                        "-c wrong unreadable",
                                        "-c 'one of each'",
                                        "-c --quiet all mixed",
                                        "-c abc empty missing",
                                        "-c large",
                                        "-c - < /dev/null",
                                        "-c --status wrong missing",
                                        "-c --strict all mixed",
                                        "-c --ignore-missing unreadable 'one of each' loops",
                                        "-c -w mixed"}) {
        SCOPED_TRACE(arguments);
        Child theirs = run("md5sum ", arguments);
        theirs.finish();
        Child ours = velto(arguments);
        ours.finish();
        EXPECT_EQ(ours.output, theirs.output);
        std::string errors;
        for (const std::string& line : linesOf(theirs.errors)) {
            const std::size_t name = std::string_view("md5sum: ").size();
            std::string text = line.substr(name);
            // The real one puts some names into quotes.
            std::erase(text, '\'');
            errors += "velto: " + text + "\n";
        }
        EXPECT_EQ(ours.errors, errors);
        EXPECT_EQ(ours.exitCode, theirs.exitCode);
    }
}

TEST_F(DigestTest, JSONTellsTheSame) {
    Child sums = velto("--json abc missing");
    auto objects = objectsOf(sums.finish().output);
    ASSERT_EQ(objects.size(), 2U);
    EXPECT_EQ(objects[0]["file"], "abc");
    EXPECT_EQ(objects[0]["md5"], "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(objects[1]["outcome"], "failed");
    EXPECT_EQ(objects[1]["why"], Json{"missing: No such file or directory"});
    EXPECT_EQ(sums.exitCode, 1);
    EXPECT_EQ(sums.errors, "");

    write("list", "900150983cd24fb0d6963f7d28e17f72  abc\n" + std::string(32, '0') + "  empty\n" +
                      std::string(32, '0') + "  missing\nnot a line\n");
    Child check = velto("--json --check list");
    objects = objectsOf(check.finish().output);
    ASSERT_EQ(objects.size(), 4U);
    EXPECT_EQ(objects[0]["outcome"], "ok");
    EXPECT_EQ(objects[1]["outcome"], "wrong");
    EXPECT_EQ(objects[1]["md5"], "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(objects[2]["outcome"], "unreadable");
    EXPECT_EQ(objects[3]["checked"], 3);
    EXPECT_EQ(objects[3]["wrong"], 1);
    EXPECT_EQ(objects[3]["unreadable"], 1);
    EXPECT_EQ(objects[3]["malformed"], 1);
    EXPECT_EQ(objects[3]["exitCode"], 1);
    EXPECT_EQ(check.exitCode, 1);

    Child mistyped = velto("--json --no-such-option abc");
    EXPECT_EQ(objectsOf(mistyped.finish().output).back()["exitCode"], 2);

    Child good = velto("--json abc");
    EXPECT_EQ(objectsOf(good.finish().output).back()["outcome"], "done");
    EXPECT_EQ(good.exitCode, 0);
}

/// A film instead of a list, and an output that nobody reads.
TEST_F(DigestTest, EndsSoonWhereThereIsNothingToDo) {
    std::filesystem::resize_file(files / "empty", 300'000'000);
    Child noList = velto("--check empty");
    noList.finish();
    EXPECT_EQ(noList.exitCode, 1);
    EXPECT_EQ(noList.errors, "velto: empty: no properly formatted checksum lines found\n");

    Child closed = velto("- <&-");
    closed.finish();
    EXPECT_EQ(closed.exitCode, 1);
    EXPECT_EQ(closed.errors, "velto: -: Bad file descriptor\n");

    std::filesystem::resize_file(files / "empty", std::uintmax_t{1} << 40);
    Child unread = run("'" + velto::testing::veltoProgram().string() + "' digest ",
                       "abc abc empty > /dev/full");
    unread.finish();
    EXPECT_EQ(unread.exitCode, 1);
}

TEST_F(DigestTest, AnInterruptEndsItAtOnce) {
    const std::filesystem::path pipe = files / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Child child = VeltoTest::velto({"digest", pipe, "--json"});
    // Opens when velto has opened the other end, and is about to read.
    const int writing = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(writing, 0);
    kill(child.pid, SIGINT);
    child.finish();
    close(writing);
    EXPECT_EQ(child.exitCode, 130);
    const std::vector<Json> objects = objectsOf(child.output);
    ASSERT_EQ(objects.size(), 1U);
    EXPECT_EQ(objects.front()["command"], "digest");
    EXPECT_EQ(objects.front()["outcome"], "stopped");
}

}  // namespace
}  // namespace cli_test
