#include <VeltoConnectFoundation/DeliveryTool/VeltoDrovanUploadWorker.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Files/VeltoPackageSource.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Support/ScopedUserDefaults.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;
using velto::Dictionary;
using velto::testing::CapturedLog;
using velto::testing::ScopedUserDefaults;
using Text = std::optional<std::string>;

/// Opens the hooks, so that a run can be played line by line.
class PlayedWorker : public VeltoDrovanUploadWorker {
public:
    using VeltoDrovanUploadWorker::drovanWillStart;
    using VeltoDrovanUploadWorker::VeltoDrovanUploadWorker;
};

std::shared_ptr<VeltoPackageSource> packageSource() {
    auto source = std::make_shared<VeltoPackageSource>();
    source->setStoreType(2);
    source->setUsername("o'hara");
    source->setPackagePath("/packages/A B.velmp");
    return source;
}

std::shared_ptr<PlayedWorker> workerFor(std::shared_ptr<VeltoPackageSource> source,
                                        bool verifyOnly = false) {
    return velto::make<PlayedWorker>(std::move(source), verifyOnly);
}

std::vector<std::string> startArguments(const std::shared_ptr<VeltoPackageSource>& source,
                                        bool verifyOnly = false) {
    const std::shared_ptr<PlayedWorker> worker = workerFor(source, verifyOnly);
    worker->drovanWillStart();
    return worker->arguments();
}

TEST(UploadWorker, BuildsItsCommandLineInOrder) {
    const ScopedUserDefaults defaults;
    const auto source = packageSource();
    EXPECT_THAT(startArguments(source, true),
                ElementsAre("-m", "verify", "-u", "'o'\\''hara'", "-vp", "json", "-f",
                            "'/packages/A B.velmp'", "-indicator", "true", "-v", "eXtreme"));
    source->setUsername("");
    source->setProviderShortName("Provider");
    source->setTransport("Signiant");
    source->setClientName("Client");
    source->setVersionString("1.2");
    EXPECT_THAT(
        startArguments(source),
        ElementsAre("-m", "upload", "-u", "zarnet", "-vp", "json", "-s", "'Provider'", "-t",
                    "Signiant", "-k", "100000", "-f", "'/packages/A B.velmp'", "-indicator", "true",
                    "-v", "eXtreme", "-Ddrovan.client='Client'", "-Ddrovan.client.version='1.2'"));
    source->setVTCProviderShortName("Other");
    EXPECT_THAT(startArguments(source),
                ::testing::AllOf(Contains("-vtc_provider"), Not(Contains("-s"))));
}

TEST(UploadWorker, NamesTransportAndThrottleBySettings) {
    ScopedUserDefaults defaults;
    const auto source = packageSource();
    source->setTransport("DAV");
    EXPECT_THAT(startArguments(source), IsSupersetOf({"-t", "DAV"}));
    defaults.set("SendDAVTransport", false);
    EXPECT_THAT(startArguments(source), ::testing::AllOf(Not(Contains("-t")), Not(Contains("-k"))));
    defaults.set("DefaultTransportThrottle", "5000");
    EXPECT_THAT(startArguments(source), IsSupersetOf({"-k", "5000"}));
    EXPECT_FALSE(VeltoDrovanUploadWorker::appendTransport(std::nullopt));
    defaults.set("velmDrovanServiceAddress", "https://service.invalid");
    const auto worker = workerFor(source);
    worker->setChecksumEnabled(false);
    worker->drovanWillStart();
    EXPECT_THAT(worker->arguments(), IsSupersetOf({"-checksumValidation", "false",
                                                   "-serviceAddress", "https://service.invalid"}));
}

/// The value of the variable that an "@env:" argument names.
std::string variable(const PlayedWorker& worker, std::string_view option) {
    const std::vector<std::string> arguments = worker.arguments();
    const auto found = std::ranges::find(arguments, option);
    if (found == arguments.end() || !(found + 1)->starts_with("@env:")) {
        return "(no variable)";
    }
    return std::string((*worker.environment())[std::string_view(*(found + 1)).substr(5)].string());
}

TEST(UploadWorker, PassesTheFirstCredentialThatApplies) {
    const ScopedUserDefaults defaults;
    const auto source = packageSource();
    source->setPassword("canary-password");
    const auto authentication = VeltoAuthenticationContextImpl::contextWithHttpHeaders({}, "", {});
    source->setAuthentication(authentication);
    const auto start = [&] {
        auto worker = workerFor(source);
        worker->drovanWillStart();
        for (const std::string& argument : worker->arguments()) {
            EXPECT_THAT(argument, Not(::testing::HasSubstr("canary")));
        }
        return worker;
    };
    EXPECT_EQ(variable(*start(), "-p"), "canary-password");
    authentication->setSessionID("canary-session");
    EXPECT_EQ(variable(*start(), "-p"), "canary-password")
        << "a session without its secret is none";
    authentication->setSharedSecret("canary-shared");
    const auto worker = start();
    EXPECT_EQ(variable(*worker, "-sessionid"), "canary-session");
    EXPECT_EQ(variable(*worker, "-sharedsecret"), "canary-shared");
    EXPECT_THAT(worker->arguments(), Not(Contains("-p")));
}

TEST(UploadWorker, PassesHeadersDataCentersAndKeys) {
    const ScopedUserDefaults defaults;
    const auto source = packageSource();
    const auto headers = VeltoAuthenticationContextImpl::contextWithHttpHeaders(
        {{"Authorization", std::string(90, 'x')}}, "", {});
    headers->setTxHeaders({{"a", "b"}});
    headers->setDataCenters({"east", "west"});
    source->setAuthentication(headers);
    const auto worker = workerFor(source);
    worker->drovanWillStart();
    const std::vector<std::string> arguments = worker->arguments();
    const auto option = std::ranges::find(arguments, "-hsa2headers");
    ASSERT_NE(option, arguments.end());
    EXPECT_EQ((option + 1)->substr(64, 2), "\r\n");
    EXPECT_FALSE((option + 1)->ends_with("\n"));
    EXPECT_THAT(arguments, Contains("-DTxHeaders=eyJhIjoiYiJ9"));
    EXPECT_EQ(worker->environment(), (Dictionary{{"TX_DATA_CENTERS", "east, west"}}))
        << "with data centres alone nothing else is in the environment";
}

TEST(UploadWorker, FollowsATransfer) {
    CapturedLog log;
    const auto worker = workerFor(packageSource());
    const auto play = [&](const char* line) { worker->processDrovanOutput(line); };
    worker->setPercentComplete(7);
    play("a.mov 50/100, 50% completed\n");
    EXPECT_EQ(worker->percentComplete(), 7) << "before the total is known";
    play("Computing total size of files to upload\n");
    EXPECT_EQ(worker->percentComplete(), 0);
    play("DBG: adding file for % complete logging: a.mov size: 100\n");
    play("DBG: adding file for % complete logging: b.xml 300\n");
    play("DBG: adding file for % complete logging: lonely\n");
    EXPECT_TRUE(log.contains("*** Warning: Unable to scan file sizes: "));
    play("Setting total size of files for upload to: -5\n");
    play("Setting total size of files for upload to: 400 bytes\n");
    EXPECT_TRUE(log.contains("Set transfer size: 400"));
    EXPECT_EQ(worker->size(), 400U);
    play("DBG: a.mov 50/100, 50% completed at 9 KB/s\n");
    EXPECT_EQ(worker->percentComplete(), 12.5);
    EXPECT_EQ(worker->statusMessage(), "Uploading package to the Ovalis…");
    play("a.mov 40/100, 40% completed\n");
    EXPECT_EQ(worker->completed(), 40U) << "a smaller count lowers the sum";
    play("a.mov 40:100, 40% completed\n");
    play("50/100, 40% completed\n");
    EXPECT_EQ(worker->completed(), 40U) << "lines of another shape change nothing";
    play("The file named c.txt has been skipped because it already exists on the remote server\n");
    EXPECT_TRUE(log.contains("*** Warning: No file size found for filename: c.txt"));
    play("The file named b.xml has been skipped because it already exists on the remote server\n");
    EXPECT_EQ(worker->percentComplete(), 85);
    EXPECT_EQ(worker->extractPercentCompleted("a.mov 100/100, 100% completed\n"), "100.000");
    play("Scheduling automatic restart in 5 s\n");
    EXPECT_EQ(worker->completed(), 0U);
    EXPECT_EQ(worker->size(), 400U);
    EXPECT_EQ(worker->percentComplete(), 0);
    EXPECT_THAT(*worker->statusMessage(),
                StartsWith("There was an error sending data to the Ovalis."));
    play("a.mov 1/3, 33% completed\n");
    EXPECT_EQ(worker->percentComplete(), 0.25);
    play("Performing transport diagnostic test of x\n");
    EXPECT_EQ(worker->size(), 0U);
}

TEST(UploadWorker, AccountsForEachByteOnce) {
    using Lines = std::vector<const char*>;
    const Lines announced{"adding file for % complete logging: a b.mov size: 100\n",
                          "adding file for % complete logging: b.mov 300\r\n",
                          "adding file for % complete logging: none size: 0\n",
                          "Setting total size of files for upload to: 400\n"};
    const char* const skipped =
        "The file named a b.mov has been skipped because it already exists on the remote server\n";
    const char* const restart = "Scheduling automatic restart in 5 s\n";
    const struct {
        const char* name;
        Lines lines;
        std::uint64_t sent, skipped;
        bool isWhole;
    } rows[] = {
        {"nothing yet", {}, 0, 0, false},
        {"names with blanks",
         {"DBG: a b.mov 100/100, 100% completed\n", "b.mov 300/300, 100% completed\n"},
         400,
         0,
         true},
        {"there already", {skipped, skipped, "b.mov 1/300, 0% completed\n"}, 1, 100, false},
        {"the rest sent", {skipped, "b.mov 300/300, 100% completed\n"}, 300, 100, true},
        {"cut off", {"a b.mov 100/100, x\n", "a b.mov 99/100, 99% completed\n"}, 99, 0, false},
        {"sent before a restart",
         {"a b.mov 100/100, 100% completed\n", "b.mov 200/300, 66% completed\n", restart, skipped},
         100,
         0,
         false},
        {"begun again", {"a b.mov 60/100, 60% completed\n", restart, skipped}, 0, 100, false},
        {"said too often",
         {"b.mov 300/300, 100% completed\n", "b.mov 300/300, 100% completed\n"},
         300,
         0,
         false},
        {"more than there is", {"a b.mov 500/100, x% completed\n"}, 100, 0, false},
        {"more than announced", {"a b.mov 400/400, 100% completed\n"}, 100, 0, false},
        {"not announced", {"c.mov 400/400, 100% completed\n"}, 400, 0, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto worker = workerFor(packageSource());
        for (const Lines& lines : {announced, row.lines}) {
            for (const char* line : lines) {
                worker->processDrovanOutput(line);
            }
        }
        EXPECT_EQ(worker->transfer().size, 400U);
        EXPECT_EQ(worker->transfer().sent, row.sent);
        EXPECT_EQ(worker->transfer().skipped, row.skipped);
        EXPECT_EQ(worker->transfer().isWhole(), row.isWhole);
    }
}

TEST(UploadWorker, TakesNoFileNameForAWordOfTheTool) {
    const std::string skipped = " has been skipped because it already exists on the remote server";
    for (const std::string& name :
         {std::string("Computing total size of files to upload"),
          std::string("Performing transport diagnostic test of x.mov"), "q" + skipped,
          std::string("Setting total size of files for upload to: 3"),
          std::string("Scheduling automatic restart in"), std::string("Error Messages:"),
          std::string("ERROR: x.mov")}) {
        for (const bool isThere : {false, true}) {
            SCOPED_TRACE(name);
            const auto worker = workerFor(packageSource());
            for (const std::string& line :
                 {"Checking the MD5 checksum of " + name,
                  "adding file for % complete logging: " + name + " size: 400",
                  std::string("Setting total size of files for upload to: 400"),
                  isThere ? "The file named " + name + skipped : name + " 400/400, 100% completed",
                  "JSON-START>>{\"files\":[\"" + name + "\"]}<<JSON-END"}) {
                worker->processDrovanOutput(line);
            }
            EXPECT_EQ(worker->transfer().size, 400U);
            EXPECT_EQ(worker->transfer().sent, isThere ? 0U : 400U);
            EXPECT_EQ(worker->transfer().skipped, isThere ? 400U : 0U);
            EXPECT_FALSE(worker->reportedErrors());
        }
    }
}

TEST(UploadWorker, FollowsPhases) {
    const auto worker = workerFor(packageSource(), true);
    EXPECT_EQ(worker->statusMessage(), "Verify package with the Ovalis.");
    const struct {
        const char* line;
        const char* status;
    } rows[] = {
        {"xx Checking the MD5 checksum of a\n", "Verifying asset checksums…"},
        {"Done checking the md5 checksum.\n", "Negotiating connection…"},
        {"Performing transport diagnostic test\n", "Testing TCP/UDP connectivity…"},
        {"Performing authentication of package x\n", "Verifying metadata with the Ovalis…"},
        {"performing authentication of package x\n", "Verifying metadata with the Ovalis…"},
        {"Starting media analysis of assets\n", "Verifying assets with the Ovalis…"},
        {"Performing uploadDone notification to Zarnet for package x\n",
         "Finalizing delivery with the Ovalis…"},
        {"JSON: Performing authentication of package\n", "Finalizing delivery with the Ovalis…"},
    };
    for (const auto& row : rows) {
        worker->processDrovanOutput(row.line);
        EXPECT_EQ(worker->statusMessage(), row.status) << row.line;
    }
}

TEST(UploadWorker, FollowsVerifyProgress) {
    const auto worker = workerFor(packageSource(), true);
    const struct {
        const char* fields;
        double percent;
        const char* status;
    } rows[] = {
        {R"("description":"Analyzing metadata")", -1, "Analyzing metadata"},
        {R"("description":"Adding asset to analyze:","asset":"a.mov","count":4,"index":1)", 25,
         "Adding asset to analyze: a.mov"},
        {R"("description":"Validating assets","count":3,"index":1)", 100.0 / 3,
         "Validating assets"},
        {R"("description":"Validation completed.","count":-2)", 100.0 / 3, "Validation completed"},
        {R"("description":"other","count":0)", 100, "Validation completed"},
        {R"("description":"Validation failed.")", -1, "Validation failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fields);
        worker->processDrovanOutput(std::string(R"(12:00 JSON: {"messageType":"VerifyProgress",)") +
                                    row.fields + "}\n");
        EXPECT_DOUBLE_EQ(worker->percentComplete(), row.percent);
        EXPECT_EQ(worker->statusMessage(), row.status);
    }
    worker->processDrovanOutput("JSON: {broken\n");
    worker->processDrovanOutput(R"(JSON: {"messageType":"Other","count":0})");
    EXPECT_EQ(worker->percentComplete(), -1);
    EXPECT_EQ(VeltoDrovanUploadWorker::extractJSON("JSON: [1]").array().size(), 1U);
}

TEST(UploadWorker, ReadsTheResultBlockAndThePackageName) {
    CapturedLog log;
    const auto worker = workerFor(packageSource());
    worker->extractJsonFromErrorOutput(R"(x JSON-START>>{"a":[1]}<<JSON-END y)");
    EXPECT_EQ(worker->jsonOutput()["a"].array().first(), 1);
    worker->extractJsonFromErrorOutput("JSON-START>>{\"b\":1}");
    worker->extractJsonFromErrorOutput("<<JSON-END JSON-START>>{\"b\":1}<<JSON-END");
    EXPECT_TRUE(worker->jsonOutput()["a"]) << "an incomplete block changes nothing";
    worker->extractJsonFromErrorOutput("JSON-START>>{broken}<<JSON-END");
    EXPECT_TRUE(worker->jsonOutput().isNone());
    EXPECT_TRUE(
        log.contains("Failed to decode json from output 'JSON-START>>{broken}<<JSON-END': "));

    worker->extractNewPackageNameFromOutput("a\nNewPackageName = A B.velmp.velmp\n");
    EXPECT_EQ(worker->uploadedPackageName(), "A B.velmp");
    worker->extractNewPackageNameFromOutput("NewPackageName = none");
    EXPECT_EQ(worker->uploadedPackageName(), std::nullopt);
    EXPECT_TRUE(log.contains("Failed to find new package name in output."));
}

TEST(UploadWorker, WordsMessagesByVerbAndStore) {
    const auto upload = workerFor(packageSource());
    EXPECT_EQ(upload->errorOccurredUploadingToStoreErrorMessage(),
              "An error occurred uploading to the Ovalis.");
    VeltoDrovanUploadWorker::setUploadVerb(1);
    upload->setStoreType(3);
    EXPECT_EQ(upload->uploadingPackageToStoreMessage(), "Delivering package to Zarnet Books…");
    upload->setStoreType(4);
    EXPECT_EQ(upload->uploadedPackageToStoreMessage(), "Delivered package to Zarnet Services.");
    VeltoDrovanUploadWorker::setUploadVerb(0);
    upload->setStoreType(0);
    EXPECT_EQ(upload->verifyingAssetsWithStoreMessage(), "Verifying assets with the Ovalis…");
    upload->setStoreType(1);
    EXPECT_EQ(upload->finalizingDeliveryWithStoreMessage(),
              "Finalizing delivery with the Velto Store…");
    upload->setStoreType(5);
    EXPECT_EQ(upload->uploadPackageToStoreMessage(), std::nullopt);
}

}  // namespace
