#include <VeltoConnectFoundation/Platform/NotificationCenter.h>

#include <VeltoConnectFoundation/Platform/Queue.h>

#include <Tests/Support/CapturedPlatformLog.h>
#include <Tests/Support/RunTogether.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <stdexcept>
#include <vector>

namespace velto {
namespace {

using ::testing::ElementsAre;

constexpr std::string_view Happened = "TestHappenedNotification";
constexpr std::string_view Other = "TestOtherNotification";

NotificationCenter& center() {
    return NotificationCenter::shared();
}

TEST(NotificationCenter, TellsObserversOfTheNameAndTheSenderInOrder) {
    const auto sender = std::make_shared<int>(7);
    const auto another = std::make_shared<int>(8);
    std::vector<std::string> told;
    const auto recorder = [&](std::string who) {
        return [&told, who](const Notification& notification) {
            told.push_back(who + std::to_string(*notification.objectAs<int>()));
        };
    };
    const auto any = center().observe(Happened, nullptr, recorder("any"));
    const auto one = center().observe(Happened, sender.get(), recorder("one"));
    const auto none = center().observe(Other, nullptr, recorder("none"));
    center().post(Happened, sender);
    center().post(Happened, another);
    EXPECT_THAT(told, ElementsAre("any7", "one7", "any8"));
}

TEST(NotificationCenter, AnEndedObservationIsNotTold) {
    int told = 0;
    {
        auto observation =
            center().observe(Happened, nullptr, [&](const Notification&) { ++told; });
        center().post(Happened, nullptr);
        auto moved = std::move(observation);
        center().post(Happened, nullptr);
        moved = center().observe(Other, nullptr, [](const Notification&) {});
        center().post(Happened, nullptr);
    }
    center().post(Other, nullptr);
    EXPECT_EQ(told, 2);
}

TEST(NotificationCenter, AnObserverMayEndItselfAndTheNextAndAddOthers) {
    std::vector<int> told;
    std::optional<NotificationObservation> first;
    std::optional<NotificationObservation> second;
    std::optional<NotificationObservation> third;
    first = center().observe(Happened, nullptr, [&](const Notification&) {
        told.push_back(1);
        second.reset();
        third =
            center().observe(Happened, nullptr, [&](const Notification&) { told.push_back(3); });
        first.reset();
    });
    second = center().observe(Happened, nullptr, [&](const Notification&) { told.push_back(2); });
    center().post(Happened, nullptr);
    center().post(Happened, nullptr);
    EXPECT_THAT(told, ElementsAre(1, 3));
}

TEST(NotificationCenter, WhatAnObserverThrowsIsLoggedAndTheNextIsTold) {
    const testing::CapturedPlatformLog log;
    bool told = false;
    const auto first = center().observe(
        Happened, nullptr, [](const Notification&) { throw std::runtime_error("no bread"); });
    const auto second =
        center().observe(Happened, nullptr, [&](const Notification&) { told = true; });
    center().post(Happened, nullptr);
    EXPECT_TRUE(told);
    EXPECT_THAT(
        log.lines(),
        ElementsAre("5 Uncaught exception in an observer of TestHappenedNotification: no bread"));
}

TEST(NotificationCenter, PostsOnTheMainThreadInOrderAndKeepsTheSender) {
    std::vector<int> told;
    std::promise<void> all;
    const auto observation =
        center().observe(Happened, nullptr, [&](const Notification& notification) {
            EXPECT_TRUE(MainQueue::isMainThread());
            told.push_back(*notification.objectAs<int>());
            if (told.size() == 3) {
                all.set_value();
            }
        });
    std::weak_ptr<int> sender;
    for (int number = 1; number <= 3; ++number) {
        auto object = std::make_shared<int>(number);
        sender = object;
        center().postOnMainThread(Happened, std::move(object));
    }
    all.get_future().get();
    EXPECT_THAT(told, ElementsAre(1, 2, 3));
    MainQueue::shared().sync([] {});
    EXPECT_TRUE(sender.expired());
}

TEST(NotificationCenter, NobodyIsToldAfterItsObservationHasEndedWhileOthersPost) {
    std::atomic<bool> ends{false};
    testing::runTogether(4, [&](int thread) {
        if (thread < 2) {
            while (!ends) {
                center().post(Happened, nullptr);
            }
            return;
        }
        for (int round = 0; round < 2000; ++round) {
            auto alive = std::make_unique<std::atomic<int>>(round);
            {
                const auto observation =
                    center().observe(Happened, nullptr, [&](const Notification&) { ++*alive; });
            }
            alive.reset();  // An observer still under way would be a use after free.
        }
        ends = true;
    });
}

TEST(NotificationCenter, ManyObserversOfOneNameComeAndGoInLittleTime) {
    constexpr int count = 40'000;
    const auto start = std::chrono::steady_clock::now();
    int told = 0;
    {
        std::vector<NotificationObservation> observations;
        for (int index = 0; index < count; ++index) {
            observations.push_back(
                center().observe(Happened, nullptr, [&](const Notification&) { ++told; }));
        }
        center().post(Happened, nullptr);
        observations.erase(observations.begin(), observations.begin() + count / 2);
        center().post(Happened, nullptr);
    }
    EXPECT_EQ(told, count + count / 2);
    // Hundredths of a second; a minute when each change copies the others.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace velto
