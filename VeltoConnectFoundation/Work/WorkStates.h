#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

/// The life cycles of items, of series, and of a manager's series, as values.
///
/// Each class holds its machine under its lock, tells it what happened, lets go of the lock and
/// carries out the answer: calling delegates, workers, series and managers. The machines call
/// nothing and know no threads, so a test can walk every order of events on them.

// An item ---------------------------------------------------------------------------------------

/// Who takes an item out of pending owns its end: the thread that runs it, or the one that
/// cancelled it before. Whoever cancels a running item takes part in its end until the worker has
/// been told; the last of the two reports it.
enum class MZItemState : std::uint8_t {
    pending,
    running,                 ///< Its owner runs the worker.
    runningClosed,           ///< The same; its completion was recorded from outside.
    stopping,                ///< Cancelled; the owner alone has yet to finish.
    stoppingClosed,          ///< Recorded from outside; the owner or the canceller is still at it.
    stoppingTogether,        ///< Cancelled; owner and canceller are at it.
    stoppingTogetherClosed,  ///< The same; recorded from outside.
    stoppingLast,            ///< Cancelled and finished; the canceller is still at the worker.
    completed,
    cancelled,
};

enum class MZItemEvent : std::uint8_t {
    claim,   ///< A queue's thread wants to run it.
    cancel,  ///< Anybody.
    close,   ///< threadCompleted, called by somebody else than its owner.
    finish,  ///< Its owner, once.
    leave,   ///< The canceller of a running item, once, when the worker has been told.
};

/// What an event asks of the item; a sum of these.
enum MZItemEffect : std::uint8_t {
    MZItemRuns = 1,           ///< Status 1; the caller owns the end.
    MZItemStops = 2,          ///< Status 2; the caller tells the worker.
    MZItemRecords = 4,        ///< The time of the completion.
    MZItemCompletes = 8,      ///< Status 3 and the end sequence, which a cancelled item never has.
    MZItemEnds = 16,          ///< Its series are told that nothing of it runs any more.
    MZItemNotifies = 32,      ///< The notification of its completion.
    MZItemCallerOwns = 64,    ///< The caller finishes.
    MZItemCallerLeaves = 128  ///< The caller leaves.
};

struct MZItemStep {
    MZItemState next;
    std::uint8_t effects;

    [[nodiscard]] constexpr bool has(MZItemEffect effect) const { return (effects & effect) != 0; }
};

/// One line of the table below.
struct MZItemRow {
    MZItemState from;
    MZItemEvent event;
    MZItemState to;
    int effects;
};

/// Every other event in every other state: nothing.
inline constexpr auto MZItemTable = [] {
    using enum MZItemState;
    using enum MZItemEvent;
    constexpr int completion = MZItemRecords | MZItemCompletes;
    constexpr int end = MZItemEnds | MZItemNotifies;
    return std::to_array<MZItemRow>({
        {pending, claim, running, MZItemRuns | MZItemCallerOwns},
        {pending, cancel, stopping, MZItemStops | MZItemCallerOwns},
        {pending, close, completed, completion | end},
        {running, cancel, stoppingTogether, MZItemStops | MZItemCallerLeaves},
        {running, close, runningClosed, completion | MZItemNotifies},
        {running, finish, completed, completion | end},
        {runningClosed, finish, completed, MZItemEnds},
        {stopping, close, stoppingClosed, MZItemRecords | MZItemNotifies},
        {stopping, finish, cancelled, MZItemRecords | end},
        {stoppingClosed, finish, cancelled, MZItemEnds},
        {stoppingClosed, leave, cancelled, MZItemEnds},
        {stoppingTogether, close, stoppingTogetherClosed, MZItemRecords | MZItemNotifies},
        {stoppingTogether, finish, stoppingLast, MZItemRecords},
        {stoppingTogether, leave, stopping, 0},
        {stoppingTogetherClosed, finish, stoppingClosed, 0},
        {stoppingTogetherClosed, leave, stoppingClosed, 0},
        {stoppingLast, leave, cancelled, end},
    });
}();

inline constexpr std::size_t MZItemStateCount = std::size_t(MZItemState::cancelled) + 1;
inline constexpr std::size_t MZItemEventCount = std::size_t(MZItemEvent::leave) + 1;

/// What `event` means in `state`.
[[nodiscard]] constexpr MZItemStep MZItemStepAfter(MZItemState state, MZItemEvent event) {
    constexpr auto steps = [] {
        std::array<std::array<MZItemStep, MZItemEventCount>, MZItemStateCount> all{};
        for (std::size_t from = 0; from < MZItemStateCount; ++from) {
            all[from].fill({static_cast<MZItemState>(from), 0});
        }
        for (const MZItemRow& row : MZItemTable) {
            all[std::size_t(row.from)][std::size_t(row.event)] = {
                row.to, static_cast<std::uint8_t>(row.effects)};
        }
        return all;
    }();
    return steps[std::size_t(state)][std::size_t(event)];
}

[[nodiscard]] constexpr bool MZItemHasEnded(MZItemState state) {
    return state == MZItemState::completed || state == MZItemState::cancelled;
}

/// Whether status 3, or 2, is the item's by what has happened to it.
[[nodiscard]] constexpr bool MZItemHasCompleted(MZItemState state) {
    return state == MZItemState::completed || state == MZItemState::runningClosed;
}
[[nodiscard]] constexpr bool MZItemWasCancelled(MZItemState state) {
    return state != MZItemState::pending && state != MZItemState::running &&
           !MZItemHasCompleted(state);
}

namespace MZWorkStatesProof {

/// Follows every order of events from `state`, in which whoever owns the end finishes and whoever
/// takes part leaves; answers whether each ends, records and notifies once and then stays.
constexpr bool endsOnce(MZItemState state,
                        int owners,
                        int guests,
                        int ends,
                        int records,
                        int notes) {
    bool fine = ends <= 1 && records <= 1 && notes <= 1 && owners <= 1 && guests <= 1;
    fine = fine && (ends == 1) == MZItemHasEnded(state);
    if (owners + guests == 0 && state != MZItemState::pending) {
        fine = fine && ends == 1 && records == 1 && notes == 1;
    }
    for (std::size_t index = 0; fine && index < MZItemEventCount; ++index) {
        const auto event = static_cast<MZItemEvent>(index);
        if ((event == MZItemEvent::finish && owners == 0) ||
            (event == MZItemEvent::leave && guests == 0)) {
            continue;
        }
        const MZItemStep step = MZItemStepAfter(state, event);
        const bool mustMove = event == MZItemEvent::finish || event == MZItemEvent::leave;
        if (step.next == state) {
            fine = fine && step.effects == 0 && !mustMove;
            continue;
        }
        fine =
            fine &&
            endsOnce(step.next,
                     owners + int(step.has(MZItemCallerOwns)) - int(event == MZItemEvent::finish),
                     guests + int(step.has(MZItemCallerLeaves)) - int(event == MZItemEvent::leave),
                     ends + int(step.has(MZItemEnds)), records + int(step.has(MZItemRecords)),
                     notes + int(step.has(MZItemNotifies)));
    }
    return fine;
}

static_assert(endsOnce(MZItemState::pending, 0, 0, 0, 0, 0));

}  // namespace MZWorkStatesProof

// A series --------------------------------------------------------------------------------------

/// Where an item of a series is in the series' eyes.
enum class MZItemPlace : std::uint8_t {
    waiting,  ///< Its turn has not come.
    awaited,  ///< Handed out: its completion, or its end, brings the next one's turn.
    open,     ///< Its completion has been counted, its end has not.
    over,     ///< It has ended.
};

/// pending -> running -> ended, or pending -> stopping -> ended. A series has ended exactly when
/// no item is open and it was started or is stopping; sweeps count as open while they last.
class MZSeriesMachine {
public:
    enum class Start : std::uint8_t {
        runs,
        again,    ///< It was started before.
        tooLate,  ///< It was cancelled before.
    };

    [[nodiscard]] constexpr Start start() {
        if (started_) {
            return Start::again;
        }
        if (stopping_) {
            return Start::tooLate;
        }
        started_ = true;
        return Start::runs;
    }

    /// The index of the item whose turn it is; none when all had theirs: then it is stopping.
    [[nodiscard]] constexpr std::optional<std::size_t> takeTurn(std::size_t count) {
        if (next_ < count) {
            return next_++;
        }
        stopping_ = true;
        return std::nullopt;
    }

    /// The item of `place` is awaited from now on; false when it has ended, which counts as its
    /// completion.
    [[nodiscard]] constexpr bool await(MZItemPlace& place) {
        if (place == MZItemPlace::over) {
            return false;
        }
        open_ += place == MZItemPlace::waiting ? 1 : 0;
        place = MZItemPlace::awaited;
        return true;
    }

    /// The item has completed, and ended if `ends`. Answers whether the next item's turn has come.
    [[nodiscard]] constexpr bool pass(MZItemPlace& place, bool ends) {
        const bool advances = place == MZItemPlace::awaited;
        if (ends) {
            open_ -= place == MZItemPlace::awaited || place == MZItemPlace::open ? 1 : 0;
            place = MZItemPlace::over;
        } else if (advances) {
            place = MZItemPlace::open;
        }
        return advances && !stopping_;
    }

    [[nodiscard]] constexpr bool hasWaiting(std::size_t count) const { return next_ < count; }
    /// No further item gets its turn.
    constexpr void stop() { stopping_ = true; }
    /// A part of the series' stop, which holds its end back until endStop().
    constexpr void beginStop() {
        stop();
        ++open_;
    }
    constexpr void endStop() { --open_; }
    /// Takes the items whose turn has not come out of the row, from the answered index on: the
    /// caller says sweep() of each, cancels them, and says endStop().
    [[nodiscard]] constexpr std::size_t beginSweep(std::size_t count) {
        beginStop();
        return std::exchange(next_, count);
    }
    /// The item is no longer awaited, but the series ends when it has ended.
    constexpr void sweep(MZItemPlace& place) {
        if (place == MZItemPlace::waiting) {
            ++open_;
            place = MZItemPlace::open;
        }
    }

    /// True once: when the series has ended by what was just told.
    [[nodiscard]] constexpr bool settles() {
        if (ended_ || open_ != 0 || !(started_ || stopping_)) {
            return false;
        }
        ended_ = true;
        return true;
    }

    [[nodiscard]] constexpr bool isPending() const { return !started_ && !stopping_; }
    [[nodiscard]] constexpr bool hasEnded() const { return ended_; }

    constexpr auto operator<=>(const MZSeriesMachine&) const = default;

private:
    std::size_t next_ = 0;
    std::size_t open_ = 0;
    bool started_ = false;
    bool stopping_ = false;
    bool ended_ = false;
};

// A manager's series ----------------------------------------------------------------------------

/// Where a series that was submitted to a manager stands there.
enum class MZSubmittedState : std::uint8_t {
    waiting,    ///< For its turn; cancelled ones wait for their end.
    running,    ///< It was started, and counts as one of its type.
    dropped,    ///< cancelAllWork found it waiting: it stands in the history and has yet to end.
    dismissed,  ///< cancelAllWork found it running: the same, and it still counts.
    gone,
};

enum class MZSubmittedEvent : std::uint8_t { start, dismiss, end };

/// What an event asks of the manager; a sum of these.
enum MZSubmittedEffect : std::uint8_t {
    MZSubmittedCounts = 1,     ///< It takes a place of its type.
    MZSubmittedFrees = 2,      ///< It gives the place back: the next of the type starts.
    MZSubmittedRemembers = 4,  ///< It enters the history.
    MZSubmittedTells = 8,      ///< The manager's delegate hears of it.
};

struct MZSubmittedStep {
    MZSubmittedState next;
    int effects;

    [[nodiscard]] constexpr bool has(MZSubmittedEffect effect) const {
        return (effects & effect) != 0;
    }
};

/// What `event` means in `state`; an event that is not here means nothing.
[[nodiscard]] constexpr MZSubmittedStep MZSubmittedStepAfter(MZSubmittedState state,
                                                             MZSubmittedEvent event) {
    using enum MZSubmittedState;
    using enum MZSubmittedEvent;
    constexpr struct {
        MZSubmittedState from;
        MZSubmittedEvent event;
        MZSubmittedStep step;
    } table[] = {
        {waiting, start, {running, MZSubmittedCounts}},
        {waiting, dismiss, {dropped, MZSubmittedRemembers}},
        {waiting, end, {gone, MZSubmittedRemembers | MZSubmittedTells}},
        {running, dismiss, {dismissed, MZSubmittedRemembers}},
        {running, end, {gone, MZSubmittedRemembers | MZSubmittedTells | MZSubmittedFrees}},
        {dropped, end, {gone, 0}},
        {dismissed, end, {gone, MZSubmittedFrees}},
    };
    for (const auto& row : table) {
        if (row.from == state && row.event == event) {
            return row.step;
        }
    }
    return {state, 0};
}
