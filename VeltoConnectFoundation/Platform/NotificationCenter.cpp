#include <VeltoConnectFoundation/Platform/NotificationCenter.h>

#include <VeltoConnectFoundation/Platform/CallGate.h>
#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

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
};

class NotificationCenter::State {
public:
    using Entry = NotificationObservation::Entry;
    using Entries = std::vector<std::shared_ptr<Entry>>;

    void add(const std::shared_ptr<Entry>& entry) {
        const MutexGuard guard(mutex_);
        std::shared_ptr<const Entries>& entries = entriesByName_[entry->name];
        auto changed =
            entries == nullptr ? std::make_shared<Entries>() : std::make_shared<Entries>(*entries);
        changed->push_back(entry);
        entries = std::move(changed);
    }

    void remove(const std::shared_ptr<Entry>& entry) {
        const MutexGuard guard(mutex_);
        const auto found = entriesByName_.find(entry->name);
        auto changed = std::make_shared<Entries>(*found->second);
        std::erase(*changed, entry);
        if (changed->empty()) {
            entriesByName_.erase(found);
        } else {
            found->second = std::move(changed);
        }
    }

    /// As they are now: later changes make a new list.
    std::shared_ptr<const Entries> entries(std::string_view name) {
        const MutexGuard guard(mutex_);
        const auto found = entriesByName_.find(name);
        return found == entriesByName_.end() ? nullptr : found->second;
    }

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    Mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<const Entries>, Hash, std::equal_to<>>
        entriesByName_ VELTO_GUARDED_BY(mutex_);
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
        NotificationCenter::shared().state_->remove(entry_);
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
    if (state_->entries(name) != nullptr) {
        MainQueue::shared().async(
            [this, name, object = std::move(object), userInfo = std::move(userInfo)] {
                post(name, object, userInfo);
            });
    }
}

}  // namespace velto
