#include <VeltoConnectFoundation/Platform/Observable.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/ChangeRecorder.h>
#include <Tests/Support/RunTogether.h>

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

namespace velto {
namespace {

using testing::ChangeRecorder;
using ::testing::ElementsAre;

class Subject final : public Observable {
public:
    void change(std::initializer_list<std::string_view> keys) {
        const Guard guard(lock_);
        const Change change(*this, keys);
        value_.fetch_add(1);
    }
    int value() const { return value_; }

private:
    std::span<const Dependency> dependencies() const override {
        static constexpr Dependency table[] = {
            {"hasErrors", "errors"},    {"hasErrors", "errorMessage"}, {"errorMessage", "errors"},
            {"errors", "errorMessage"}, {"summary", "hasErrors"},
        };
        return table;
    }

    Lock lock_;
    std::atomic<int> value_{0};
};

TEST(Observable, AnnouncesKeysAndWhatDependsOnThemOnceEach) {
    const struct {
        const char* name;
        std::initializer_list<std::string_view> changed;
        std::vector<std::string> announced;
    } rows[] = {
        {"plain", {"status"}, {"status…", "status"}},
        {"not observed", {"other"}, {}},
        {"several, reversed after", {"status", "title"}, {"status…", "title…", "title", "status"}},
        {"through others, with keys that depend on each other",
         {"errors"},
         {"errors…", "hasErrors…", "errorMessage…", "summary…", "errors", "hasErrors",
          "errorMessage", "summary"}},
        {"one key by several ways",
         {"errorMessage", "errors", "hasErrors"},
         {"errorMessage…", "hasErrors…", "errors…", "summary…", "hasErrors", "summary", "errors",
          "errorMessage"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Subject subject;
        ChangeRecorder recorder(
            subject, {"summary", "status", "title", "errors", "hasErrors", "errorMessage"},
            ObserverTiming::beforeAndAfter);
        subject.change(row.changed);
        EXPECT_EQ(recorder.take(), row.announced);
    }
}

TEST(Observable, TellsBeforeAndAfterOnlyThoseWhoAsked) {
    Subject subject;
    ChangeRecorder after(subject, {"status"});
    std::vector<int> values;
    const auto both = subject.observe(
        "status",
        [&](const PropertyChange& change) {
            EXPECT_EQ(&change.object, &subject);
            values.push_back(subject.value() + (change.isPrior ? 0 : 100));
        },
        ObserverTiming::beforeAndAfter);
    subject.change({"status"});
    EXPECT_THAT(values, ElementsAre(0, 101));
    EXPECT_THAT(after.take(), ElementsAre("status"));
}

TEST(Observable, AnObservationEndsWithItsTokenAndMayOutliveTheObject) {
    auto subject = std::make_unique<Subject>();
    int told = 0;
    const auto count = [&](const PropertyChange&) { ++told; };
    {
        auto first = subject->observe("status", count);
        const auto second = std::move(first);
        subject->change({"status"});
    }
    subject->change({"status"});
    EXPECT_EQ(told, 1);
    auto outliving = subject->observe("status", count);
    outliving = subject->observe("title", count);
    subject->change({"status"});
    EXPECT_EQ(told, 1);
    subject.reset();
}

TEST(Observable, AnObserverMayEndItselfAndTheNextInsideOfItsCall) {
    Subject subject;
    std::vector<int> told;
    std::optional<Observation> first;
    std::optional<Observation> second;
    first = subject.observe("status", [&](const PropertyChange&) {
        told.push_back(1);
        second.reset();
        first.reset();
    });
    second = subject.observe("status", [&](const PropertyChange&) { told.push_back(2); });
    subject.change({"status"});
    subject.change({"status"});
    EXPECT_THAT(told, ElementsAre(1));
}

TEST(Observable, AnObserverThatChangesAnotherPropertyIsAnnouncedInside) {
    Subject subject;
    ChangeRecorder recorder(subject, {"status", "title"});
    const auto changer =
        subject.observe("status", [&](const PropertyChange&) { subject.change({"title"}); });
    subject.change({"status"});
    EXPECT_THAT(recorder.take(), ElementsAre("status", "title"));
}

TEST(Observable, WhatAnObserverThrowsIsLoggedAndTheNextIsTold) {
    const testing::CapturedPlatformLog log;
    Subject subject;
    const auto thrower = subject.observe(
        "status", [](const PropertyChange&) { throw std::runtime_error("no bread"); });
    ChangeRecorder recorder(subject, {"status"});
    subject.change({"status"});
    EXPECT_THAT(recorder.take(), ElementsAre("status"));
    EXPECT_THAT(log.lines(),
                ElementsAre("5 Uncaught exception in an observer of status: no bread"));
}

TEST(Observable, EndingWaitsForACallUnderWayOnAnotherThread) {
    Subject subject;
    std::atomic<int> step{0};
    auto alive = std::make_unique<int>(0);
    std::optional<Observation> observation = subject.observe("status", [&](const PropertyChange&) {
        step = 1;
        step.notify_all();
        std::this_thread::yield();
        *alive = 1;
    });
    std::thread changer([&] { subject.change({"status"}); });
    step.wait(0);
    observation.reset();
    alive.reset();  // A call still under way would be a use after free.
    changer.join();
}

TEST(Observable, NobodyIsToldAfterTheEndWhileOthersChange) {
    Subject subject;
    std::atomic<int> changes{0};
    testing::runTogether(4, [&](int thread) {
        for (int round = 0; round < 2000; ++round) {
            if (thread < 2) {
                subject.change({"errors", "status"});
                ++changes;
            } else {
                auto told = std::make_unique<int>(0);
                {
                    const auto observation =
                        subject.observe("hasErrors", [&](const PropertyChange&) { ++*told; });
                }
                told.reset();
            }
        }
    });
    EXPECT_EQ(subject.value(), changes);
}

}  // namespace
}  // namespace velto
