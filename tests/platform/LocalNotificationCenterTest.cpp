#include <stdexcept>
#include <string>
#include <utility>
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

TEST_F(LocalNotificationCenterTest, IsNotHeldWhileItReleasesASenderThatCallsBackIn) {
  class LastSender : public Sender {
   public:
    explicit LastSender(NotificationCenter &center) : center_(center) {}
    ~LastSender() override {
      center_.removeObserver(*this);
      center_.postNotificationName("gone", nullptr);
    }

   private:
    NotificationCenter &center_;
  };
  observe("gone", nullptr, "gone");
  const auto observer = std::make_shared<Observer>();
  center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name",
                     std::make_shared<LastSender>(center));
  center.removeObserver(*observer);
  EXPECT_EQ(log, (std::vector<std::string>{"gone main"}));
}

TEST_F(LocalNotificationCenterTest, IsNotHeldWhileItReleasesABlockThatCallsBackIn) {
  std::shared_ptr<void> posting(nullptr, [this](void *) { observe("name", nullptr, "late"); });
  device.notificationCenter.addObserverForName("name", nullptr, device.mainOperations,
                                               [held = std::move(posting)](const auto &) {});
  device.notificationCenter.removeAllObservers();
  EXPECT_EQ(device.notificationCenter.registrations(), 1u);
}

TEST_F(LocalNotificationCenterTest, KeepsTheOthersWhenOneIsRemoved) {
  const auto first = std::make_shared<Observer>();
  const auto second = std::make_shared<Observer>();
  for (const auto &observer : {first, second})
    center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name", nullptr);
  observe("name", nullptr, "block");
  center.removeObserver(*first);
  EXPECT_EQ(device.notificationCenter.registrations(), 2u);
  center.postNotificationName("name", sender);
  EXPECT_TRUE(first->received.empty());
  EXPECT_EQ(second->received.size(), 1u);
  EXPECT_EQ(log, (std::vector<std::string>{"block main"}));
}

TEST_F(LocalNotificationCenterTest, TellsNobodyWhoIsRemovedByAnObserverBefore) {
  const auto observer = std::make_shared<Observer>();
  center.addObserverForName("name", nullptr, device.mainOperations,
                            [&](const auto &) { center.removeObserver(*observer); });
  center.addObserver(observer, Selector::of<&Observer::receive>("receive:"), "name", nullptr);
  center.postNotificationName("name", sender);
  EXPECT_TRUE(observer->received.empty());
}

TEST_F(LocalNotificationCenterTest, TellsEverybodyEvenWhenAnObserverThrows) {
  center.addObserverForName("name", nullptr, device.mainOperations,
                            [](const auto &) { throw std::runtime_error("first"); });
  center.addObserverForName("name", nullptr, device.mainOperations,
                            [](const auto &) { throw std::logic_error("second"); });
  observe("name", nullptr, "third");
  EXPECT_THROW(center.postNotificationName("name", sender), std::runtime_error);
  EXPECT_EQ(log, (std::vector<std::string>{"third main"}));
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
