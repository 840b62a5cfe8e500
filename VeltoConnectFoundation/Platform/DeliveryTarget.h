#pragma once

#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/RunLoop.h>

#include <functional>
#include <memory>
#include <variant>

namespace velto {

/// Where what happens elsewhere is told, in order: a queue, or one thread's run loop.
class DeliveryTarget {
public:
    DeliveryTarget(std::shared_ptr<RunLoop> loop) : target_(std::move(loop)) {}
    DeliveryTarget(std::shared_ptr<Queue> queue) : target_(std::move(queue)) {}
    DeliveryTarget(MainQueue& queue)
        : target_(std::shared_ptr<Queue>(std::shared_ptr<Queue>(), &queue)) {}

    void post(std::function<void()> work) const {
        if (const auto* loop = std::get_if<std::shared_ptr<RunLoop>>(&target_)) {
            (*loop)->perform(std::move(work));
        } else {
            std::get<std::shared_ptr<Queue>>(target_)->async(std::move(work));
        }
    }

private:
    std::variant<std::shared_ptr<RunLoop>, std::shared_ptr<Queue>> target_;
};

}  // namespace velto
