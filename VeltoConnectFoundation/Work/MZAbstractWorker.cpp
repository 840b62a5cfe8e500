#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Format.h>
#include <VeltoConnectFoundation/Platform/Make.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Platform/SharedDictionary.h>
#include <VeltoConnectFoundation/Platform/TypeName.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <utility>

using velto::Array;
using velto::Error;
using velto::Exception;
using velto::Guard;
using velto::Value;

namespace {

void makeAll(const std::vector<std::function<void()>>& calls) {
    for (const std::function<void()>& call : calls) {
        call();
    }
}

Error messageError(std::string_view message) {
    return Error::make(WorkerErrorDomain, -10000, message, message);
}

}  // namespace

struct MZAbstractWorker::Callbacks {
    std::shared_ptr<velto::Queue> queue;
    Callback started;
    Callback cancelled;
    Callback finished;
    StatusMessageCallback statusMessage;
    PercentCompleteCallback percentComplete;
};

MZAbstractWorker::MZAbstractWorker()
    : storeType_(MZStoreMessages::sharedStoreMessages()->storeType()) {
}

MZAbstractWorker::~MZAbstractWorker() = default;

std::span<const velto::Observable::Dependency> MZAbstractWorker::dependencies() const {
    static constexpr Dependency table[] = {
        {"hasInfoMessages", "infoMessages"},
        {"hasWarnings", "warnings"},
        {"hasErrors", "errors"},
        {"hasErrors", "errorMessage"},
        {"errorMessage", "errors"},
        {"errors", "errorMessage"},
    };
    return table;
}

MZAbstractWorker::Callbacks& MZAbstractWorker::callbacks() {
    if (callbacks_ == nullptr) {
        callbacks_ = std::make_unique<Callbacks>();
        hasCallbacks_ = true;
    }
    return *callbacks_;
}

template <class Member>
Member MZAbstractWorker::get(Member Callbacks::*member) const {
    const Guard guard(lock_);
    return callbacks_ == nullptr ? Member() : (*callbacks_).*member;
}

template <class Member>
void MZAbstractWorker::set(Member Callbacks::*member, Member value) {
    const Guard guard(lock_);
    (callbacks().*member).swap(value);  // What was set before is let go of after the lock.
}

template <class Member, class... Arguments>
void MZAbstractWorker::dispatch(SetterTurn& turn,
                                Member Callbacks::*member,
                                Arguments... arguments) {
    if (!hasCallbacks_) {
        return;
    }
    std::shared_ptr<velto::Queue> queue;
    Member callback;
    {
        const Guard guard(lock_);
        queue = callbacks_->queue;
        callback = (*callbacks_).*member;
    }
    if (queue == nullptr || !callback) {
        return;
    }
    std::function<void()> call = [self = shared_from_this(), callback = std::move(callback),
                                  ... arguments = std::move(arguments)] {
        if constexpr (sizeof...(arguments) == 0) {
            callback(*self);
        } else {
            callback(arguments...);
        }
    };
    if (queue->isCurrent()) {
        turn.callAfterwards(std::move(call));
    } else {
        queue->async(std::move(call));
    }
}

template <class Step>
void MZAbstractWorker::inTurn(const Step& step) {
    Calls calls;
    {
        SetterTurn turn(*this, calls);
        step(turn);
    }
    makeAll(calls);
}

void MZAbstractWorker::run() {
    throw Exception(velto::InternalInconsistencyException,
                    velto::format("Subclasses must override %@", "run"));
}

void MZAbstractWorker::seriesCompleted() {
}

void MZAbstractWorker::cancel() {
    const std::shared_ptr<const void> alive = sharedSelf();
    Calls calls;
    {
        const SetterTurn turn(*this, calls);
        if (cancelled_) {
            return;
        }
        const Change change(*this, {"cancelled"});
        cancelled_ = true;
    }
    makeAll(calls);
    setWorkStatus(MZWorkStatusCancelled);
}

void MZAbstractWorker::setWorkStatus(MZWorkStatus status) {
    inTurn([&](SetterTurn& turn) { changeWorkStatus(turn, status); });
}

bool MZAbstractWorker::startUnlessCancelled() {
    return setUnlessCancelled(MZWorkStatusStarted);
}

bool MZAbstractWorker::finishUnlessCancelled() {
    return setUnlessCancelled(MZWorkStatusFinished);
}

bool MZAbstractWorker::setUnlessCancelled(MZWorkStatus status) {
    bool isSet = false;
    inTurn([&](SetterTurn& turn) {
        isSet = !cancelled_;
        if (isSet) {
            changeWorkStatus(turn, status);
        }
    });
    return isSet;
}

void MZAbstractWorker::changeWorkStatus(SetterTurn& turn, MZWorkStatus status) {
    if (workStatus_ == status) {
        return;
    }
    {
        const Change change(*this, {"workStatus"});
        workStatus_ = status;
    }
    switch (status) {
        case MZWorkStatusStarted:
            return dispatch(turn, &Callbacks::started);
        case MZWorkStatusCancelled:
            return dispatch(turn, &Callbacks::cancelled);
        case MZWorkStatusFinished:
            return dispatch(turn, &Callbacks::finished);
        default:
            return;
    }
}

double MZAbstractWorker::percentComplete() const {
    return percentComplete_;
}

void MZAbstractWorker::setPercentComplete(double percent) {
    inTurn([&](SetterTurn& turn) {
        if (percentComplete_ == percent) {
            return;
        }
        {
            const Change change(*this, {"percentComplete"});
            percentComplete_ = percent;
        }
        dispatch(turn, &Callbacks::percentComplete, percent);
    });
}

std::optional<std::string> MZAbstractWorker::statusMessage() const {
    Guard guard(lock_);
    return statusMessage_;
}

void MZAbstractWorker::setStatusMessage(std::optional<std::string> message) {
    inTurn([&](SetterTurn& turn) {
        {
            const Guard guard(lock_);
            if (statusMessage_ == message) {
                return;
            }
        }
        {
            const Change change(*this, {"statusMessage"});
            const Guard guard(lock_);
            statusMessage_ = message;
        }
        dispatch(turn, &Callbacks::statusMessage, std::move(message).value_or(std::string()));
    });
}

std::optional<std::string> MZAbstractWorker::errorMessage() const {
    Guard guard(lock_);
    if (errors_.empty()) {
        return std::nullopt;
    }
    return errors_.back().localizedDescription();
}

template <class Store>
void MZAbstractWorker::changeLists(std::initializer_list<std::string_view> keys,
                                   const Store& store) {
    Calls calls;
    {
        const SetterTurn turn(*this, calls);
        const Change change(*this, keys);
        const Guard guard(lock_);
        store();
    }
    makeAll(calls);
}

void MZAbstractWorker::setErrorMessage(const std::optional<std::string>& message) {
    changeLists({"errorMessage"}, [&]() VELTO_REQUIRES(lock_) {
        if (message && !message->empty()) {
            errors_.push_back(messageError(*message));
        } else {
            errors_.clear();
        }
    });
}

void MZAbstractWorker::addErrorMessage(std::string_view message) {
    if (!message.empty()) {
        addError(messageError(message));
    }
}

void MZAbstractWorker::addException(const Exception& exception) {
    std::string text = exception.reason().empty() ? exception.name() : exception.reason();
    if (text.empty()) {
        text = "Unknown exception reason";
    }
    velto::Dictionary information{{velto::LocalizedDescriptionKey, text},
                                  {velto::LocalizedFailureReasonKey, text},
                                  {"MZUnderlyingException", exception}};
    if (const Value& cause = exception.userInfo()[velto::UnderlyingErrorKey]) {
        information.set(velto::UnderlyingErrorKey, cause);
    }
    addError(Error(WorkerErrorDomain, -10001, std::move(information)));
}

void MZAbstractWorker::addError(const Error& error) {
    if (error) {
        changeLists({"errors"}, [&]() VELTO_REQUIRES(lock_) { errors_.push_back(error); });
    }
}

void MZAbstractWorker::addErrors(const std::vector<Error>& errors) {
    if (!errors.empty()) {
        changeLists({"errors"}, [&]() VELTO_REQUIRES(lock_) {
            errors_.insert(errors_.end(), errors.begin(), errors.end());
        });
    }
}

std::vector<Error> MZAbstractWorker::errors() const {
    Guard guard(lock_);
    return errors_;
}

bool MZAbstractWorker::hasErrors() const {
    Guard guard(lock_);
    return !errors_.empty();
}

void MZAbstractWorker::addWarning(const Value& warning) {
    if (warning) {
        changeLists({"warnings"}, [&]() VELTO_REQUIRES(lock_) { warnings_.append(warning); });
    }
}

void MZAbstractWorker::addWarnings(const Array& warnings) {
    if (!warnings.isEmpty()) {
        changeLists({"warnings"}, [&]() VELTO_REQUIRES(lock_) { warnings_.append(warnings); });
    }
}

Array MZAbstractWorker::warnings() const {
    Guard guard(lock_);
    return warnings_;
}

bool MZAbstractWorker::hasWarnings() const {
    Guard guard(lock_);
    return !warnings_.isEmpty();
}

void MZAbstractWorker::addInfoMessages(const Array& messages) {
    if (!messages.isEmpty()) {
        changeLists({"infoMessages"},
                    [&]() VELTO_REQUIRES(lock_) { infoMessages_.append(messages); });
    }
}

Array MZAbstractWorker::infoMessages() const {
    Guard guard(lock_);
    return infoMessages_;
}

bool MZAbstractWorker::hasInfoMessages() const {
    Guard guard(lock_);
    return !infoMessages_.isEmpty();
}

void MZAbstractWorker::resetErrorsWarningsAndInfoMessages() {
    changeLists({"errors", "warnings", "infoMessages"}, [&]() VELTO_REQUIRES(lock_) {
        errors_.clear();
        warnings_.clear();
        infoMessages_.clear();
    });
}

std::int64_t MZAbstractWorker::storeType() const {
    Guard guard(lock_);
    return storeMessages_ == nullptr ? storeType_ : storeMessages_->storeType();
}

void MZAbstractWorker::setStoreType(std::int64_t storeType) {
    Guard guard(lock_);
    storeType_ = storeType;
    storeMessages_ = nullptr;
}

std::shared_ptr<MZStoreMessages> MZAbstractWorker::storeMessages() const {
    Guard guard(lock_);
    if (storeMessages_ == nullptr) {
        storeMessages_ = velto::make<MZStoreMessages>(storeType_);
    }
    return storeMessages_;
}

std::shared_ptr<velto::SharedDictionary> MZAbstractWorker::userInfo() const {
    Guard guard(lock_);
    if (userInfo_ == nullptr) {
        userInfo_ = std::make_shared<velto::SharedDictionary>();
    }
    return userInfo_;
}

std::shared_ptr<velto::Queue> MZAbstractWorker::callbackQueue() const {
    return get(&Callbacks::queue);
}

void MZAbstractWorker::setCallbackQueue(std::shared_ptr<velto::Queue> queue) {
    set(&Callbacks::queue, std::move(queue));
}

MZAbstractWorker::Callback MZAbstractWorker::startedCallback() const {
    return get(&Callbacks::started);
}

void MZAbstractWorker::setStartedCallback(Callback callback) {
    set(&Callbacks::started, std::move(callback));
}

MZAbstractWorker::Callback MZAbstractWorker::cancelledCallback() const {
    return get(&Callbacks::cancelled);
}

void MZAbstractWorker::setCancelledCallback(Callback callback) {
    set(&Callbacks::cancelled, std::move(callback));
}

MZAbstractWorker::Callback MZAbstractWorker::finishedCallback() const {
    return get(&Callbacks::finished);
}

void MZAbstractWorker::setFinishedCallback(Callback callback) {
    set(&Callbacks::finished, std::move(callback));
}

MZAbstractWorker::StatusMessageCallback MZAbstractWorker::statusMessageCallback() const {
    return get(&Callbacks::statusMessage);
}

void MZAbstractWorker::setStatusMessageCallback(StatusMessageCallback callback) {
    set(&Callbacks::statusMessage, std::move(callback));
}

MZAbstractWorker::PercentCompleteCallback MZAbstractWorker::percentCompleteCallback() const {
    return get(&Callbacks::percentComplete);
}

void MZAbstractWorker::setPercentCompleteCallback(PercentCompleteCallback callback) {
    set(&Callbacks::percentComplete, std::move(callback));
}

std::string MZAbstractWorker::descriptionWithLocale(std::size_t indent) const {
    std::string text = velto::defaultDescription(typeid(*this), this);
    text += velto::format(" cancelled: %@", isCancelled() ? "YES" : "NO");
    if (const std::optional<std::string> message = statusMessage(); message && !message->empty()) {
        text += velto::format(" statusMessage: %@", *message);
    }
    if (const Array list = warnings(); !list.isEmpty()) {
        text += velto::format(" warning:\n%@", list.description(indent));
    }
    if (const std::vector<Error> list = errors(); !list.empty()) {
        text +=
            velto::format(" errors:\n%@",
                          Array(std::vector<Value>(list.begin(), list.end())).description(indent));
    }
    return text;
}
