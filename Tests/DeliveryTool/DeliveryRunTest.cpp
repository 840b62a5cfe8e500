#include <Tests/DeliveryTool/DeliveryRun.h>

#include <VeltoConnectFoundation/Authentication/VeltoAuthenticationContextImpl.h>
#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/PropertyList.h>
#include <VeltoConnectFoundation/Platform/Queue.h>

#include <Tests/Support/CapturedLog.h>
#include <Tests/Support/ProcessTable.h>
#include <Tests/Support/WaitUntil.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace {

using ::testing::HasSubstr;
using velto::testing::CapturedLog;
using velto::testing::hasChildren;
using velto::testing::openDescriptors;
using velto::testing::Sandbox;
using velto::testing::SeriesRun;

/// Runs a worker to its end and gives it back.
template <class Worker>
std::shared_ptr<Worker> finished(std::shared_ptr<Worker> worker) {
    std::shared_ptr<SeriesRun> run;
    const auto series = SeriesRun::start(worker, run);
    EXPECT_EQ(run->waitForEnd(), 1);
    return worker;
}

class DeliveryRun : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(sandbox.isPrepared()); }
    Sandbox sandbox;
};

TEST_F(DeliveryRun, VerifiesThenUploadsAPackage) {
    const auto verify = finished(sandbox.worker(true));
    EXPECT_EQ(verify->errorMessage(), std::nullopt);
    EXPECT_EQ(verify->workStatus(), MZWorkStatusFinished);
    EXPECT_EQ(verify->statusMessage(), "Verified package with the Ovalis.");
    EXPECT_EQ(verify->percentComplete(), 100);

    sandbox.play("warning=careful\ninfo=good to know\n");
    const auto upload = finished(sandbox.worker(false));
    EXPECT_FALSE(upload->hasErrors());
    EXPECT_EQ(upload->statusMessage(), "Uploaded package to the Ovalis.");
    EXPECT_EQ(upload->uploadedPackageName(), "DEMO_001.velmp");
    EXPECT_EQ(upload->jsonOutput()["vendorID"].string(), "DEMO_001");
    EXPECT_EQ(upload->completed(), upload->size());
    EXPECT_GT(upload->size(), 100'000U);
    EXPECT_EQ(upload->warnings().size(), 1U);
    EXPECT_GE(upload->infoMessages().size(), 1U);
    EXPECT_TRUE(
        std::filesystem::exists(sandbox.path() / "store/DemoStudio/DEMO_001.velmp/movie.mov"));
}

TEST_F(DeliveryRun, PostsItsCompletionOnceOnTheMainThread) {
    const auto worker = sandbox.worker();
    std::atomic<int> posted{0};
    const auto observation = velto::NotificationCenter::shared().observe(
        VeltoDrovanWorkerCompletedNotification, static_cast<MZAbstractWorker*>(worker.get()),
        [&](const velto::Notification&) {
            EXPECT_TRUE(velto::MainQueue::isMainThread());
            ++posted;
        });
    finished(worker);
    velto::MainQueue::shared().sync([] {});
    EXPECT_EQ(posted, 1);
}

TEST_F(DeliveryRun, EveryFaultOfTheToolEndsInAClearResult) {
    const struct {
        const char* scenario;
        const char* message;
        std::int64_t code;
    } rows[] = {
        {"error=Bad thing (-77)\n", "Bad thing (-77)", -77},
        {"error=On output (-78)\nerror-style=output-block\n", "On output (-78)", -78},
        {"error=Lines only (-79)\nerror-style=lines\n", "Lines only (-79)", -79},
        {"error=x\nerror-style=none\n", "An error occurred verifying with the Ovalis.", -10000},
        {"crash=SEGV@signed-in\n", "An error occurred verifying with the Ovalis.", -10000},
        {"exit=9@start\n", "An error occurred verifying with the Ovalis.", -10000},
        {"garbage=yes@signed-in\nerror=After garbage (-80)\n", "After garbage (-80)", -80},
        {"flood=8@signed-in\nerror=After a flood (-81)\n", "After a flood (-81)", -81},
        {"unterminated=last\nerror=Cut (-82)\n", "Cut (-82)", -82},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.scenario);
        sandbox.play(row.scenario);
        const auto worker = finished(sandbox.worker());
        ASSERT_TRUE(worker->hasErrors());
        EXPECT_THAT(*worker->errorMessage(), HasSubstr(row.message));
        EXPECT_EQ(worker->errors().back().code(), row.code);
        EXPECT_EQ(worker->workStatus(), MZWorkStatusFinished);
    }
}

TEST_F(DeliveryRun, OnlyAToolThatSaysSoConfirmsItsWork) {
    const std::string block =
        "echo 'JSON-START>>{\"done\":1}<<JSON-END' >&2; echo NewPackageName = A.velmp >&2";
    const std::string error = "echo 12:00 ERROR: x; ";
    const std::string restart = "echo Scheduling automatic restart in 0 s; ";
    const std::string transfer =
        "echo Setting total size of files for upload to: 4; echo 'a 4/4, 100% completed'; ";
    const std::string end =
        R"(printf 'JSON: {"messageType":"VerifyProgress","description":"Validation completed."}')";
    const struct {
        const char* name;
        bool verifyOnly;
        std::string scenario;
        std::string script;  ///< Of another tool.
        bool isConfirmed;
    } rows[] = {
        {"upload", false, "", "", true},
        {"all of it there already", false, "", "", true},
        {"one that is skipped", false, "skip=movie.mov\n", "", true},
        {"a restart", false, "restart=0@transfer:50\nrestart=0@transfer:100\n", "", true},
        {"noise", false, "garbage=yes@transfer\nflood=1@checked\nunterminated=x\n", "", true},
        {"ends in the transfer", false, "exit=0@transfer:50\n", "", false},
        {"ends before it", false, "exit=0@checked\n", "", false},
        {"lists errors", false, "error=Not so (-5)\nexit=0@end\n", "", false},
        {"tells errors", false, "error=Not so (-5)\nerror-style=lines\nexit=0@end\n", "", false},
        {"verify tells errors", true, "error=x\nerror-style=lines\nexit=0@end\n", "", false},
        {"an error, then a restart", false, "", error + transfer + restart + transfer + block,
         true},
        {"a restart, then an error", false, "", restart + transfer + error + block, false},
        {"an unfinished error", false, "", transfer + block + "; printf ERROR:x", false},
        {"does nothing", false, "", "true", false},
        {"only a result", false, "", block, false},
        {"verify", true, "", "", true},
        {"verify without counts", true, "verify-count=no\n", "", true},
        {"verify without a last line feed", true, "", end, true},
        {"verify ends before its end", true, "exit=0@checked\n", "", false},
        {"verify that starts over", true, "",
         end + R"(; echo; echo 'JSON: {"messageType":"VerifyProgress",)" +
             R"("description":"Validating assets"}')",
         false},
        {"verify does nothing", true, "", "true", false},
    };
    const auto script = sandbox.path() / "script";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.scenario.find("transfer") != std::string::npos) {
            std::filesystem::remove_all(sandbox.path() / "store");
        }
        sandbox.play(row.scenario);
        if (!row.script.empty()) {
            std::ofstream(script) << "#!/bin/sh\n" << row.script << "\n";
            std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        }
        sandbox.setTool(row.script.empty() ? sandbox.tool() : script);
        const auto worker = finished(sandbox.worker(row.verifyOnly));
        EXPECT_FALSE(worker->hasErrors()) << "the exit status alone decides";
        EXPECT_EQ(worker->deliveryConfirmed(), row.isConfirmed);
    }
}

TEST_F(DeliveryRun, AFailureIsAnErrorForAnUnknownStoreToo) {
    sandbox.play("exit=9@start\n");
    const auto source = sandbox.source();
    source->setStoreType(9);
    const auto worker = finished(velto::make<VeltoDrovanUploadWorker>(source, true));
    EXPECT_EQ(worker->errorMessage(), "An error occurred talking to the Store.");
}

TEST_F(DeliveryRun, AToolThatIsMissingOrCannotStartIsAnError) {
    sandbox.set("VeltoDrovanExecutablePath", (sandbox.path() / "nowhere").string());
    sandbox.set("VeltoDrovanAdditionalPathsToVELMDrovan", velto::Array{});
    const auto missing = sandbox.worker();
    finished(missing);
    if (missing->drovan()->isRunning() || !missing->hasErrors()) {
        GTEST_SKIP() << "another tool is installed on this machine";
    }
    const auto broken = sandbox.path() / "broken";
    std::ofstream(broken) << "no program";
    std::filesystem::permissions(broken, std::filesystem::perms::owner_all);
    sandbox.set("VeltoDrovanExecutablePath", broken.string());
    const auto worker = finished(sandbox.worker());
    ASSERT_TRUE(worker->hasErrors());
    EXPECT_THAT(*worker->errorMessage(), HasSubstr("broken"));
}

TEST_F(DeliveryRun, AGrandchildOnThePipesDelaysNobody) {
    sandbox.play("grandchild=20@end\n");
    const auto start = std::chrono::steady_clock::now();
    const auto worker = finished(sandbox.worker());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_FALSE(worker->hasErrors());
}

TEST_F(DeliveryRun, ACancelBeforeTheLaunchStartsNoTool) {
    class CancelledWorker : public VeltoDrovanUploadWorker {
    public:
        using VeltoDrovanUploadWorker::VeltoDrovanUploadWorker;
        bool isAsked = false;

    protected:
        void drovanWillStart() override {
            isAsked = true;
            cancel();
        }
    };
    for (const bool isEarly : {true, false}) {
        SCOPED_TRACE(isEarly);
        const auto worker = velto::make<CancelledWorker>(sandbox.source(), true);
        if (isEarly) {
            worker->cancel();
        }
        worker->run();
        EXPECT_EQ(worker->isAsked, !isEarly);
        EXPECT_EQ(worker->drovan()->terminationStatus(), 0) << "a tool was started";
        EXPECT_EQ(worker->workStatus(), MZWorkStatusCancelled);
        EXPECT_EQ(worker->statusMessage(), "Cancelled Ovalis operation.");
    }
}

TEST_F(DeliveryRun, ACancelEndsTheToolAndSaysSo) {
    for (const char* scenario :
         {"hang=yes@signed-in\n", "hang=yes@signed-in\nignore-terminate=yes\n"}) {
        SCOPED_TRACE(scenario);
        sandbox.play(scenario);
        const auto worker = sandbox.worker();
        std::atomic<bool> underWay{false};
        const auto observation = worker->observe(
            "statusMessage", [&](const velto::PropertyChange&) { underWay = true; });
        std::shared_ptr<SeriesRun> run;
        const auto series = SeriesRun::start(worker, run);
        while (!underWay) {
            std::this_thread::yield();
        }
        series->cancel();
        EXPECT_EQ(run->waitForEnd(), 1);
        EXPECT_TRUE(series->isCancelled());
        EXPECT_EQ(worker->statusMessage(), "Cancelled Ovalis operation.");
        EXPECT_NE(worker->workStatus(), MZWorkStatusFinished);
        EXPECT_FALSE(hasChildren());
    }
}

TEST_F(DeliveryRun, AThousandCancelsLeaveNothingBehind) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    finished(sandbox.worker());  // engines that start on first use
    const std::size_t before = openDescriptors();
    constexpr int threads = 8;
    constexpr int cancelsEach = 125;
    sandbox.play("hang=yes@start\nignore-terminate=yes\n");
    std::vector<std::thread> all;
    std::atomic<int> ends{0};
    for (int index = 0; index < threads; ++index) {
        all.emplace_back([&, index] {
            std::mt19937 random(seed + static_cast<unsigned>(index));
            for (int i = 0; i < cancelsEach; ++i) {
                std::shared_ptr<SeriesRun> run;
                const auto series = SeriesRun::start(sandbox.worker(), run);
                std::this_thread::sleep_for(
                    std::chrono::microseconds(random() % 20'000));  // the random moment
                series->cancel();
                ends += run->waitForEnd();
            }
        });
    }
    for (std::thread& thread : all) {
        thread.join();
    }
    EXPECT_EQ(ends, threads * cancelsEach);
    EXPECT_FALSE(hasChildren());
    // The pool's lasting threads, one for each core, keep the run loops that they have used; those
    // of the others go when they have been idle for a while.
    const std::size_t lasting = before + 2 * (std::size_t{std::thread::hardware_concurrency()} + 1);
    EXPECT_TRUE(velto::testing::waitUntil([&] { return openDescriptors() <= lasting; }))
        << openDescriptors() << " descriptors, " << before << " before";
}

/// What must not show: in lines, errors, results and argument vectors.
TEST_F(DeliveryRun, SecretsShowNowhere) {
    const std::string record = (sandbox.path() / "record").string();
    int next = 0;
    std::vector<std::string> canaries;
    const auto canary = [&] {
        canaries.push_back("canary" + std::to_string(next++) + "x");
        return canaries.back();
    };
    CapturedLog log;
    sandbox.set("LogDrovanOutput", true);
    std::string shown;
    for (const char* scenario : {"", "error=failed (-1)\n", "crash=ABRT@start\n", "exit=3@end\n"}) {
        sandbox.play(std::string("record=") + record + "\n" + scenario);
        for (int form = 0; form < 5; ++form) {
            const auto source = sandbox.source();
            source->setPassword(canary());
            const auto authentication =
                VeltoAuthenticationContextImpl::contextWithHttpHeaders({}, "", {});
            source->setAuthentication(authentication);
            switch (form) {
                case 1:
                    authentication->setSessionID(canary());
                    authentication->setSharedSecret(canary());
                    break;
                case 2:
                    authentication->setHttpHeaders({{"Authorization", "Bearer " + canary()}});
                    break;
                case 3:
                    authentication->setToken(velto::Data(
                        *velto::PropertyList::xml(velto::Dictionary{{"rovquill", canary()}})));
                    break;
                case 4:
                    authentication->setTxHeaders({{"secret", canary()}});
                    break;
                default:
                    break;
            }
            const auto worker =
                finished(velto::make<VeltoDrovanUploadWorker>(source, form % 2 == 0));
            EXPECT_EQ(worker->environment(), std::nullopt);
            for (const velto::Error& error : worker->errors()) {
                shown += error.description();
            }
            shown +=
                worker->description() + source->description() + worker->jsonOutput().description();
            std::ifstream file(record);
            shown.append(std::istreambuf_iterator<char>(file), {});
        }
    }
    for (const std::string& line : log.messages()) {
        shown += line + "\n";
    }
    ASSERT_GE(canaries.size(), 40U);
    for (const std::string& secret : canaries) {
        EXPECT_EQ(shown.find(secret), std::string::npos) << secret;
    }
    EXPECT_THAT(shown, HasSubstr("@env:"));
}

}  // namespace
