#include <VeltoConnectFoundation/Platform/Observable.h>

#include <VeltoConnectFoundation/Platform/CallGate.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <algorithm>
#include <cassert>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

namespace velto {

class Observation::Entry {
public:
    Entry(std::shared_ptr<Observable::Registry> of,
          std::string_view observedKey,
          Observable::Observer calls,
          ObserverTiming when)
        : registry(std::move(of)), key(observedKey), observer(std::move(calls)), timing(when) {}

    void tell(const PropertyChange& change) {
        if (change.isPrior && timing != ObserverTiming::beforeAndAfter) {
            return;
        }
        if (const CallGate::Passage passage(gate); passage) {
            try {
                observer(change);
            } catch (...) {
                platformLogUncaught(std::string("an observer of ") += key);
            }
        }
    }

    const std::shared_ptr<Observable::Registry> registry;
    const std::string_view key;
    const Observable::Observer observer;
    const ObserverTiming timing;
    CallGate gate;
};

/// An object's observers. It outlives the object as long as an observation does.
class Observable::Registry {
public:
    using Entries = std::vector<std::shared_ptr<Observation::Entry>>;

    explicit Registry(Observable& object) : object_(&object) {}

    void add(const std::shared_ptr<Observation::Entry>& entry) {
        const MutexGuard guard(mutex_);
        auto changed = std::make_shared<Entries>(*entries_);
        changed->push_back(entry);
        entries_ = std::move(changed);
        object_->hasObservers_.store(true, std::memory_order_release);
    }

    void remove(const std::shared_ptr<Observation::Entry>& entry) {
        const MutexGuard guard(mutex_);
        auto changed = std::make_shared<Entries>(*entries_);
        std::erase(*changed, entry);
        entries_ = std::move(changed);
        if (object_ != nullptr && entries_->empty()) {
            object_->hasObservers_.store(false, std::memory_order_release);
        }
    }

    void objectIsGone() {
        const MutexGuard guard(mutex_);
        object_ = nullptr;
    }

    /// As they are now: later changes make a new list.
    std::shared_ptr<const Entries> entries() {
        const MutexGuard guard(mutex_);
        return entries_;
    }

private:
    Mutex mutex_;
    Observable* object_ VELTO_GUARDED_BY(mutex_);
    std::shared_ptr<const Entries> entries_ VELTO_GUARDED_BY(mutex_) = std::make_shared<Entries>();
};

Observation::Observation() noexcept = default;
Observation::Observation(std::shared_ptr<Entry> entry) noexcept : entry_(std::move(entry)) {
}
Observation::Observation(Observation&&) noexcept = default;

Observation& Observation::operator=(Observation&& other) noexcept {
    Observation ended(std::move(*this));
    entry_ = std::move(other.entry_);
    return *this;
}

Observation::~Observation() {
    if (entry_ != nullptr) {
        entry_->registry->remove(entry_);
        entry_->gate.shut();
    }
}

Observable::Observable() = default;

Observable::~Observable() {
    if (registry_ != nullptr) {
        registry_->objectIsGone();
    }
}

Observation Observable::observe(std::string_view key, Observer observer, ObserverTiming timing) {
    static auto* const making = new Mutex;
    std::shared_ptr<Registry> registry;
    {
        const MutexGuard guard(*making);
        if (registry_ == nullptr) {
            registry_ = std::make_shared<Registry>(*this);
        }
        registry = registry_;
    }
    auto entry = std::make_shared<Observation::Entry>(registry, key, std::move(observer), timing);
    registry->add(entry);
    return Observation(std::move(entry));
}

std::span<const Observable::Dependency> Observable::dependencies() const {
    return {};
}

void Observable::announce(std::span<const std::string_view> keys, bool isPrior) {
    const std::shared_ptr<const Registry::Entries> entries = registry_->entries();
    if (entries->empty()) {
        return;
    }
    // Each key is followed by what depends on it, directly or through others.
    const std::span<const Dependency> table = dependencies();
    std::vector<std::string_view> affected;
    affected.reserve(keys.size() + table.size());
    const auto add = [&](std::string_view key) {
        if (std::ranges::find(affected, key) == affected.end()) {
            affected.push_back(key);
        }
    };
    for (const std::string_view key : keys) {
        std::size_t next = affected.size();
        for (add(key); next < affected.size(); ++next) {
            for (const Dependency& dependency : table) {
                if (dependency.on == affected[next]) {
                    add(dependency.dependent);
                }
            }
        }
    }
    for (const std::string_view key : affected) {
        for (const std::shared_ptr<Observation::Entry>& entry : *entries) {
            if (entry->key == key) {
                entry->tell({*this, key, isPrior});
            }
        }
    }
}

std::shared_ptr<const void> Observable::sharedSelf() const {
    return nullptr;
}

thread_local Observable::SetterTurn* Observable::SetterTurn::innermost = nullptr;

Observable::SetterTurn::SetterTurn(Observable& object, Calls& calls)
    : alive_(object.hasObservers_.load(std::memory_order_acquire) ? object.sharedSelf() : nullptr),
      object_(object),
      calls_(calls),
      outer_(std::exchange(innermost, this)) {
    // Two threads whose observers set each other's objects would wait for each other for ever.
    assert(outer_ == nullptr || &outer_->object_ == &object);
    object_.setters_.lock();
}

Observable::SetterTurn::~SetterTurn() {
    object_.setters_.unlock();
    innermost = outer_;
}

void Observable::SetterTurn::callAfterwards(std::function<void()> call) {
    SetterTurn* outermost = this;
    while (outermost->outer_ != nullptr && &outermost->outer_->object_ == &object_) {
        outermost = outermost->outer_;
    }
    outermost->calls_.push_back(std::move(call));
}

Observable::Change::Change(Observable& object, std::initializer_list<std::string_view> keys)
    : object_(object),
      count_(static_cast<std::uint8_t>(std::min(keys.size(), keys_.size()))),
      observed_(object.hasObservers_.load(std::memory_order_acquire)) {
    assert(keys.size() <= keys_.size());
    if (observed_) {
        std::ranges::copy_n(keys.begin(), count_, keys_.begin());
        object_.announce(std::span(keys_).first(count_), true);
    }
}

Observable::Change::~Change() {
    if (observed_) {
        std::ranges::reverse(std::span(keys_).first(count_));
        object_.announce(std::span(keys_).first(count_), false);
    }
}

}  // namespace velto
