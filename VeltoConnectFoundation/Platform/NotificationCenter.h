#pragma once

#include <VeltoConnectFoundation/Platform/Value.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace velto {

class Queue;

struct Notification {
    std::string_view name;
    std::shared_ptr<void> object;
    Dictionary userInfo;

    /// The sender, whose type the notification's name implies.
    template <class T>
    std::shared_ptr<T> objectAs() const {
        return std::static_pointer_cast<T>(object);
    }
};

/// Ends its observation when it is destroyed; after that the observer is not called again (a call
/// under way on another thread is waited for, one on this thread is not).
class VELTO_EXPORT NotificationObservation {
public:
    NotificationObservation() noexcept;
    NotificationObservation(NotificationObservation&&) noexcept;
    NotificationObservation& operator=(NotificationObservation&&) noexcept;
    ~NotificationObservation();

    class Entry;

private:
    friend class NotificationCenter;
    explicit NotificationObservation(std::shared_ptr<Entry> entry) noexcept;
    std::shared_ptr<Entry> entry_;
};

/// Tells observers by name, in the order in which they came. Any thread; observers run with no
/// lock held. What one throws is logged as critical, and the next is told.
class VELTO_EXPORT NotificationCenter {
public:
    static NotificationCenter& shared();  ///< The process-wide one, never destroyed.

    /// A null `object` means any sender.
    [[nodiscard]] NotificationObservation observe(
        std::string_view name,
        const void* object,
        std::function<void(const Notification&)> observer);

    /// On the calling thread. `name` is a constant; `object` is kept alive until all have been
    /// told.
    void post(std::string_view name, std::shared_ptr<void> object, Dictionary userInfo = {});
    /// Later, on the main queue, without waiting. Costs nothing but a look-up when nobody observes
    /// the name.
    void postOnMainThread(std::string_view name,
                          std::shared_ptr<void> object,
                          Dictionary userInfo = {});

private:
    friend class NotificationObservation;
    NotificationCenter();
    class State;
    State* state_;
};

}  // namespace velto
