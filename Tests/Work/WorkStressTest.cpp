#include <VeltoConnectFoundation/Work/MZWorkSeriesManager.h>

#include <VeltoConnectFoundation/Platform/NotificationCenter.h>
#include <VeltoConnectFoundation/Platform/OperationQueue.h>
#include <VeltoConnectFoundation/Platform/Queue.h>

#include <Tests/Work/TestWorkers.h>

#include <gtest/gtest.h>

#include <barrier>
#include <cstdlib>
#include <random>
#include <thread>
#include <unordered_map>

namespace {

using velto::testing::CountDown;
using velto::testing::EndCounter;
using velto::testing::FunctionWorker;
using velto::testing::seriesOf;
using velto::testing::worker;
using Status = MZWorkItemStatus;

constexpr std::size_t seriesCount = 5000;
constexpr std::size_t itemsPerSeries = 20;
constexpr std::size_t submitters = 8;
constexpr std::int64_t throttledTypes = 4;
constexpr std::size_t observedSeries = 25;  // each of so many

/// Counts how many series of a type run at once.
class Occupancy {
public:
    void enter(std::uint32_t limit) {
        const std::uint32_t now = ++inside_;
        if (now > limit) {
            exceeded_ = true;
        }
    }
    void leave() { --inside_; }
    bool exceeded() const { return exceeded_; }

private:
    std::atomic<std::uint32_t> inside_{0};
    std::atomic<bool> exceeded_{false};
};

TEST(WorkStress, EveryItemAndSeriesCompletesOnceUnderAnyMix) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    auto manager = velto::make<MZWorkSeriesManager>();
    manager->setMaxCompletedWork(100);
    auto counter = std::make_shared<EndCounter>(seriesCount);
    manager->setDelegate(counter);
    for (std::int64_t type = 1; type <= throttledTypes; ++type) {
        manager->setThrottle(static_cast<std::uint32_t>(type), type);
    }
    std::vector<Occupancy> occupancy(throttledTypes + 1);
    std::vector<std::shared_ptr<MZWorkSeries>> all(seriesCount);
    std::vector<velto::Observation> observations;
    std::vector<std::atomic<int>> runs(seriesCount * itemsPerSeries);

    // Each own item and series, and how often its end was told: of another test's some may be due.
    std::unordered_map<const void*, std::atomic<int>> ends;
    CountDown toEnd(seriesCount * (itemsPerSeries + 1));
    for (std::size_t index = 0; index < seriesCount; ++index) {
        const std::int64_t type = static_cast<std::int64_t>(index) % (throttledTypes + 1);
        std::vector<std::shared_ptr<MZAbstractWorker>> workers;
        for (std::size_t item = 0; item < itemsPerSeries; ++item) {
            std::atomic<int>& ran = runs[index * itemsPerSeries + item];
            const bool fails = (index * 31 + item * 7) % 97 == 0;
            workers.push_back(worker([&ran, &occupancy, type, fails](FunctionWorker& self) {
                ++ran;
                if (type != 0) {
                    occupancy[static_cast<std::size_t>(type)].enter(
                        static_cast<std::uint32_t>(type));
                }
                self.setPercentComplete(50);
                if (fails) {
                    self.addErrorMessage("broken");
                }
                if (type != 0) {
                    occupancy[static_cast<std::size_t>(type)].leave();
                }
            }));
        }
        all[index] = seriesOf(workers);
        if (index % observedSeries == 0) {  // by who reads everything
            for (const std::shared_ptr<MZAbstractWorker>& observed : workers) {
                for (const std::string_view key : {"percentComplete", "cancelled", "errors"}) {
                    observations.push_back(observed->observe(
                        key, [series = all[index].get(), &manager](const velto::PropertyChange&) {
                            static_cast<void>(series->description());
                            static_cast<void>(series->percentComplete());
                            static_cast<void>(series->hasErrors());
                            static_cast<void>(manager->allWork());
                        }));
                }
            }
        }
        all[index]->setType(type);
        ends[all[index].get()] = 0;
        for (const std::shared_ptr<MZWorkItem>& item : all[index]->workItems()) {
            ends[static_cast<velto::Operation*>(item.get())] = 0;
        }
    }
    const auto countEnd = [&](const void* object) {
        if (const auto own = ends.find(object); own != ends.end()) {
            ++own->second;
            toEnd.hit();
        }
    };
    velto::NotificationCenter& center = velto::NotificationCenter::shared();
    const auto seriesObservation =
        center.observe(MZWorkSeriesCompletedNotification, nullptr,
                       [&](const auto& told) { countEnd(told.object.get()); });
    const auto itemObservation =
        center.observe(MZWorkItemCompletedNotification, nullptr,
                       [&](const auto& told) { countEnd(told.object.get()); });

    std::barrier ready(submitters + 1);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < submitters; ++thread) {
        threads.emplace_back([&, thread] {
            std::mt19937 random(seed + static_cast<unsigned>(thread));
            ready.arrive_and_wait();
            for (std::size_t index = thread; index < seriesCount; index += submitters) {
                manager->submitWork(all[index]);
                const std::shared_ptr<MZWorkSeries>& victim = all[random() % seriesCount];
                switch (random() % 16) {
                    case 0:
                        victim->cancel();
                        break;
                    case 1:
                        victim->workItems()[random() % itemsPerSeries]->cancel();
                        break;
                    case 2:
                        static_cast<void>(victim->percentComplete());
                        break;
                    case 3:
                        static_cast<void>(manager->allWork());
                        break;
                    case 4:
                        static_cast<void>(victim->description());
                        break;
                    default:
                        break;
                }
            }
        });
    }
    ready.arrive_and_wait();
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(counter->ended.wait(std::chrono::seconds(240)));
    ASSERT_TRUE(toEnd.wait(std::chrono::seconds(240)));
    velto::MainQueue::shared().sync([] {});
    for (const auto& [object, count] : ends) {
        EXPECT_EQ(count, 1);
    }
    EXPECT_TRUE(manager->activeWork().empty());
    for (const Occupancy& type : occupancy) {
        EXPECT_FALSE(type.exceeded());
    }
    for (const std::shared_ptr<MZWorkSeries>& series : all) {
        EXPECT_EQ(series->status(), Status::completed);
        for (const std::shared_ptr<MZWorkItem>& item : series->workItems()) {
            EXPECT_FALSE(item->isActive());
        }
    }
    for (const std::atomic<int>& count : runs) {
        EXPECT_LE(count, 1);
    }
}

TEST(WorkStress, ItemsThatBlockNeverStarveOthers) {
    auto manager = velto::make<MZWorkSeriesManager>();
    constexpr std::size_t blocking = 64;
    velto::testing::Gate mayEnd;
    for (std::size_t i = 0; i < blocking; ++i) {
        manager->submitWork(seriesOf({worker([&](FunctionWorker&) { mayEnd.wait(); })}));
    }
    CountDown quick(100);
    for (int i = 0; i < 100; ++i) {
        manager->submitWork(seriesOf({worker([&](FunctionWorker&) { quick.hit(); })}));
    }
    EXPECT_TRUE(quick.wait());
    mayEnd.open();
    manager->operationQueue()->waitUntilAllOperationsAreFinished();
}

}  // namespace
