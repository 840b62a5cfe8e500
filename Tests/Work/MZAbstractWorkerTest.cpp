#include <VeltoConnectFoundation/Work/MZAbstractWorker.h>

#include <VeltoConnectFoundation/Platform/Exception.h>
#include <VeltoConnectFoundation/Platform/Queue.h>
#include <VeltoConnectFoundation/Work/MZStoreMessages.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PlainWorker : public MZAbstractWorker {
public:
    void run() override { setWorkStatus(MZWorkStatusFinished); }
};

class BareWorker : public MZAbstractWorker {};

/// Collects the keys that a worker announces, in order.
class Keys {
public:
    explicit Keys(MZAbstractWorker& worker) {
        for (const std::string_view key :
             {"workStatus", "cancelled", "statusMessage", "percentComplete", "errorMessage",
              "errors", "warnings", "infoMessages", "hasErrors", "hasWarnings",
              "hasInfoMessages"}) {
            observations_.push_back(worker.observe(
                key,
                [this](const velto::PropertyChange& change) { keys_.emplace_back(change.key); }));
        }
    }
    std::vector<std::string> take() { return std::exchange(keys_, {}); }

private:
    std::vector<std::string> keys_;
    std::vector<velto::Observation> observations_;
};

TEST(AbstractWorker, TheBaseDoesNotRun) {
    auto worker = std::make_shared<BareWorker>();
    try {
        worker->run();
        FAIL() << "expected an exception";
    } catch (const velto::Exception& exception) {
        EXPECT_EQ(exception.reason(), "Subclasses must override run");
        EXPECT_EQ(exception.name(), velto::InternalInconsistencyException);
    }
}

TEST(AbstractWorker, AnnouncesChangesAndOnlyChanges) {
    auto worker = std::make_shared<PlainWorker>();
    Keys keys(*worker);
    worker->setPercentComplete(0);
    worker->setWorkStatus(MZWorkStatusNone);
    worker->setStatusMessage(std::nullopt);
    EXPECT_THAT(keys.take(), IsEmpty());
    worker->setPercentComplete(50);
    worker->setStatusMessage("text");
    EXPECT_THAT(keys.take(), ElementsAre("percentComplete", "statusMessage"));
    worker->cancel();
    worker->cancel();
    EXPECT_THAT(keys.take(), ElementsAre("cancelled", "workStatus"));
    EXPECT_EQ(worker->workStatus(), MZWorkStatusCancelled);
    worker->addError(velto::Error("D", 1));
    EXPECT_THAT(keys.take(), testing::UnorderedElementsAre("errors", "hasErrors", "errorMessage"));
    worker->addWarning("w");
    worker->addInfoMessages({"i"});
    worker->addErrors({});
    worker->addWarning({});
    EXPECT_THAT(keys.take(), testing::UnorderedElementsAre("warnings", "hasWarnings",
                                                           "infoMessages", "hasInfoMessages"));
    worker->resetErrorsWarningsAndInfoMessages();
    EXPECT_FALSE(worker->hasErrors() || worker->hasWarnings() || worker->hasInfoMessages());
}

TEST(AbstractWorker, KeepsErrorsInOrder) {
    auto worker = std::make_shared<PlainWorker>();
    worker->setErrorMessage("a");
    worker->setErrorMessage("b");
    worker->addErrorMessage("");
    EXPECT_EQ(worker->errors().size(), 2U);
    EXPECT_EQ(worker->errorMessage(), "b");
    EXPECT_EQ(worker->errors()[0].code(), -10000);
    worker->setErrorMessage("");
    EXPECT_EQ(worker->errorMessage(), std::nullopt);

    worker->addException(velto::Exception("", ""));
    worker->addException(velto::Exception("Name", ""));
    worker->addException(velto::Exception("Name", "reason"));
    ASSERT_EQ(worker->errors().size(), 3U);
    EXPECT_EQ(worker->errors()[0].localizedDescription(), "Unknown exception reason");
    EXPECT_EQ(worker->errors()[1].localizedDescription(), "Name");
    EXPECT_EQ(worker->errors()[2].localizedDescription(), "reason");
    EXPECT_EQ(worker->errors()[2].code(), -10001);
    EXPECT_TRUE(worker->errors()[2].userInfo()["MZUnderlyingException"].isObject());
}

TEST(AbstractWorker, CallsBackOnItsQueueInTheOrderOfTheChanges) {
    auto worker = std::make_shared<PlainWorker>();
    std::vector<std::string> calls;
    worker->setStartedCallback([&](MZAbstractWorker&) { calls.emplace_back("started"); });
    worker->setFinishedCallback([&](MZAbstractWorker&) { calls.emplace_back("finished"); });
    worker->setCancelledCallback([&](MZAbstractWorker&) { calls.emplace_back("cancelled"); });
    worker->setStatusMessageCallback([&](const std::string& text) { calls.push_back(text); });
    worker->setPercentCompleteCallback(
        [&](double percent) { calls.push_back(std::to_string(int(percent))); });
    worker->setWorkStatus(MZWorkStatusStarted);
    EXPECT_THAT(calls, IsEmpty()) << "without a queue nothing is called";

    const std::shared_ptr<velto::SerialQueue> queue = velto::SerialQueue::make("callbacks");
    worker->setCallbackQueue(queue);
    worker->setStatusMessage("message");
    worker->setPercentComplete(5);
    worker->setWorkStatus(MZWorkStatusFinished);
    worker->cancel();
    worker->cancel();
    queue->sync([&] {
        EXPECT_THAT(calls, ElementsAre("message", "5", "finished", "cancelled"));
        worker->setPercentComplete(6);
        EXPECT_EQ(calls.back(), "6") << "a change on the queue itself is told at once";
    });
}

TEST(AbstractWorker, DescribesItself) {
    auto worker = std::make_shared<PlainWorker>();
    EXPECT_THAT(worker->description(), HasSubstr(" cancelled: NO"));
    worker->setStatusMessage("busy");
    worker->addWarning("careful");
    worker->addErrorMessage("broken");
    worker->cancel();
    const std::string text = worker->description();
    EXPECT_THAT(text, HasSubstr(" cancelled: YES statusMessage: busy warning:\n"));
    EXPECT_THAT(text, HasSubstr("careful"));
    EXPECT_THAT(text, HasSubstr(" errors:\n"));
}

TEST(AbstractWorker, ChangesItsCatalogueWithItsStoreType) {
    auto worker = std::make_shared<PlainWorker>();
    EXPECT_EQ(worker->storeType(), MZStoreMessages::sharedStoreMessages()->storeType());
    worker->setStoreType(3);
    EXPECT_EQ(worker->storeMessages()->storeType(), 3);
    worker->storeMessages()->setStoreType(2);
    EXPECT_EQ(worker->storeType(), 2) << "there is one store type, the catalogue's";
}

TEST(AbstractWorker, CallbacksOfWhatAnObserverSetsComeAfterTheChange) {
    auto queue = velto::SerialQueue::make("callbacks");
    auto self = std::make_shared<PlainWorker>();
    auto other = std::make_shared<PlainWorker>();
    self->setCallbackQueue(queue);
    self->setStatusMessageCallback([&](const std::string& text) { other->setStatusMessage(text); });
    const auto observation = self->observe(
        "percentComplete", [&](const velto::PropertyChange&) { self->setStatusMessage("half"); });
    queue->sync([&] { self->setPercentComplete(50); });
    EXPECT_EQ(other->statusMessage(), "half");
    const auto ofErrors = self->observe(
        "errors", [&](const velto::PropertyChange&) { self->setStatusMessage("broken"); });
    const auto ofCancel = self->observe(
        "cancelled", [&](const velto::PropertyChange&) { self->setStatusMessage("stopped"); });
    queue->sync([&] { self->addErrorMessage("no"); });
    EXPECT_EQ(other->statusMessage(), "broken");
    queue->sync([&] { self->cancel(); });
    EXPECT_EQ(other->statusMessage(), "stopped");
}

}  // namespace
