#include <string>
#include <vector>

#include "KXPublisher/platform/LocalNotificationCenter.h"
#include "KXPublisher/platform/OperationQueue.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class Sender : public Object {};

class Observer : public Object {
 public:
  ~Observer() override { Platform::current().defaultNotificationCenter().removeObserver(*this); }

  void receive(const std::shared_ptr<Notification> &notification) { received.push_back(notification); }

  std::vector<std::shared_ptr<Notification>> received;
};

class LocalNotificationCenterTest : public SimulatedTest {
 protected:
  NotificationCenter &center = device.notificationCenter;
  std::shared_ptr<Sender> sender = std::make_shared<Sender>();
  std::vector<std::string> log;

  void observe(const std::string &name, const std::shared_ptr<Object> &object, const std::string &line) {
    center.addObserverForName(name, object, device.mainOperations,
                              [this, line](const std::shared_ptr<Notification> &) {
                                log.push_back(line + (device.scheduler.isMainThread() ? " main" : " worker"));
                              });
  }
};

TEST_F(LocalNotificationCenterTest, CallsMainQueueBlocksBeforeAPostOnTheMainThreadReturns) {
  observe("name", sender, "first");
  observe("name", sender, "second");
  center.postNotificationName("name", sender);
  EXPECT_EQ(log, (std::vector<std::string>{"first main", "second main"}));
}

TEST_F(LocalNotificationCenterTest, CallsMainQueueBlocksOnTheMainThreadForAPostElsewhere) {
  observe("name", sender, "block");
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([this] {
    center.postNotificationName("name", sender);
    EXPECT_TRUE(log.empty());
  });
  device.runReadyTasks();
  EXPECT_EQ(log, (std::vector<std::string>{"block main"}));
}

TEST_F(LocalNotificationCenterTest, TellsOnlyThoseWhoAskedForThatNameAndSender) {
  observe("name", sender, "name from sender");
  observe("name", nullptr, "name from anyone");
  observe("name", std::make_shared<Sender>(), "name from another");
  observe("other", sender, "other from sender");
  center.postNotificationName("name", sender);
  EXPECT_EQ(log, (std::vector<std::string>{"name from sender main", "name from anyone main"}));
}

TEST_F(LocalNotificationCenterTest, PerformsAnObserversOperationOnThePostingThread) {
  const auto observer = std::make_shared<Observer>();
  center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name", nullptr);
  device.scheduler.globalQueue(DispatchQueuePriority::low).async([&] {
    center.postNotificationName("name", sender);
    ASSERT_EQ(observer->received.size(), 1u);
  });
  device.runReadyTasks();
  ASSERT_EQ(observer->received.size(), 1u);
  EXPECT_EQ(observer->received.front()->name(), "name");
  EXPECT_EQ(observer->received.front()->object(), sender);
}

TEST_F(LocalNotificationCenterTest, DoesNotKeepAnObserverAlive) {
  auto observer = std::make_shared<Observer>();
  center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name", nullptr);
  const std::weak_ptr<Observer> weak = observer;
  observer = nullptr;
  EXPECT_TRUE(weak.expired());
  center.postNotificationName("name", sender);
}

TEST_F(LocalNotificationCenterTest, ForgetsAnObserverThatIsRemoved) {
  const auto observer = std::make_shared<Observer>();
  center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name", nullptr);
  center.removeObserver(*observer);
  center.postNotificationName("name", sender);
  EXPECT_TRUE(observer->received.empty());
}

TEST_F(LocalNotificationCenterTest, CanBeUsedFromWithinAnObserver) {
  center.addObserverForName("name", nullptr, device.mainOperations,
                            [this](const std::shared_ptr<Notification> &) {
                              observe("other", nullptr, "nested");
                              center.postNotificationName("other", nullptr);
                            });
  center.postNotificationName("name", sender);
  EXPECT_EQ(log, (std::vector<std::string>{"nested main"}));
}

}  // namespace
}  // namespace kx
