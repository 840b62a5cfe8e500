#include <VeltoConnectFoundation/Platform/Operation.h>

namespace velto {

Operation::Operation() = default;
Operation::~Operation() = default;

void Operation::cancel() {
    operationCancelled_.store(true);
}

void Operation::couldNotStart(const Error&) {
    cancel();
}

bool Operation::isCancelled() const {
    return operationCancelled_.load();
}

}  // namespace velto
