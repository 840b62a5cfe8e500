#pragma once

#include <VeltoConnectFoundation/Platform/Lock.h>

#include <exception>
#include <initializer_list>
#include <utility>
#include <vector>

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

/// Reports of one object, collected under its lock and delivered after its release: in order, by
/// one thread at a time, in a loop and never by recursion.
template <class Report>
class MZOutbox {
public:
    /// With the owner's lock held.
    void add(Report report) { waiting_.push_back(std::move(report)); }

    /// With no lock held. Returns at once when another thread, or a caller further up, is at it:
    /// that one delivers these reports too. Answers the first exception that a receiver threw,
    /// after the rest has been delivered.
    template <class Handler>
    [[nodiscard]] std::exception_ptr deliver(velto::Lock& lock, const Handler& handler) {
        std::exception_ptr failure;
        bool ours = false;
        for (;;) {
            std::vector<Report> batch;
            {
                velto::Guard guard(lock);
                if ((delivering_ && !ours) || waiting_.empty()) {
                    delivering_ = delivering_ && !ours;
                    break;
                }
                delivering_ = ours = true;
                batch.swap(waiting_);
            }
            for (Report& report : batch) {
                keepingFirst(failure, [&] { handler(report); });
            }
        }
        return failure;
    }

private:
    std::vector<Report> waiting_;
    bool delivering_ = false;
};

/// Raises the first of the failures, if there is one.
inline void rethrowFirst(std::initializer_list<std::exception_ptr> failures) {
    for (const std::exception_ptr& failure : failures) {
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
    }
}
