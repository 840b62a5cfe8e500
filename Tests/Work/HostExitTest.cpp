#include <VeltoConnectFoundation/Codecs/MZMD5Operation.h>
#include <VeltoConnectFoundation/Platform/Digest.h>
#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <Tests/Support/FreshProcess.h>
#include <Tests/Support/Paths.h>
#include <Tests/Support/TemporaryDirectory.h>
#include <Tests/Work/TestWorkers.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using velto::testing::FunctionWorker;
using velto::testing::seriesOf;
using velto::testing::worker;

TEST(HostExit, InTheMiddleOfWorkIsLikeAnyOther) {
    constexpr int exitCode = 42;
    if (!velto::testing::isFreshProcess()) {
        for (int round = 0; round < 20; ++round) {
            ASSERT_EQ(velto::testing::runTestAgain({}, "VELTO_TEST_FRESH_PROCESS=1"), exitCode);
        }
        return;
    }
    // Ends the last, behind whatever else there is to end: the workers go on all the time.
    static std::atomic<int> rounds{0};
    ASSERT_EQ(std::atexit([] {
                  for (const int end = rounds + 100; rounds < end;) {
                      std::this_thread::yield();
                  }
              }),
              0);
    for (int index = 0; index < 4; ++index) {
        MZWorkSeriesManager::defaultManager()->submitWork(
            seriesOf({worker([](FunctionWorker& self) {
                for (;; ++rounds) {
                    self.setStatusMessage(
                        MZStoreMessages::sharedStoreMessages()->authenticatingWithStoreMessage());
                    self.setStatusMessage(velto::Error::posix(EIO).localizedDescription());
                    static_cast<void>(MZMD5Operation::md5ForData(velto::Data("text")));
                    velto::Digest(velto::Digest::Algorithm::sha256).update("text", 4);
                }
            })}));
    }
    // At another moment in each process, the first digest among them.
    while (rounds < getpid() % 8) {
        std::this_thread::yield();
    }
    std::exit(exitCode);
}

/// An object with a destructor that runs at exit would end under the threads that still use it.
TEST(HostExit, DestroysNothingOfTheLibrary) {
    const std::string library = velto::testing::contentsOfFile(velto::testing::buildFolder() /
                                                               "lib/libVeltoConnectFoundation.so");
    ASSERT_NE(library.find(std::string("\0__cxa_thread_atexit\0", 21)), std::string::npos);
    EXPECT_EQ(library.find(std::string("\0__cxa_atexit\0", 14)), std::string::npos);
}

TEST(HostShortage, ASeriesEndsWithAnErrorWhenThereIsNoThreadForIt) {
    if (velto::testing::ranInFreshProcess()) {
        return;
    }
    if (geteuid() == 0) {
        ASSERT_EQ(setresuid(61234, 61234, 61234), 0);  // The limit does not hold for root.
    }
    rlimit before;
    getrlimit(RLIMIT_NPROC, &before);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    const auto first = worker();
    const auto second = worker();
    const auto series = seriesOf({first, second});
    MZWorkSeriesManager::defaultManager()->submitWork(series);
    EXPECT_EQ(series->status(), MZWorkItemStatus::completed);
    ASSERT_EQ(first->errors().size(), 1U);
    EXPECT_EQ(first->errors().front().code(), EAGAIN);
    EXPECT_FALSE(second->hasErrors());
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &before), 0);  // a sanitizer's last look needs a thread
}

}  // namespace
