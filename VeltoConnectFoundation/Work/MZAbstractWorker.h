#pragma once

#include <VeltoConnectFoundation/Platform/Error.h>
#include <VeltoConnectFoundation/Platform/Observable.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class MZStoreMessages;

namespace velto {
class Exception;
class Queue;
class SharedDictionary;
}  // namespace velto

inline constexpr std::string_view WorkerErrorDomain = "WorkerErrorDomain";

enum MZWorkStatus : std::int32_t {
    MZWorkStatusNone = 0,
    MZWorkStatusStarted = 1,
    MZWorkStatusCancelled = 2,
    MZWorkStatusFinished = 3,
};

/// The base of every unit of work: the outcome of one job, reported as observable properties and
/// through callbacks on a queue of the caller's choice.
///
/// A subclass does the job in run(): it sets the status to started and finished, adds messages
/// and errors, and asks isCancelled() from time to time; a work item calls run() once on a queue
/// thread. Afterwards the worker's lists are the job's result; it has failed when hasErrors().
///
///     class Greeter : public MZAbstractWorker {
///         void run() override {
///             setWorkStatus(MZWorkStatusStarted);
///             setStatusMessage("Hello");
///             setWorkStatus(MZWorkStatusFinished);
///         }
///     };
///
/// Held by std::shared_ptr. Any member may be called from any thread; collections are returned as
/// copies. Setters take turns, and what reads waits for none of them. Observable keys: workStatus,
/// cancelled, statusMessage, percentComplete, errorMessage, errors, warnings, infoMessages,
/// hasErrors, hasWarnings, hasInfoMessages.
class VELTO_EXPORT MZAbstractWorker : public velto::Observable,
                                      public std::enable_shared_from_this<MZAbstractWorker> {
public:
    using Callback = std::function<void(MZAbstractWorker& worker)>;
    using StatusMessageCallback = std::function<void(const std::string& message)>;
    using PercentCompleteCallback = std::function<void(double percent)>;

    ~MZAbstractWorker() override;

    /// Does the job; the base raises.
    virtual void run();
    /// Cooperative: run() has to notice. A second call does nothing. Overrides call the base.
    virtual void cancel();
    bool isCancelled() const { return cancelled_.load(); }
    /// The series that ran the worker has ended.
    virtual void seriesCompleted();

    MZWorkStatus workStatus() const { return workStatus_.load(); }
    void setWorkStatus(MZWorkStatus status);
    /// Started, unless the worker is cancelled: however close both are, a cancel has the last word.
    /// Answers whether it was set.
    [[nodiscard]] bool startUnlessCancelled();
    [[nodiscard]] bool finishUnlessCancelled();  ///< The same with finished.

    /// 0 to 100. A worker that counts what it does may answer from its counters.
    virtual double percentComplete() const;
    void setPercentComplete(double percent);

    std::optional<std::string> statusMessage() const;
    void setStatusMessage(std::optional<std::string> message);

    /// The description of the last error; none without errors.
    std::optional<std::string> errorMessage() const;
    /// A message adds an error; an empty or absent one removes all errors.
    void setErrorMessage(const std::optional<std::string>& message);
    void addErrorMessage(std::string_view message);  ///< An empty message adds nothing.
    void addException(const velto::Exception& exception);
    void addError(const velto::Error& error);  ///< No error adds nothing.
    void addErrors(const std::vector<velto::Error>& errors);
    std::vector<velto::Error> errors() const;  ///< Oldest first.
    bool hasErrors() const;

    void addWarning(const velto::Value& warning);  ///< A text or an error; none adds nothing.
    void addWarnings(const velto::Array& warnings);
    velto::Array warnings() const;
    bool hasWarnings() const;

    void addInfoMessages(const velto::Array& messages);  ///< Texts or errors.
    velto::Array infoMessages() const;
    bool hasInfoMessages() const;

    /// Empties all three lists in one step.
    void resetErrorsWarningsAndInfoMessages();

    std::int64_t storeType() const;  ///< The catalogue's.
    void setStoreType(std::int64_t storeType);
    /// The catalogue of texts for the worker's store type; shared, never null.
    std::shared_ptr<MZStoreMessages> storeMessages() const;

    /// Free-form data of subclasses and callers; the live dictionary, with a lock of its own.
    std::shared_ptr<velto::SharedDictionary> userInfo() const;

    /// Without a queue no callback is ever called. A change made on the queue itself is told
    /// before the setter returns, any other asynchronously, in the order of the changes.
    std::shared_ptr<velto::Queue> callbackQueue() const;
    void setCallbackQueue(std::shared_ptr<velto::Queue> queue);
    Callback startedCallback() const;
    void setStartedCallback(Callback callback);
    Callback cancelledCallback() const;
    void setCancelledCallback(Callback callback);
    Callback finishedCallback() const;
    void setFinishedCallback(Callback callback);
    StatusMessageCallback statusMessageCallback() const;
    void setStatusMessageCallback(StatusMessageCallback callback);
    PercentCompleteCallback percentCompleteCallback() const;
    void setPercentCompleteCallback(PercentCompleteCallback callback);

    std::string description() const { return descriptionWithLocale(0); }
    virtual std::string descriptionWithLocale(std::size_t indent) const;

protected:
    MZAbstractWorker();
    std::span<const Dependency> dependencies() const override;
    std::shared_ptr<const void> sharedSelf() const override { return weak_from_this().lock(); }

private:
    struct Callbacks;
    Callbacks& callbacks() VELTO_REQUIRES(lock_);
    [[nodiscard]] bool setUnlessCancelled(MZWorkStatus status);
    template <class Member>
    Member get(Member Callbacks::*member) const;
    template <class Member>
    void set(Member Callbacks::*member, Member value);
    /// So that arrival follows the order of changes: queues the call of what `member` holds, or
    /// has it made after the turn when this is the queue.
    template <class Member, class... Arguments>
    void dispatch(SetterTurn& turn, Member Callbacks::*member, Arguments... arguments);
    void changeWorkStatus(SetterTurn& turn, MZWorkStatus status);
    /// Takes a turn for `step`, then makes the calls that have to follow.
    template <class Step>
    void inTurn(const Step& step);
    template <class Store>
    void changeLists(std::initializer_list<std::string_view> keys, const Store& store);

    mutable velto::Lock lock_;
    std::atomic<bool> cancelled_{false};
    std::atomic<MZWorkStatus> workStatus_{MZWorkStatusNone};
    std::atomic<double> percentComplete_{0};
    std::int64_t storeType_ VELTO_GUARDED_BY(lock_);
    std::optional<std::string> statusMessage_ VELTO_GUARDED_BY(lock_);
    std::vector<velto::Error> errors_ VELTO_GUARDED_BY(lock_);
    velto::Array warnings_ VELTO_GUARDED_BY(lock_);
    velto::Array infoMessages_ VELTO_GUARDED_BY(lock_);
    mutable std::shared_ptr<MZStoreMessages> storeMessages_
        VELTO_GUARDED_BY(lock_);  ///< Made when asked for.
    mutable std::shared_ptr<velto::SharedDictionary> userInfo_
        VELTO_GUARDED_BY(lock_);                                    ///< Made when asked for.
    std::unique_ptr<Callbacks> callbacks_ VELTO_GUARDED_BY(lock_);  ///< Made when one is set.
    std::atomic<bool> hasCallbacks_{false};
};
