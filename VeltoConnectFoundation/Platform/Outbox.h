#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>
#include <VeltoConnectFoundation/Platform/SmallQueue.h>
#include <VeltoConnectFoundation/Platform/SystemLog.h>

#include <exception>
#include <optional>
#include <string_view>
#include <utility>

namespace velto {

/// Takes a step; keeps what it raises, unless one before has raised already.
template <class Step>
void keepingFirst(std::exception_ptr& failure, const Step& step) {
    try {
        step();
    } catch (...) {
        if (failure == nullptr) {
            failure = std::current_exception();
        }
    }
}

inline void rethrowIfAny(const std::exception_ptr& failure) {
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

/// Reports of one object, collected under its lock and delivered after its release: in order, by
/// one thread at a time, in a loop and never by recursion. The object keeps itself alive while it
/// delivers.
template <class Report>
class Outbox {
public:
    /// `lock` is the owner's; `receivers` reads well after "in", for the log.
    Outbox(Lock& lock, std::string_view receivers) : lock_(lock), receivers_(receivers) {}

    /// With the owner's lock held.
    void add(Report report) {
        assumeLocked();
        waiting_.add(std::move(report));
    }

    /// With no lock held. Returns at once when another thread, or a caller further up, is at it:
    /// that one delivers these reports too. What a receiver raises is logged as critical, or kept
    /// in `failure`, the first of them; the others are told all the same.
    template <class Handler>
    void deliver(const Handler& handler, std::exception_ptr* failure = nullptr)
        VELTO_EXCLUDES(lock_) {
        if (!begin()) {
            return;
        }
        while (std::optional<Report> report = take()) {
            std::exception_ptr raised;
            keepingFirst(raised, [&] { handler(*report); });
            if (raised == nullptr) {
                continue;
            }
            if (failure == nullptr) {
                logUncaught(raised);
            } else if (*failure == nullptr) {
                *failure = raised;
            }
        }
    }

private:
    void assumeLocked() const VELTO_ANNOTATION(assert_capability(lock_)) {}

    bool begin() {
        const Guard guard(lock_);
        if (delivering_ || waiting_.isEmpty()) {
            return false;
        }
        delivering_ = true;
        return true;
    }

    /// None when all have been delivered.
    std::optional<Report> take() {
        const Guard guard(lock_);
        std::optional<Report> report = waiting_.take();
        delivering_ = report.has_value();
        return report;
    }

    void logUncaught(const std::exception_ptr& raised) const {
        try {
            std::rethrow_exception(raised);
        } catch (...) {
            platformLogUncaught(receivers_);
        }
    }

    Lock& lock_;
    const std::string_view receivers_;
    SmallQueue<Report> waiting_ VELTO_GUARDED_BY(lock_);
    bool delivering_ VELTO_GUARDED_BY(lock_) = false;
};

}  // namespace velto
