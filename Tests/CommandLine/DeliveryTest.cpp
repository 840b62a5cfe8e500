#include <Tests/CommandLine/VeltoFixture.h>

#include <gmock/gmock.h>

#include <sys/resource.h>

#include <algorithm>

namespace cli_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using DeliveryTest = VeltoTest;

TEST_F(DeliveryTest, UploadDeliversWhatThePackageHolds) {
    const auto package = makePackage();
    const Child upload = finished(job("upload", package));
    EXPECT_EQ(upload.exitCode, 0) << upload.all();
    EXPECT_EQ(upload.errors, "");
    EXPECT_THAT(upload.output, AllOf(HasSubstr("Verifying metadata with the Velto Store…\n"),
                                     HasSubstr("Uploaded package to the Velto Store. V1.velmp")));
    for (const char* name : {"first.mov", "empty.mov", "metadata.xml"})
        EXPECT_EQ(contentOf(folder / "store/DemoStudio/V1.velmp" / name),
                  contentOf(package / name));
    EXPECT_THAT(finished(job("upload", package)).output, HasSubstr("(all of it there already)"));
    write(folder / "store/DemoStudio/V1.velmp/first.mov", "another\n");
    EXPECT_THAT(finished(job("upload", package)).output, HasSubstr("(11 bytes sent, "));
}

TEST_F(DeliveryTest, WhatTheToolPrintsIsKeptOnce) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer keeps more than the program does";
#endif
    useScenario("flood=32@signed-in\nerror=x\n");
    EXPECT_EQ(finished(job("verify", makePackage())).exitCode, 1);
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_LT(usage.ru_maxrss / 1024, 3 * 64 + 16) << "MiB, of both pipes and the program itself";
}

/// How each kind of end looks to a script and to a person.
TEST_F(DeliveryTest, EachKindOfEndHasItsExitCodeAndSaysWhyAndWhatNext) {
    const std::string package = makePackage();
    write(folder / "damaged.velmp/first.mov", "First file\n");
    write(folder / "damaged.velmp/metadata.xml",
          metadata(fileElement("first.mov", "11", "ef5940958c334bb7cfc4f3da6ad0f8c3")));
    write(folder / "no-token.plist", "<plist><dict/></plist>");
    write(folder / "broken.toml", "this is = = no TOML\n");
    const std::string planted = folder / "planted/VelmDrovan";
    write(planted, "#!/bin/sh\n");
    std::filesystem::permissions(planted, std::filesystem::perms{0777});
    write(folder / "text", "echo\n");
    write(folder / "elf",
          "\x7f"
          "ELF junk");
    write(folder / "script", "#! /none/sh -e\n");
    for (const char* name : {"text", "script", "elf"})
        std::filesystem::permissions(folder / name, std::filesystem::perms(0700));
    const Strings verify = job("verify", package);
    const Strings upload = job("upload", package);
    const auto with = [&](const Strings& options) { return job("verify", package, options); };
    const auto as = [&](const char* user) {
        return Strings{"verify", package, "-u", std::string(user) + "@sandbox.invalid"};
    };
    const auto password = [](const char* value) {
        return sandbox_test::Environment{{"VELTO_PASSWORD", value}};
    };
    const auto session = [](const char* identifier, const char* secret) {
        return sandbox_test::Environment{{"VELTO_PASSWORD", ""},
                                         {"VELTO_SESSION_ID", identifier},
                                         {"VELTO_SHARED_SECRET", secret}};
    };
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Strings noToken = with({"--token-file", folder / "no-token.plist"});
    const Strings noKey{"verify",   package,  "--api-key",    "NOKEY",
                        "--issuer", "nobody", "--key-folder", folder};
    const struct {
        const char* name;
        Strings arguments;
        sandbox_test::Environment variables;
        const char* scenario;
        int exitCode;
        const char* said;
    } rows[] = {
        {"verified", verify, {}, "", 0, ""},
        {"with a slash", job("verify", package + "/"), {}, "", 0, ""},
        {"damaged", job("verify", folder / "damaged.velmp"), {}, "", 1, "Put the right file"},
        {"no package", job("upload", folder / "none.velmp"), {}, "", 1, "No such file"},
        {"two providers", as("house"), password("house-password"), "", 1, "Name one of"},
        {"the tool says so", verify, {}, "error=Out of paper (-47)\n", 1, "Out of paper (-47)"},
        {"no operand", {"upload"}, {}, "", 2, "needs PACKAGE"},
        {"unknown option", with({"--quite"}), {}, "", 2, "--quiet"},
        {"unknown command", {"uplaod"}, {}, "", 2, "upload"},
        {"a grace that is none", with({"--grace", "soon"}), {}, "", 2, "soon"},
        {"no throttle", job("upload", package, {"--throttle", "0"}), {}, "", 2, "kilobits"},
        {"no transport", job("upload", package, {"--transport", "dav"}), {}, "", 2, "DAV"},
        {"a port that is none", verify, {{"VELTO_VELTODROVANPROXYPORT", "x"}}, "", 2, "65535"},
        {"a value for a switch", with({"--no-checksum=no"}), {}, "", 2, "takes no value"},
        {"unknown setting", with({"--set", "Nonsense=1"}), {}, "", 2, "Nonsense"},
        {"settings of a pipe", with({"--config", pipe}), {}, "", 2, "It is not a file."},
        {"broken settings", with({"--config", folder / "broken.toml"}), {}, "", 2, "broken.toml"},
        {"no credentials", verify, password(""), "", 2, "VELTO_PASSWORD"},
        {"no user", {"verify", package}, {}, "", 2, "--user"},
        {"half a session", verify, session("demo-session", ""), "", 2, "VELTO_SHARED_SECRET"},
        {"two forms", with({"--token-file", "x", "--api-key", "y"}), {}, "", 2, "Give one"},
        {"wrong password", verify, password("wrong"), "", 4, "(-20101)"},
        {"quiet", with({"--quiet"}), password("wrong"), "", 4, "(-20101)"},
        {"locked", as("locked"), {}, "", 4, "(-20209)"},
        {"wrong session", verify, session("no", "no"), "", 4, "(-20283)"},
        {"app-specific", as("twostep"), password("twostep-password"), "", 4, "(-22938)"},
        {"no token", with({"--token-file", folder / "none.plist"}), {}, "", 4, "none.plist"},
        {"a token of a pipe", with({"--token-file", pipe}), {}, "", 4, "pipe: it is not a file"},
        {"no token in it", noToken, {}, "", 4, "It has no text “rovquill”"},
        {"a token file for all to read", noToken, {}, "", 4, "chmod 600"},
        {"a token file of another kind",
         with({"--token-file", folder / "broken.toml"}),
         {},
         "",
         4,
         "no property list"},
        {"no key file", noKey, {}, "", 4, "NOKEY"},
        {"sign-in wins", verify, {}, "error=Odd (-4)\nerror=Late (-20283)\n", 4, "Late"},
        {"ends in the transfer", upload, {}, "exit=0@transfer\n", 5, "confirming the delivery"},
        {"ends in the check", verify, {}, "exit=0@checked\n", 5, "confirming that the package"},
        {"tells an error",
         upload,
         {},
         "error=Bad (-8)\nerror-style=lines\nexit=0@end\n",
         5,
         "Why:  Bad (-8)"},
        {"exit status", upload, {}, "exit=9@signed-in\n", 5, "the exit status 9."},
        {"crash", upload, {}, "crash=SEGV@signed-in\n", 5, "the signal SIGSEGV."},
        {"no tool", with({"--tool", folder / "nothing"}), {}, "", 6, "--tool PATH"},
        {"planted tool", with({"--tool", planted}), {}, "", 6, "chmod go-w"},
        {"a folder", with({"--tool", folder}), {}, "", 6, "is a folder"},
        {"no program", with({"--tool", folder / "text"}), {}, "", 6, "is no program"},
        {"of another machine", with({"--tool", folder / "elf"}), {}, "", 6, "not a program"},
        {"no interpreter", with({"--tool", folder / "script"}), {}, "", 6, "/none/sh"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto before = environment;
        for (const auto& [name, value] : row.variables)
            environment[name] = value;
        useScenario(row.scenario);
        const Child child = finished(row.arguments);
        environment = before;
        EXPECT_EQ(child.exitCode, row.exitCode) << child.all();
        EXPECT_THAT(child.errors, HasSubstr(row.said));
        if (row.exitCode == 0) {
            EXPECT_EQ(child.errors, "");
            continue;
        }
        EXPECT_THAT(child.errors, StartsWith("velto: "));
        EXPECT_THAT(child.errors, HasSubstr("\n  Next: "));
        if (row.exitCode != 2) {
            EXPECT_THAT(child.errors, HasSubstr("\n  Why:  "));
        }
    }
}

/// What is asked for must be heard; what has been done is done.
TEST_F(DeliveryTest, AnOutputThatCannotBeWrittenUndoesNothing) {
    int left[2];
    ASSERT_EQ(pipe(left), 0);
    close(left[0]);
    environment["VELTO"] = velto::testing::veltoProgram();
    environment["PACKAGE"] = makePackage();
    const std::string verify = "verify \"$PACKAGE\" -u demo@sandbox.invalid ";
    const std::string noReader = ">&" + std::to_string(left[1]);
    const struct {
        std::string command;
        int exitCode;
        const char* said;
    } rows[] = {
        {verify + ">/dev/full", 0, "No space left"},
        {verify + "--json >/dev/full", 0, "No space left"},
        {verify + noReader, 0, ""},
        {"config list >/dev/full", 1, "No space left"},
        {"config list --json >/dev/full", 1, "No space left"},
        {"config list " + noReader, 0, ""},
        {"digest --check <(md5sum \"$PACKAGE\"/*) " + noReader, 1, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        const Child child(Child::ToItsEnd(), "/bin/bash", {"-c", "exec \"$VELTO\" " + row.command},
                          environment);
        EXPECT_EQ(child.exitCode, row.exitCode);
        EXPECT_EQ(child.errors.empty(), *row.said == 0) << child.errors;
        EXPECT_THAT(child.errors, HasSubstr(row.said));
    }
    close(left[1]);
}

TEST_F(DeliveryTest, SignalsThatTheParentIgnoredAreNotLost) {
    const Child child(Child::ToItsEnd(), "/usr/bin/env",
                      {"--ignore-signal=CHLD", "--block-signal", velto::testing::veltoProgram(),
                       "verify", makePackage(), "-u", "demo@sandbox.invalid"},
                      environment);
    EXPECT_EQ(child.exitCode, 0) << child.all();
}

TEST_F(DeliveryTest, ALocaleWithoutUTF8GetsItsOwnCharacters) {
    environment["LC_ALL"] = "C";
    const Child verify = finished(job("verify", makePackage()));
    EXPECT_THAT(verify.output, HasSubstr("Verifying metadata with the Velto Store...\n"));
    EXPECT_TRUE(std::ranges::all_of(verify.output, [](char byte) { return (byte & 0x80) == 0; }));
    const Child missing = finished({"upload", "‘nø’ ✓", "-u", "x"});
    EXPECT_THAT(missing.errors, HasSubstr("/'n?' ?: No such file"));
    // Programs read JSON, which is in UTF-8, and names, which are bytes.
    const Child json = finished({"upload", "‘nø’", "-u", "x", "--json"});
    EXPECT_THAT(json.output, HasSubstr("/‘nø’: No such file"));
    write(folder / "nø", "");
    EXPECT_THAT(finished({"digest", folder / "nø"}).output, ::testing::EndsWith("/nø\n"));
}

TEST_F(DeliveryTest, EveryFormOfCredentialsSignsIn) {
    const std::string package = makePackage();
    write(folder / "token.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
          "<key>rovquill</key><string>demo-token</string></dict></plist>");
    ASSERT_EQ(Child(velto::testing::sourceFolder() / "Sandbox/make-key",
                    {"OURKEY", "our-issuer", "DemoStudio", folder / "keys"}, {})
                  .finish()
                  .exitCode,
              0);
    const struct {
        const char* name;
        Strings options;
        sandbox_test::Environment variables;
    } rows[] = {
        {"session",
         {"--user", "demo@sandbox.invalid"},
         {{"VELTO_SESSION_ID", "demo-session"}, {"VELTO_SHARED_SECRET", "demo-shared-secret"}}},
        {"token", {"--user", "demo@sandbox.invalid", "--token-file", folder / "token.plist"}, {}},
        {"API key",
         {"--api-key", "OURKEY", "--issuer", "our-issuer", "--key-folder", folder / "keys"},
         {{"VELM_SANDBOX_ACCOUNTS", folder / "keys/accounts.json"}}},
    };
    environment["VELTO_PASSWORD"] = "";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto before = environment;
        for (const auto& [name, value] : row.variables)
            environment[name] = value;
        Strings words{"verify", package};
        words.insert(words.end(), row.options.begin(), row.options.end());
        const Child child = finished(words);
        environment = before;
        EXPECT_EQ(child.exitCode, 0) << child.all();
    }
}

TEST_F(DeliveryTest, ThePasswordComesFromStandardInput) {
    write(folder / "password", "demo-password\nnot this\n");
    environment["VELTO_PASSWORD"] = "wrong";
    environment["VELTO"] = velto::testing::veltoProgram();
    environment["PACKAGE"] = makePackage();
    environment["FOLDER"] = folder;
    Child child("/bin/sh",
                {"-c",
                 "\"$VELTO\" verify \"$PACKAGE\" -u demo@sandbox.invalid --password-stdin "
                 "<\"$FOLDER/password\""},
                environment);
    child.finish();
    EXPECT_EQ(child.exitCode, 0) << child.all();
}

TEST_F(DeliveryTest, JSONIsAnObjectALineThatEndsWithTheResult) {
    const std::string package = makeLargePackage(8);
    useScenario("slow=8000000\nwarning=Careful: \"quoted\" \\ and\ttabbed\ninfo=Be it known\n");
    const Child child = finished(job("upload", package, {"--json"}));
    ASSERT_EQ(child.exitCode, 0) << child.all();
    EXPECT_EQ(child.errors, "");
    const std::vector<Json> objects = objectsOf(child.output);
    std::map<std::string, int> counts;
    double percent = 0;
    for (const Json& object : objects) {
        ++counts[object["type"]];
        if (object["type"] == "progress" && object.contains("size")) {
            EXPECT_GE(object["percent"], percent);
            percent = object["percent"];
            EXPECT_LE(object["completed"], object["size"]);
        }
    }
    EXPECT_GE(counts["phase"], 4);
    EXPECT_GE(counts["progress"], 1);
    EXPECT_EQ(counts["message"], 2);
    EXPECT_EQ(counts["result"], 1);
    const Json& result = objects.back();
    EXPECT_EQ(result["type"], "result");
    EXPECT_EQ(result["outcome"], "done");
    EXPECT_EQ(result["exitCode"], 0);
    EXPECT_GE(result["size"], 8 << 20);
    EXPECT_EQ(result["packageName"], "LARGE.velmp");
    EXPECT_EQ(result["warnings"], Json::array({"Careful: \"quoted\" \\ and\ttabbed"}));
    EXPECT_EQ(result["output"]["provider"], "DemoStudio");
}

TEST_F(DeliveryTest, JSONOfAFailureTellsItsErrors) {
    environment["VELTO_PASSWORD"] = "wrong";
    const Child child = finished(job("verify", makePackage(), {"--json", "--quiet"}));
    EXPECT_EQ(child.exitCode, 4);
    EXPECT_EQ(child.errors, "");
    const std::vector<Json> objects = objectsOf(child.output);
    ASSERT_EQ(objects.size(), 1U);
    EXPECT_EQ(objects[0]["outcome"], "failed");
    EXPECT_EQ(objects[0]["exitCode"], 4);
    EXPECT_EQ(objects[0]["errors"][0]["code"], -20101);
    EXPECT_EQ(objects[0]["errors"][0]["domain"], "VeltoDrovanErrorDomain");

    environment["VELTO_PASSWORD"] = "demo-password";
    useScenario("exit=0@transfer:50\nskip=empty.mov\n");
    const Json result = objectsOf(finished(job("upload", makePackage(), {"--json"})).output).back();
    EXPECT_EQ(result["outcome"], "unconfirmed");
    EXPECT_EQ(result["exitCode"], 5);
    EXPECT_EQ(result["skipped"], 0);
    EXPECT_EQ(result["completed"], result["sent"]);
}

TEST_F(DeliveryTest, WithoutATerminalThereAreNoEscapeCodes) {
    const std::string package = makePackage();
    useScenario("warning=A\x1b[31mred\x07 warning\r\n");
    for (const Strings& options :
         {Strings{}, Strings{"--verbose"}, Strings{"--json"}, Strings{"--quiet"}}) {
        SCOPED_TRACE(options.empty() ? "plain" : options.front());
        const Child child = finished(job("upload", package, options));
        EXPECT_EQ(child.exitCode, 0);
        EXPECT_EQ((child.output + child.errors).find_first_of("\x1b\r\x07"), std::string::npos)
            << child.all();
        EXPECT_EQ(child.errors.empty(), options != Strings{"--verbose"}) << child.all();
        EXPECT_EQ(child.output.empty(), options == Strings{"--quiet"}) << child.all();
    }
}

TEST_F(DeliveryTest, AReaderWhoLeavesDoesNotEndTheDelivery) {
    environment["VELTO"] = velto::testing::veltoProgram();
    environment["PACKAGE"] = makePackage();
    Child child("/bin/bash",
                {"-c",
                 "\"$VELTO\" upload \"$PACKAGE\" -u demo@sandbox.invalid | head -c 1 >/dev/null; "
                 "exit ${PIPESTATUS[0]}"},
                environment);
    child.finish();
    EXPECT_TRUE(std::filesystem::exists(folder / "store/DemoStudio/V1.velmp/metadata.xml"))
        << child.all();
}

TEST_F(DeliveryTest, ToolCommandIsWhatUploadRuns) {
    const std::string package = makePackage();
    const Strings options{"--transport", "Signiant", "--provider", "DemoStudio", "--no-checksum"};
    Strings command{"tool",  "command", "upload", package, "--user", "demo@sandbox.invalid",
                    "--json"};
    command.insert(command.end(), options.begin(), options.end());
    const Child shown = finished(command);
    ASSERT_EQ(shown.exitCode, 0) << shown.all();
    Json expected = objectsOf(shown.output).back()["arguments"];
    // What is not given comes from the settings.
    write(folder / "c.toml",
          "VeltoUsername = 'demo@sandbox.invalid'\nVeltoTransport = 'Signiant'\n"
          "VeltoProviderShortname = 'DemoStudio'\n");
    const Child set = finished({"tool", "command", "upload", package, "--json", "--no-checksum",
                                "--config", folder / "c.toml"});
    ASSERT_EQ(set.exitCode, 0) << set.all();
    Json fromSettings = objectsOf(set.output).back()["arguments"];

    useScenario("record=" + (folder / "record").string() + "\nrecord-values=yes\n");
    const Child upload = finished(job("upload", package, options));
    ASSERT_EQ(upload.exitCode, 0) << upload.all();
    Json arguments = Json::parse(contentOf(folder / "record"))["arguments"];
    // The variable of the password has another name each time.
    for (Json* list : {&expected, &fromSettings, &arguments})
        for (Json& argument : *list)
            if (argument.get<std::string>().starts_with("@env:"))
                argument = "@env:NAME";
    EXPECT_EQ(expected, arguments);
    EXPECT_EQ(fromSettings, arguments);
    EXPECT_NE(std::ranges::find(arguments, Json("-t")), arguments.end());
}

TEST_F(DeliveryTest, TheToolIsFoundAndAsked) {
    const std::string tool = velto::testing::sandboxFolder() / "velm/bin/VelmDrovan";
    Child located = velto({"tool", "locate"});
    EXPECT_EQ(located.finish().output, tool + "\n") << located.all();
    Child version = velto({"tool", "version"});
    EXPECT_EQ(version.finish().output, "Velm Drovan, version 1.0.0\n") << version.all();
    Child another = velto({"tool", "version", "--tool", "/bin/echo"});
    EXPECT_EQ(another.finish().exitCode, 6) << another.all();
    EXPECT_EQ(another.output, "");
    useScenario("exit=3@start\n");
    Child broken = velto({"tool", "version"});
    EXPECT_EQ(broken.finish().exitCode, 5) << broken.all();
}

}  // namespace
}  // namespace cli_test
