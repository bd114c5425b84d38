// The library and its host meet on the default notification centre.

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/OperationQueue.h"
#include "KXPublisher/platform/Platform.h"
#include "platform/apple/AppleObject.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

constexpr const char *name = "KXTestNotification";

NotificationCenter &center() {
  return Platform::current().defaultNotificationCenter();
}

void postAsHost(id sender = nil) {
  [[NSNotificationCenter defaultCenter] postNotificationName:@(name) object:sender];
}

/// An observer by operation.
class Observer : public Object {
 public:
  void observe(const std::shared_ptr<Notification> &notification) { received.push_back(notification); }
  static Selector selector() { return Selector::of<&Observer::observe>("observe:"); }

  std::vector<std::shared_ptr<Notification>> received;
};

TEST(AppleNotificationCenter, TheHostSeesWhatTheLibraryPosts) {
  const auto sender = std::make_shared<Observer>();
  std::vector<id> senders;
  std::vector<id> *const seen = &senders;
  [[NSNotificationCenter defaultCenter] addObserverForName:@(name)
                                                    object:nil
                                                     queue:nil
                                                usingBlock:^(NSNotification *notification) {
                                                  seen->push_back(notification.object);
                                                }];
  center().postNotificationName(name, sender);
  center().postNotificationName(name, nullptr);
  center().postNotificationName("KXOtherNotification", sender);
  ASSERT_EQ(senders.size(), 2u);
  EXPECT_TRUE(senders[0] != nil);
  EXPECT_TRUE(senders[1] == nil);
}

/// Fails to describe itself.
class Indescribable : public Object {
 public:
  std::string description() const override { throw std::runtime_error("thrown by a description"); }
};

TEST(AppleNotificationCenter, TheHostMayDescribeWhoeverHasPosted) {
  NSMutableArray<NSString *> *const descriptions = [NSMutableArray array];
  [[NSNotificationCenter defaultCenter] addObserverForName:@(name)
                                                    object:nil
                                                     queue:nil
                                                usingBlock:^(NSNotification *notification) {
                                                  [descriptions addObject:[notification.object description]];
                                                }];
  const auto sender = std::make_shared<Observer>();
  const auto indescribable = std::make_shared<Indescribable>();
  center().postNotificationName(name, sender);
  EXPECT_NO_THROW(center().postNotificationName(name, indescribable));
  ASSERT_EQ(descriptions.count, 2u);
  EXPECT_EQ(std::string([descriptions objectAtIndex:0].UTF8String), sender->description());
  EXPECT_TRUE([[descriptions objectAtIndex:1] containsString:@"KXPublisherObject"])
      << [descriptions objectAtIndex:1].UTF8String;
}

/// An observer in the place where the one before it was.
std::shared_ptr<Observer> observerInTheOnePlace() {
  alignas(Observer) static std::array<char, sizeof(Observer)> place;
  return {new (place.data()) Observer, [](Observer *observer) { observer->~Observer(); }};
}

TEST(AppleNotificationCenter, ASenderAtTheAddressOfAnEarlierOneIsAnother) {
  auto first = observerInTheOnePlace();
  const Object *const address = first.get();
  id const standInOfFirst = standInFor(first);
  EXPECT_TRUE(standInFor(first) == standInOfFirst);
  EXPECT_EQ(objectBehind(standInOfFirst), first);
  first.reset();
  EXPECT_EQ(objectBehind(standInOfFirst), nullptr);

  const auto second = observerInTheOnePlace();
  ASSERT_EQ(second.get(), address);
  EXPECT_FALSE(standInFor(second) == standInOfFirst);
  EXPECT_EQ(objectBehind(standInFor(second)), second);
  EXPECT_EQ(objectBehind(standInOfFirst), nullptr);
}

TEST(AppleNotificationCenter, ANameThatIsNoTextIsNotEveryName) {
  const auto observer = std::make_shared<Observer>();
  int received = 0;
  center().addObserver(observer, Observer::selector(), "\xFF", nullptr);
  center().addObserverForName("\xFF", nullptr, nullptr,
                              [&received](const std::shared_ptr<Notification> &) { ++received; });
  postAsHost();
  EXPECT_NO_THROW(center().postNotificationName("\xFF", nullptr));
  EXPECT_TRUE(observer->received.empty());
  EXPECT_EQ(received, 0);
}

/// Counts what it is to run, and runs it.
class CountingQueue : public OperationQueue {
 public:
  void addOperation(WorkItem operation) override {
    ++operations;
    operation();
  }

  int operations = 0;
};

TEST(AppleNotificationCenter, ABlockOnAQueueOfTheLibrarysRunsThere) {
  const auto queue = std::make_shared<CountingQueue>();
  int received = 0;
  center().addObserverForName(name, nullptr, queue,
                              [&received](const std::shared_ptr<Notification> &) { ++received; });
  center().addObserverForName(name, nullptr, nullptr,
                              [&received](const std::shared_ptr<Notification> &) { ++received; });
  postAsHost();
  EXPECT_EQ(received, 2);
  EXPECT_EQ(queue->operations, 1);
}

TEST(AppleNotificationCenter, ABlockOnNoQueueRunsWhereSomebodyPosts) {
  std::atomic<int> received{0};
  center().addObserverForName(name, nullptr, nullptr, [&received](const std::shared_ptr<Notification> &) {
    EXPECT_FALSE([NSThread isMainThread]);
    ++received;
  });
  std::thread([] {
    @autoreleasepool {
      postAsHost();
    }
  }).join();
  EXPECT_EQ(received, 1);
}

TEST(AppleNotificationCenter, ABlockIsRunForItsSenderOnly) {
  const auto sender = std::make_shared<Observer>();
  const auto other = std::make_shared<Observer>();
  int received = 0;
  center().addObserverForName(name, sender, nullptr, [&](const std::shared_ptr<Notification> &notification) {
    EXPECT_EQ(notification->object(), sender);
    ++received;
  });
  center().postNotificationName(name, other);
  center().postNotificationName(name, sender);
  EXPECT_EQ(received, 1);
}

TEST(AppleNotificationCenter, AnObserverSeesWhatTheHostPosts) {
  const auto observer = std::make_shared<Observer>();
  center().addObserver(observer, Observer::selector(), name, nullptr);
  postAsHost(@"sender");
  ASSERT_EQ(observer->received.size(), 1u);
  EXPECT_EQ(observer->received[0]->name(), name);
  EXPECT_EQ(observer->received[0]->object(), nullptr);
}

TEST(AppleNotificationCenter, AnObserverIsToldWhoHasPosted) {
  const auto observer = std::make_shared<Observer>();
  const auto sender = std::make_shared<Observer>();
  const auto other = std::make_shared<Observer>();
  center().addObserver(observer, Observer::selector(), name, sender);
  center().postNotificationName(name, other);
  center().postNotificationName(name, sender);
  ASSERT_EQ(observer->received.size(), 1u);
  EXPECT_EQ(observer->received[0]->object(), sender);
}

TEST(AppleNotificationCenter, AnObserverIsNotKeptAlive) {
  auto observer = std::make_shared<Observer>();
  const std::weak_ptr<Observer> weak = observer;
  center().addObserver(observer, Observer::selector(), name, nullptr);
  observer.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_NO_THROW(postAsHost());
}

TEST(AppleNotificationCenter, AnObserverThatIsRemovedIsToldNothing) {
  const auto observer = std::make_shared<Observer>();
  const auto other = std::make_shared<Observer>();
  center().addObserver(observer, Observer::selector(), name, nullptr);
  center().addObserver(observer, Observer::selector(), "KXOtherNotification", nullptr);
  center().addObserver(other, Observer::selector(), name, nullptr);
  center().removeObserver(*observer);
  postAsHost();
  center().postNotificationName("KXOtherNotification", nullptr);
  EXPECT_TRUE(observer->received.empty());
  EXPECT_EQ(other->received.size(), 1u);
}

/// Counts the places that are given back, which is when nothing refers to what was there any more, not even
/// weakly.
template <class Element>
struct CountingAllocator {
  using value_type = Element;

  explicit CountingAllocator(int *count) : returns(count) {}
  template <class Other>
  CountingAllocator(const CountingAllocator<Other> &other) : returns(other.returns) {}

  Element *allocate(std::size_t count) { return std::allocator<Element>().allocate(count); }
  void deallocate(Element *place, std::size_t count) {
    std::allocator<Element>().deallocate(place, count);
    ++*returns;
  }

  int *returns;
};

TEST(AppleNotificationCenter, NothingOfAnObserverThatIsRemovedStays) {
  int returns = 0;
  @autoreleasepool {
    const auto observer = std::allocate_shared<Observer>(CountingAllocator<Observer>(&returns));
    center().addObserver(observer, Observer::selector(), name, nullptr);
    center().removeObserver(*observer);
  }
  EXPECT_EQ(returns, 1);
}

TEST(AppleNotificationCenter, TheApplicationsNotificationsArriveOnTheMainThreadBeforePostingReturns) {
  const auto application = Platform::current().sharedApplication();
  const auto queue = Platform::current().mainOperationQueue();
  int received = 0;
  center().addObserverForName(UIApplicationDidEnterBackgroundNotification, application, queue,
                              [&](const std::shared_ptr<Notification> &notification) {
                                EXPECT_TRUE([NSThread isMainThread]);
                                EXPECT_EQ(notification->object(), application);
                                ++received;
                              });
  standin::enterBackground();
  EXPECT_EQ(received, 1);
  NSString *const entry = ::UIApplicationDidEnterBackgroundNotification;
  [[NSNotificationCenter defaultCenter] postNotificationName:entry object:@"somebody else"];
  standin::settleMainLoop();
  EXPECT_EQ(received, 1);
}

TEST(AppleNotificationCenter, ABlockOnTheMainQueueRunsThereWhoeverPosts) {
  std::atomic<int> received{0};
  center().addObserverForName(name, nullptr, Platform::current().mainOperationQueue(),
                              [&received](const std::shared_ptr<Notification> &) {
                                EXPECT_TRUE([NSThread isMainThread]);
                                ++received;
                              });
  std::thread poster([] {
    @autoreleasepool {
      postAsHost();
    }
  });
  EXPECT_TRUE(standin::runMainLoopUntil([&received] { return received == 1; }));
  poster.join();
}

TEST(AppleNotificationCenter, EndsWhatAnObserverThrows) {
  center().addObserverForName(name, nullptr, nullptr, [](const std::shared_ptr<Notification> &) {
    throw std::runtime_error("thrown by an observer");
  });
  center().addObserverForName(name, nullptr, Platform::current().mainOperationQueue(),
                              [](const std::shared_ptr<Notification> &) {
                                [NSException raise:NSGenericException format:@"raised by an observer"];
                              });
  EXPECT_NO_THROW(postAsHost());
}

}  // namespace
}  // namespace kx
