#include <VeltoConnectFoundation/Platform/NotificationCenter.h>

#include <VeltoConnectFoundation/Platform/CallGate.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

namespace velto {

class NotificationObservation::Entry {
public:
    Entry(std::string_view observedName,
          const void* observedObject,
          std::function<void(const Notification&)> calls)
        : name(observedName), object(observedObject), observer(std::move(calls)) {}

    void tell(const Notification& notification) {
        if (object != nullptr && object != notification.object.get()) {
            return;
        }
        if (const CallGate::Passage passage(gate); passage) {
            try {
                observer(notification);
            } catch (...) {
                platformLogUncaught(std::string("an observer of ") += name);
            }
        }
    }

    const std::string name;
    const void* const object;
    const std::function<void(const Notification&)> observer;
    CallGate gate;
    std::uint64_t sequence = 0;  ///< Set by the centre, once.
};

class NotificationCenter::State {
public:
    using Entry = NotificationObservation::Entry;
    using Entries = std::vector<std::shared_ptr<Entry>>;

    void add(const std::shared_ptr<Entry>& entry) {
        const MutexGuard guard(mutex_);
        Observers& observers = observersByName_[entry->name];
        entry->sequence = ++lastSequence_;
        observers.inOrder.emplace_hint(observers.inOrder.end(), entry->sequence, entry);
        observers.list = nullptr;
    }

    void remove(const Entry& entry) {
        std::shared_ptr<const Entries> list;  // Freed with no lock held.
        const MutexGuard guard(mutex_);
        const auto found = observersByName_.find(entry.name);
        list.swap(found->second.list);
        found->second.inOrder.erase(entry.sequence);
        if (found->second.inOrder.empty()) {
            observersByName_.erase(found);
        }
    }

    bool hasObservers(std::string_view name) {
        const MutexGuard guard(mutex_);
        return observersByName_.find(name) != observersByName_.end();
    }

    /// As they are now: later changes make a new list.
    std::shared_ptr<const Entries> entries(std::string_view name) {
        const MutexGuard guard(mutex_);
        const auto found = observersByName_.find(name);
        if (found == observersByName_.end()) {
            return nullptr;
        }
        Observers& observers = found->second;
        if (observers.list == nullptr) {
            Entries list;
            list.reserve(observers.inOrder.size());
            for (const auto& [sequence, entry] : observers.inOrder) {
                list.push_back(entry);
            }
            observers.list = std::make_shared<const Entries>(std::move(list));
        }
        return observers.list;
    }

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    struct Observers {
        std::map<std::uint64_t, std::shared_ptr<Entry>> inOrder;
        std::shared_ptr<const Entries> list;  ///< Made for a post; null after a change.
    };

    Mutex mutex_;
    std::uint64_t lastSequence_ VELTO_GUARDED_BY(mutex_) = 0;
    std::unordered_map<std::string, Observers, Hash, std::equal_to<>> observersByName_
        VELTO_GUARDED_BY(mutex_);
};

NotificationObservation::NotificationObservation() noexcept = default;
NotificationObservation::NotificationObservation(std::shared_ptr<Entry> entry) noexcept
    : entry_(std::move(entry)) {
}
NotificationObservation::NotificationObservation(NotificationObservation&&) noexcept = default;

NotificationObservation& NotificationObservation::operator=(
    NotificationObservation&& other) noexcept {
    NotificationObservation ended(std::move(*this));
    entry_ = std::move(other.entry_);
    return *this;
}

NotificationObservation::~NotificationObservation() {
    if (entry_ != nullptr) {
        NotificationCenter::shared().state_->remove(*entry_);
        entry_->gate.shut();
    }
}

NotificationCenter::NotificationCenter() : state_(new State) {
}

NotificationCenter& NotificationCenter::shared() {
    static auto* const center = new NotificationCenter;
    return *center;
}

NotificationObservation NotificationCenter::observe(
    std::string_view name,
    const void* object,
    std::function<void(const Notification&)> observer) {
    auto entry =
        std::make_shared<NotificationObservation::Entry>(name, object, std::move(observer));
    state_->add(entry);
    return NotificationObservation(std::move(entry));
}

void NotificationCenter::post(std::string_view name,
                              std::shared_ptr<void> object,
                              Dictionary userInfo) {
    if (const auto entries = state_->entries(name)) {
        const Notification notification{name, std::move(object), std::move(userInfo)};
        for (const std::shared_ptr<NotificationObservation::Entry>& entry : *entries) {
            entry->tell(notification);
        }
    }
}

void NotificationCenter::postOnMainThread(std::string_view name,
                                          std::shared_ptr<void> object,
                                          Dictionary userInfo) {
    if (state_->hasObservers(name)) {
        MainQueue::shared().async(
            [this, name, object = std::move(object), userInfo = std::move(userInfo)] {
                post(name, object, userInfo);
            });
    }
}

}  // namespace velto
