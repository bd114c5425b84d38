#include <stdexcept>
#include <vector>

#include "KXPublisher/platform/SerialOperationQueue.h"
#include "tests/support/FailingDispatch.h"
#include "tests/support/SimulatedTest.h"
#include "tests/support/Submissions.h"

namespace kx {
namespace {

class SerialOperationQueueTest : public SimulatedTest {
 protected:
  std::shared_ptr<SerialOperationQueue> queue = std::make_shared<SerialOperationQueue>();
  std::vector<int> ran;

  WorkItem operation(int number) {
    return [this, number] { ran.push_back(number); };
  }
};

TEST_F(SerialOperationQueueTest, RunsOperationsInTheOrderOfAdding) {
  for (int number = 1; number <= 3; ++number) queue->addOperation(operation(number));
  EXPECT_TRUE(ran.empty());
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST_F(SerialOperationQueueTest, RunsOperationsOffTheMainThread) {
  bool onMainThread = true;
  queue->addOperation([&] { onMainThread = device.scheduler.isMainThread(); });
  device.runReadyTasks();
  EXPECT_FALSE(onMainThread);
}

TEST_F(SerialOperationQueueTest, RunsOperationsAtDefaultPriority) {
  device.scheduler.trace.recording = true;
  queue->addOperation([] {});
  device.runReadyTasks();
  EXPECT_EQ(submissions(device, "default"), 1u);
  EXPECT_EQ(submissions(device, "background"), 0u);
}

TEST_F(SerialOperationQueueTest, RunsOneOperationAtATime) {
  queue->addOperation([this] {
    queue->addOperation(operation(2));
    device.scheduler.mainQueue().sync([] {});  // lets everything else run that may
    ran.push_back(1);
  });
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST_F(SerialOperationQueueTest, NeverRunsWhatWasCancelledBeforeItStarted) {
  queue->addOperation(operation(1));
  queue->cancelAllOperations();
  queue->addOperation(operation(2));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{2}));
}

TEST_F(SerialOperationQueueTest, FinishesWhatRunsWhenItIsCancelled) {
  queue->addOperation([this] {
    queue->addOperation(operation(2));
    queue->cancelAllOperations();
    ran.push_back(1);
  });
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

TEST_F(SerialOperationQueueTest, ReleasesWhatACancelledOperationHolds) {
  const auto held = std::make_shared<int>(1);
  queue->addOperation([held] {});
  queue->cancelAllOperations();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(SerialOperationQueueTest, GoesOnAfterAnOperationThatThrows) {
  queue->addOperation([] { throw std::runtime_error("broken"); });
  queue->addOperation(operation(2));
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  device.runReadyTasks();
  queue->addOperation(operation(3));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{2, 3}));
}

TEST_F(SerialOperationQueueTest, LetsWhatACancelledOperationHoldCallBackIn) {
  std::shared_ptr<void> last(nullptr, [this](void *) { queue->addOperation(operation(2)); });
  queue->addOperation([last] {});
  last.reset();
  queue->cancelAllOperations();
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{2}));
}

TEST_F(SerialOperationQueueTest, AddsNothingAndStaysAliveWhereNoWorkerCanBeHad) {
  const auto dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  device.replaced.dispatch = dispatch;
  EXPECT_THROW(queue->addOperation(operation(1)), std::runtime_error);
  dispatch->fails = false;
  device.runReadyTasks();
  EXPECT_TRUE(ran.empty());
  queue->addOperation(operation(2));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{2}));
}

TEST_F(SerialOperationQueueTest, GoesOnByItselfWhereNoFurtherWorkerCanBeHad) {
  const auto dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  dispatch->fails = false;
  device.replaced.dispatch = dispatch;
  queue->addOperation([this, dispatch] {
    dispatch->fails = true;
    ran.push_back(1);
    throw std::runtime_error("first");
  });
  queue->addOperation(operation(2));
  queue->addOperation(operation(3));
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
  dispatch->fails = false;
  queue->addOperation(operation(4));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(SerialOperationQueueTest, StaysAliveWhenItIsCancelledToEmptyBeforeItsWorkerCame) {
  queue->addOperation(operation(1));
  queue->cancelAllOperations();
  device.runReadyTasks();
  queue->addOperation(operation(2));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{2}));
}

TEST_F(SerialOperationQueueTest, StaysAliveWhenItIsCancelledToEmptyByWhatRuns) {
  queue->addOperation([this] {
    queue->addOperation(operation(2));
    queue->cancelAllOperations();
  });
  device.runReadyTasks();
  queue->addOperation(operation(3));
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{3}));
}

TEST_F(SerialOperationQueueTest, RunsWhatWasAddedEvenWhenNobodyHoldsTheQueueAnyMore) {
  queue->addOperation(operation(1));
  queue = nullptr;
  device.runReadyTasks();
  EXPECT_EQ(ran, (std::vector<int>{1}));
}

}  // namespace
}  // namespace kx
