#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace velto {

class Observable;

struct PropertyChange {
    Observable& object;
    std::string_view key;
    bool isPrior;  ///< Told before the change; only to observers that asked for it.
};

/// Ends the observation when it is destroyed; after that the observer is not called again
/// (a call under way on another thread is waited for, one on this thread is not).
class VELTO_EXPORT Observation {
public:
    Observation() noexcept;
    Observation(Observation&&) noexcept;
    Observation& operator=(Observation&&) noexcept;
    ~Observation();

private:
    friend class Observable;
    class Entry;
    explicit Observation(std::shared_ptr<Entry> entry) noexcept;
    std::shared_ptr<Entry> entry_;
};

enum class ObserverTiming : std::uint8_t { after, beforeAndAfter };

/// Properties that announce their changes by key, with dependent keys.
///
/// An observer runs on the thread that made the change, while the object's other setters wait and
/// its readers do not: it may read anything of any object, but must not wait for another thread,
/// and may change this object only; what it wants of another it posts to a queue. One change tells
/// an observer of a key once, also when several changed keys lead to that key.
class VELTO_EXPORT Observable {
public:
    using Observer = std::function<void(const PropertyChange&)>;

    Observable(const Observable&) = delete;
    Observable& operator=(const Observable&) = delete;

    /// `key` must outlive the observation (keys are constants). Any thread.
    [[nodiscard]] Observation observe(std::string_view key,
                                      Observer observer,
                                      ObserverTiming timing = ObserverTiming::after);

protected:
    Observable();
    virtual ~Observable();

    /// What a setter has to call when nothing is announced any more.
    using Calls = std::vector<std::function<void()>>;

    /// A setter's turn: held while it compares, announces and stores, so that changes are told in
    /// their order. Readers never take it; no lock that they take is held while a change is
    /// announced. The object lives on until the turn ends, whatever observers let go of.
    class VELTO_EXPORT SetterTurn {
    public:
        /// `calls` is filled by the outermost turn of the thread only; its setter makes them after
        /// the turn.
        SetterTurn(Observable& object, Calls& calls);
        explicit SetterTurn(Observable& object) : SetterTurn(object, none_) {}
        ~SetterTurn();
        SetterTurn(const SetterTurn&) = delete;
        SetterTurn& operator=(const SetterTurn&) = delete;

        /// For a setter that an observer called, the call waits for the turn that it is told in.
        void callAfterwards(std::function<void()> call);

    private:
        static thread_local SetterTurn* innermost;
        std::shared_ptr<const void> alive_;
        Observable& object_;
        Calls none_;
        Calls& calls_;
        SetterTurn* const outer_;  ///< Which this thread has beside it: the same object's.
    };

    /// Announces a change of `keys`, in order, and of everything that depends on them: before it
    /// on construction, after it on destruction (the keys in reverse order). At most 4 keys.
    /// Costs one atomic load when nobody observes.
    class VELTO_EXPORT Change {
    public:
        Change(Observable& object, std::initializer_list<std::string_view> keys);
        ~Change();
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

    private:
        Observable& object_;
        std::array<std::string_view, 4> keys_;
        std::uint8_t count_;
        bool observed_;
    };

    /// `dependent` is announced when `on` changes.
    struct Dependency {
        std::string_view dependent;
        std::string_view on;
    };
    /// The class's fixed table; empty unless overridden.
    virtual std::span<const Dependency> dependencies() const;
    /// A reference to this object; null where its owner keeps it.
    virtual std::shared_ptr<const void> sharedSelf() const;

private:
    friend class Observation;
    class Registry;
    void announce(std::span<const std::string_view> keys, bool isPrior);
    Lock setters_;
    std::atomic<bool> hasObservers_{false};
    std::shared_ptr<Registry> registry_;  ///< Made with the first observer.
};

}  // namespace velto
