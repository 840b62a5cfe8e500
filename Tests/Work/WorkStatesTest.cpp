#include <VeltoConnectFoundation/Work/WorkStates.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <iostream>
#include <ranges>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Walks every order in which threads can take their steps on the machines, in small worlds: each
/// step is what a class does under one lock, and what it does after the lock are further steps.
namespace {

constexpr std::size_t itemCount = 3;
constexpr std::size_t seriesCount = 2;

auto upTo(std::size_t count) {
    return std::views::iota(std::uint8_t{0}, static_cast<std::uint8_t>(count));
}

enum class Do : std::uint8_t {
    nothing,
    submit,        // series
    start,         // series
    advance,       // series, item whose turn it is
    look,          // series, item: has it ended, has it failed?
    lookIfEnded,   // series, item
    dispatch,      // series: a host's dispatchNextItem
    pass,          // series, item, what was seen
    cancel,        // item
    close,         // item
    finish,        // item
    leave,         // item
    cancelSeries,  // series
    endStop,       // series
    endSeries,     // series: its manager hears
    checkEnded,    // series: had it ended before it was submitted?
    cancelAll,
};

struct Step {
    Do what = Do::nothing;
    std::uint8_t series = 0;
    std::uint8_t item = 0;
    bool ends = false;
    bool fails = false;
    auto operator<=>(const Step&) const = default;
};

/// What a thread has yet to do, the next on top.
struct Thread {
    std::array<Step, 16> steps{};
    std::uint8_t count = 0;
    void push(Step step) {
        assert(count < steps.size());
        steps[count++] = step;
    }
    Step pop() { return std::exchange(steps[--count], Step()); }
    auto operator<=>(const Thread&) const = default;
};

struct Item {
    MZItemState state = MZItemState::pending;
    bool isQueued = false;
    int ends = 0;
    int notifications = 0;
    auto operator<=>(const Item&) const = default;
};

struct Series {
    MZSeriesMachine machine;
    std::array<MZItemPlace, itemCount> places{};
    int ends = 0;
    bool isLinked = false;
    bool hasRecord = false;
    MZSubmittedState submitted = MZSubmittedState::waiting;
    int remembered = 0;
    int told = 0;
    bool isDismissed = false;
    auto operator<=>(const Series&) const = default;
};

struct World {
    std::array<Item, itemCount> items;
    std::array<Series, seriesCount> series;
    int active = 0;
    /// The submitter, two that disturb, and one for each item that runs.
    std::array<Thread, 3 + itemCount> threads;
    auto operator<=>(const World&) const = default;
};

/// A mistake in carrying out what the machines answer, which the walk has to find.
enum class Fault {
    none,
    ownerAloneEndsItem,
    endIsNotPassed,
    sweepIsNotEnded,
    dismissedKeepsItsPlace,
    startsWithoutRoom,
};

struct Case {
    std::vector<std::vector<std::uint8_t>> lists;  // the items of each series, in order
    std::set<std::uint8_t> failing;
    std::vector<Step> first;
    std::vector<Step> second;
    Fault fault = Fault::none;
};

class Walk {
public:
    explicit Walk(const Case& walked) : case_(walked) {
        World world;
        for (std::size_t index = case_.lists.size(); index-- > 0;) {
            const auto series = static_cast<std::uint8_t>(index);
            world.threads[0].push({.what = Do::checkEnded, .series = series});
            world.threads[0].push({.what = Do::submit, .series = series});
        }
        for (const Step& step : std::views::reverse(case_.first)) {
            world.threads[1].push(step);
        }
        for (const Step& step : std::views::reverse(case_.second)) {
            world.threads[2].push(step);
        }
        visit(world);
        while (!open_.empty() && problem_.empty()) {
            const World next = open_.back();
            open_.pop_back();
            stepFrom(next);
        }
    }

    std::size_t states() const { return seen_.size(); }
    const std::string& problem() const { return problem_; }

private:
    void visit(const World& world) {
        if (seen_.insert(world).second) {
            open_.push_back(world);
        }
    }

    void stepFrom(const World& world) {
        bool moved = false;
        for (std::size_t thread = 0; thread < world.threads.size(); ++thread) {
            if (world.threads[thread].count != 0) {
                moved = true;
                World next = world;
                const Step step = next.threads[thread].pop();
                carryOut(next, next.threads[thread], step);
                check(next);
                visit(next);
            }
        }
        for (std::uint8_t item = 0; item < itemCount; ++item) {
            if (world.items[item].isQueued) {  // a thread of the pool takes it
                moved = true;
                World next = world;
                next.items[item].isQueued = false;
                Thread& runner = next.threads[3 + item];
                if (stepItem(next, runner, item, MZItemEvent::claim).has(MZItemCallerOwns)) {
                    runner.push({.what = Do::finish, .item = item});
                }
                visit(next);
            }
        }
        if (!moved) {
            checkRest(world);
        }
    }

    void require(bool holds, const char* what) {
        if (!holds && problem_.empty()) {
            problem_ = what;
        }
    }

    void check(const World& world) {
        for (const Item& item : world.items) {
            require(item.ends <= 1 && item.notifications <= 1, "an item ends twice");
        }
        for (const Series& series : world.series) {
            require(series.ends <= 1, "a series ends twice");
            require(series.remembered <= 1, "a series enters the history twice");
        }
        require(world.active <= 1, "a throttle is passed");
        require(isEndClean_, "a series ends before its items");
    }

    void checkRest(const World& world) {
        for (std::size_t index = 0; index < case_.lists.size(); ++index) {
            const Series& series = world.series[index];
            require(series.ends == 1, "a series stays open");
            require(!series.hasRecord, "a manager waits for a series");
            require(series.remembered == 1, "a series is missing in the history");
            require(series.told == (series.isDismissed ? 0 : 1), "an end is told wrongly");
            for (const std::uint8_t item : case_.lists[index]) {
                require(world.items[item].ends == 1, "an item stays open");
                require(world.items[item].notifications == 1, "an item's end is not posted");
            }
        }
        require(world.active == 0, "a place stays taken");
    }

    MZItemStep stepItem(World& world, Thread& thread, std::uint8_t item, MZItemEvent event) {
        Item& stepped = world.items[item];
        const MZItemStep step = MZItemStepAfter(stepped.state, event);
        stepped.state = step.next;
        stepped.ends += step.has(MZItemEnds) ? 1 : 0;
        stepped.notifications += step.has(MZItemNotifies) ? 1 : 0;
        if (step.has(MZItemCallerOwns) && event == MZItemEvent::cancel) {
            thread.push({.what = Do::finish, .item = item});
        } else if (step.has(MZItemCallerLeaves)) {
            thread.push({.what = case_.fault == Fault::ownerAloneEndsItem ? Do::nothing : Do::leave,
                         .item = item});
        }
        if (step.has(MZItemStops) || step.has(MZItemCompletes) || step.has(MZItemEnds)) {
            for (const std::uint8_t series : upTo(case_.lists.size())) {
                if (std::ranges::count(case_.lists[series], item) != 0) {
                    thread.push({.what = Do::look, .series = series, .item = item});
                }
            }
        }
        return step;
    }

    void settle(Series& series, std::uint8_t index, Thread& thread) {
        if (series.machine.settles()) {
            ++series.ends;
            isEndClean_ = isEndClean_ && std::ranges::none_of(series.places, [](MZItemPlace place) {
                              return place == MZItemPlace::awaited || place == MZItemPlace::open;
                          });
            thread.push({.what = Do::endSeries, .series = index});
        }
    }

    /// What follows when a turn is taken: `thread` will hand the item out.
    void takeTurn(Series& series, std::uint8_t index, Thread& thread) {
        const std::vector<std::uint8_t>& list = case_.lists[index];
        while (const auto turn = series.machine.takeTurn(list.size())) {
            const std::uint8_t item = list[*turn];
            if (series.machine.await(series.places[item])) {
                thread.push({.what = Do::advance, .series = index, .item = item});
                return;
            }
        }
    }

    void sweep(Series& series, std::uint8_t index, Thread& thread) {
        const std::vector<std::uint8_t>& list = case_.lists[index];
        if (!series.machine.hasWaiting(list.size())) {
            series.machine.stop();
            return;
        }
        const std::size_t first = series.machine.beginSweep(list.size());
        if (case_.fault != Fault::sweepIsNotEnded) {
            thread.push({.what = Do::endStop, .series = index});
        }
        for (std::size_t place = list.size(); place-- > first;) {
            series.machine.sweep(series.places[list[place]]);
            thread.push({.what = Do::lookIfEnded, .series = index, .item = list[place]});
            thread.push({.what = Do::cancel, .item = list[place]});
        }
    }

    MZSubmittedStep stepSubmitted(World& world, Series& series, MZSubmittedEvent event) {
        const MZSubmittedStep step = MZSubmittedStepAfter(series.submitted, event);
        series.submitted = step.next;
        world.active += step.has(MZSubmittedCounts) ? 1 : 0;
        world.active -= step.has(MZSubmittedFrees) ? 1 : 0;
        series.remembered += step.has(MZSubmittedRemembers) ? 1 : 0;
        series.told += step.has(MZSubmittedTells) ? 1 : 0;
        series.isDismissed = series.isDismissed || event == MZSubmittedEvent::dismiss;
        series.hasRecord = step.next != MZSubmittedState::gone;
        return step;
    }

    void startNext(World& world, Thread& thread) {
        if (world.active >= 1 && case_.fault != Fault::startsWithoutRoom) {
            return;
        }
        for (const std::uint8_t index : upTo(case_.lists.size())) {
            Series& series = world.series[index];
            if (series.hasRecord && series.submitted == MZSubmittedState::waiting &&
                series.machine.isPending()) {
                static_cast<void>(stepSubmitted(world, series, MZSubmittedEvent::start));
                thread.push({.what = Do::start, .series = index});
                return;
            }
        }
    }

    void carryOut(World& world, Thread& thread, const Step& step) {
        Series& series = world.series[step.series];
        Item& item = world.items[step.item];
        switch (step.what) {
            case Do::nothing:
                break;
            case Do::submit:
                if (!std::exchange(series.isLinked, true)) {
                    series.hasRecord = true;
                    startNext(world, thread);
                }
                break;
            case Do::start:
                if (series.machine.start() == MZSeriesMachine::Start::runs) {
                    takeTurn(series, step.series, thread);
                    settle(series, step.series, thread);
                }
                break;
            case Do::advance:
                if (MZItemHasEnded(item.state)) {
                    thread.push({.what = Do::look, .series = step.series, .item = step.item});
                } else if (item.state == MZItemState::pending) {
                    item.isQueued = true;
                }
                break;
            case Do::dispatch:
                takeTurn(series, step.series, thread);
                settle(series, step.series, thread);
                break;
            case Do::lookIfEnded:
                if (!MZItemHasEnded(item.state)) {
                    break;
                }
                [[fallthrough]];
            case Do::look:
                thread.push(
                    {.what = Do::pass,
                     .series = step.series,
                     .item = step.item,
                     .ends = MZItemHasEnded(item.state) && case_.fault != Fault::endIsNotPassed,
                     .fails = MZItemWasCancelled(item.state) || case_.failing.contains(step.item)});
                break;
            case Do::pass: {
                const bool advances = series.machine.pass(series.places[step.item], step.ends);
                if (step.fails) {
                    sweep(series, step.series, thread);
                } else if (advances) {
                    takeTurn(series, step.series, thread);
                }
                settle(series, step.series, thread);
                break;
            }
            case Do::cancel:
                static_cast<void>(stepItem(world, thread, step.item, MZItemEvent::cancel));
                break;
            case Do::close:
                static_cast<void>(stepItem(world, thread, step.item, MZItemEvent::close));
                break;
            case Do::finish:
                static_cast<void>(stepItem(world, thread, step.item, MZItemEvent::finish));
                break;
            case Do::leave:
                static_cast<void>(stepItem(world, thread, step.item, MZItemEvent::leave));
                break;
            case Do::cancelSeries: {
                series.machine.beginStop();
                thread.push({.what = Do::endStop, .series = step.series});
                const std::vector<std::uint8_t>& list = case_.lists[step.series];
                for (const std::uint8_t each : std::views::reverse(list)) {
                    thread.push({.what = Do::cancel, .item = each});
                }
                break;
            }
            case Do::endStop:
                series.machine.endStop();
                settle(series, step.series, thread);
                break;
            case Do::checkEnded:
                if (!series.machine.hasEnded()) {
                    break;
                }
                [[fallthrough]];
            case Do::endSeries:
                if (series.isLinked && series.hasRecord) {
                    const bool keeps = case_.fault == Fault::dismissedKeepsItsPlace &&
                                       series.submitted == MZSubmittedState::dismissed;
                    const bool frees =
                        stepSubmitted(world, series, MZSubmittedEvent::end).has(MZSubmittedFrees);
                    world.active += frees && keeps ? 1 : 0;
                    if (frees) {
                        startNext(world, thread);
                    }
                }
                break;
            case Do::cancelAll:
                for (const std::uint8_t index : upTo(case_.lists.size())) {
                    Series& dismissed = world.series[index];
                    if (dismissed.hasRecord && (dismissed.submitted == MZSubmittedState::waiting ||
                                                dismissed.submitted == MZSubmittedState::running)) {
                        static_cast<void>(
                            stepSubmitted(world, dismissed, MZSubmittedEvent::dismiss));
                        thread.push({.what = Do::cancelSeries, .series = index});
                    }
                }
                break;
        }
    }

    const Case& case_;
    bool isEndClean_ = true;
    std::set<World> seen_;
    std::vector<World> open_;
    std::string problem_;
};

/// Worlds of one series of up to three items, of two behind one another, and of two that share one.
std::vector<std::vector<std::vector<std::uint8_t>>> shapes() {
    return {{{}},       {{0}},        {{0, 1}},  {{0, 1, 2}},   {{0, 0, 1}}, {{0, 1, 0}},
            {{0}, {1}}, {{0, 1}, {}}, {{}, {0}}, {{0, 1}, {2}}, {{0}, {0}},  {{0, 1}, {1, 2}}};
}

std::vector<std::vector<Step>> disturbances(std::size_t items) {
    std::vector<std::vector<Step>> all{{},
                                       {{.what = Do::cancelAll}},
                                       {{.what = Do::cancelSeries, .series = 0}},
                                       {{.what = Do::submit, .series = 0}},
                                       {{.what = Do::start, .series = 0}},
                                       {{.what = Do::dispatch, .series = 0}}};
    for (const std::uint8_t item : upTo(items)) {
        all.push_back({{.what = Do::cancel, .item = item}});
        all.push_back({{.what = Do::close, .item = item}});
    }
    return all;
}

std::size_t itemsOf(const std::vector<std::vector<std::uint8_t>>& lists) {
    std::set<std::uint8_t> items;
    for (const auto& list : lists) {
        items.insert(list.begin(), list.end());
    }
    return items.size();
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isSlow = true;  // and a sanitizer finds little in what one thread computes
#else
constexpr bool isSlow = false;
#endif

/// Two disturb small worlds in which nothing fails, one disturbs the others; with
/// VELTO_TEST_WALKS=all two disturb everywhere, and each item fails in turn (7.4 million states).
std::vector<Case> cases(Fault fault) {
    const char* const wish = std::getenv("VELTO_TEST_WALKS");
    const bool walksAll = wish != nullptr && std::string_view(wish) == "all";
    std::vector<Case> all;
    for (const auto& lists : shapes()) {
        const std::size_t items = itemsOf(lists);
        const auto disturbing = disturbances(items);
        const std::size_t failing = walksAll ? items : std::min<std::size_t>(items, 1);
        for (std::size_t fails = 0; fails <= failing; ++fails) {
            const bool takesPairs = walksAll || (!isSlow && items < 3 && fails == 0);
            for (std::size_t one = 0; one < disturbing.size(); ++one) {
                for (std::size_t other = 0; other <= (takesPairs ? one : 0); ++other) {
                    Case next{lists, {}, disturbing[one], disturbing[other], fault};
                    if (fails != 0) {
                        next.failing.insert(static_cast<std::uint8_t>(fails - 1));
                    }
                    all.push_back(std::move(next));
                }
            }
        }
    }
    return all;
}

std::string described(const Case& walked) {
    std::string text = "items " + testing::PrintToString(walked.lists) + ", failing " +
                       testing::PrintToString(walked.failing) + ", disturbed by";
    for (const auto& steps : {walked.first, walked.second}) {
        for (const Step& step : steps) {
            text += " " + std::to_string(static_cast<int>(step.what));
        }
    }
    return text;
}

TEST(WorkStates, EveryOrderOfStepsEndsEachItemAndEachSeriesOnce) {
    std::size_t states = 0;
    for (const Case& each : cases(Fault::none)) {
        const Walk walk(each);
        states += walk.states();
        ASSERT_EQ(walk.problem(), "") << described(each);
    }
    RecordProperty("states", std::to_string(states));
    std::cout << states << " states\n";
}

TEST(WorkStates, TheWalkFindsWhatIsCarriedOutWrongly) {
    for (const Fault fault :
         {Fault::ownerAloneEndsItem, Fault::endIsNotPassed, Fault::sweepIsNotEnded,
          Fault::dismissedKeepsItsPlace, Fault::startsWithoutRoom}) {
        const std::vector<Case> all = cases(fault);
        EXPECT_TRUE(std::ranges::any_of(all, [](const Case& each) {
            return !Walk(each).problem().empty();
        })) << static_cast<int>(fault);
    }
}

}  // namespace
