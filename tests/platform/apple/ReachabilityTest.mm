// How the device reaches the network.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "KXPublisher/platform/NetworkReachability.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/providers/KXConnection.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;

constexpr SCNetworkReachabilityFlags overWiFi = 0x2;
constexpr SCNetworkReachabilityFlags overCellular = 0x40002;
constexpr SCNetworkReachabilityFlags notAtAll = 0;

const json wiFi = {{"connectionType", "WIFI"}};
const json cellular = {{"connectionType", "CELLULAR"}};
const json none = json::object();

/// Counts what the library posts for its host.
std::shared_ptr<std::atomic<int>> countNotifications() {
  const auto count = std::make_shared<std::atomic<int>>(0);
  [[NSNotificationCenter defaultCenter] addObserverForName:@"kNetworkReachabilityDidChangeNotification"
                                                    object:nil
                                                     queue:nil
                                                usingBlock:^(NSNotification *notification) {
                                                  EXPECT_TRUE([NSThread isMainThread]);
                                                  EXPECT_TRUE(notification.object != nil);
                                                  EXPECT_TRUE(notification.userInfo == nil);
                                                  ++*count;
                                                }];
  return count;
}

TEST(AppleReachability, IsThatOfTheZeroAddress) {
  const auto provider = KXConnection::sharedInstance();
  EXPECT_THAT(standin::reachabilityAddress(), ElementsAre(16, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

TEST(AppleReachability, IsFollowedAndTheHostIsTold) {
  const auto notifications = countNotifications();
  const auto provider = KXConnection::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, wiFi));
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
  EXPECT_EQ(*notifications, 0);
  standin::changeReachability(overCellular);
  EXPECT_TRUE(comesToKnow(*provider, cellular));
  EXPECT_EQ(*notifications, 1);
  standin::changeReachability(notAtAll);
  EXPECT_TRUE(comesToKnow(*provider, none));
  EXPECT_EQ(*notifications, 2);
}

TEST(AppleReachability, IsNotFollowedInTheBackground) {
  const auto notifications = countNotifications();
  const auto provider = KXConnection::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, wiFi));
  standin::enterBackground();
  EXPECT_EQ(standin::scheduledRunLoops(), 0);
  standin::changeReachability(overCellular);
  standin::settleMainLoop();
  EXPECT_EQ(factsOf(*provider), wiFi);
  standin::enterForeground();
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
  EXPECT_TRUE(comesToKnow(*provider, cellular));
  EXPECT_EQ(*notifications, 0);
}

TEST(AppleReachability, IsFollowedOnTheThreadOfTheFirstCallUntilTheHostReturnsToTheForeground) {
  std::shared_ptr<KXConnection> provider;
  std::thread([&provider] {
    @autoreleasepool {
      provider = KXConnection::sharedInstance();
    }
  }).join();
  EXPECT_EQ(standin::scheduledRunLoops(), 1);
  EXPECT_EQ(standin::scheduledMainRunLoops(), 0);
  EXPECT_TRUE(comesToKnow(*provider, wiFi));
  standin::enterForeground();
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
  standin::changeReachability(overCellular);
  EXPECT_TRUE(comesToKnow(*provider, cellular));
}

TEST(AppleReachability, IsReadAgainWhenTheHostPostsTheNotification) {
  const auto provider = KXConnection::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, wiFi));
  standin::reachability().flags = overCellular;
  [[NSNotificationCenter defaultCenter] postNotificationName:@"kNetworkReachabilityDidChangeNotification"
                                                      object:@"somebody"];
  EXPECT_TRUE(comesToKnow(*provider, cellular));
}

TEST(AppleReachability, ThatCannotBeReadIsNone) {
  standin::reachability().canBeRead = false;
  EXPECT_TRUE(comesToKnow(*KXConnection::sharedInstance(), none));
}

TEST(AppleReachability, MayBeMissing) {
  standin::reachability().makesHandles = false;
  const auto provider = KXConnection::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, none));
  standin::enterBackground();
  standin::enterForeground();
  EXPECT_EQ(standin::callsOf("SCNetworkReachabilitySetCallback"), 0);
  EXPECT_EQ(standin::scheduledRunLoops(), 0);
}

/// What a callback was told.
struct Report {
  int calls = 0;
  NetworkReachabilityFlags flags = 0;
  bool infoWasAlive = false;
  NetworkReachabilityRef target = nullptr;
};
Report report;

void noteReport(NetworkReachabilityRef target, NetworkReachabilityFlags flags,
                const std::weak_ptr<Object> &info) {
  ++report.calls;
  report.target = target;
  report.flags = flags;
  report.infoWasAlive = !info.expired();
}

class Info : public Object {};

TEST(AppleReachability, DoesNotKeepTheInfoOfItsCallback) {
  auto &service = Platform::current().networkReachability();
  const auto mainRunLoop = Platform::current().runLoops().mainRunLoop();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  ASSERT_NE(target, nullptr);
  auto info = std::make_shared<Info>();
  const std::weak_ptr<Info> weak = info;
  EXPECT_TRUE(service.setCallback(target, noteReport, {0, info}));
  EXPECT_TRUE(service.scheduleWithRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
  standin::changeReachability(overCellular);
  EXPECT_TRUE(standin::runMainLoopUntil([] { return report.calls == 1; }));
  EXPECT_EQ(report.flags, overCellular);
  EXPECT_EQ(report.target, target);
  EXPECT_TRUE(report.infoWasAlive);
  info.reset();
  EXPECT_TRUE(weak.expired());
  standin::changeReachability(overWiFi);
  EXPECT_TRUE(standin::runMainLoopUntil([] { return report.calls == 2; }));
  EXPECT_FALSE(report.infoWasAlive);
}

TEST(AppleReachability, IsFollowedOnlyWithAContextThatTheSystemKnows) {
  auto &service = Platform::current().networkReachability();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  EXPECT_TRUE(service.setCallback(target, noteReport, {0, {}}));
  EXPECT_FALSE(service.setCallback(target, noteReport, {1, {}}));
}

void noteAndThrow(NetworkReachabilityRef, NetworkReachabilityFlags, const std::weak_ptr<Object> &) {
  ++report.calls;
  throw 1;
}

TEST(AppleReachability, EndsWhatACallbackThrows) {
  auto &service = Platform::current().networkReachability();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  EXPECT_TRUE(service.setCallback(target, noteAndThrow, {0, {}}));
  service.scheduleWithRunLoop(target, Platform::current().runLoops().mainRunLoop(), RunLoopMode::defaultMode);
  standin::changeReachability(overCellular);
  EXPECT_TRUE(standin::runMainLoopUntil([] { return report.calls == 1; }));
}

TEST(AppleReachability, MayBeReportedToNobody) {
  auto &service = Platform::current().networkReachability();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  EXPECT_TRUE(service.setCallback(target, nullptr, {0, {}}));
  service.scheduleWithRunLoop(target, Platform::current().runLoops().mainRunLoop(), RunLoopMode::defaultMode);
  standin::changeReachability(overCellular);
  standin::settleMainLoop();
}

TEST(AppleReachability, IsScheduledOnTheRunLoopThatIsNamed) {
  auto &service = Platform::current().networkReachability();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  const auto mainRunLoop = Platform::current().runLoops().mainRunLoop();
  std::thread([&] {
    @autoreleasepool {
      EXPECT_TRUE(service.scheduleWithRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
    }
  }).join();
  EXPECT_EQ(standin::scheduledMainRunLoops(), 1);
}

TEST(AppleReachability, IsServedInTheModeThatItIsScheduledIn) {
  auto &service = Platform::current().networkReachability();
  const auto mainRunLoop = Platform::current().runLoops().mainRunLoop();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  EXPECT_TRUE(service.setCallback(target, noteReport, {0, {}}));
  EXPECT_TRUE(service.scheduleWithRunLoop(target, mainRunLoop, RunLoopMode::commonModes));
  EXPECT_FALSE(service.unscheduleFromRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_TRUE(service.unscheduleFromRunLoop(target, mainRunLoop, RunLoopMode::commonModes));
  EXPECT_FALSE(service.scheduleWithRunLoop(target, nullptr, RunLoopMode::defaultMode));
  EXPECT_FALSE(service.unscheduleFromRunLoop(target, nullptr, RunLoopMode::defaultMode));
}

TEST(AppleReachability, IsUnscheduledOnlyFromWhereItIsScheduled) {
  auto &service = Platform::current().networkReachability();
  const auto mainRunLoop = Platform::current().runLoops().mainRunLoop();
  const auto target = service.createWithAddress(SocketAddress{16, 2});
  EXPECT_FALSE(service.unscheduleFromRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_TRUE(service.scheduleWithRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_TRUE(service.unscheduleFromRunLoop(target, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_EQ(standin::scheduledRunLoops(), 0);
}

TEST(AppleReachability, RefusesAHandleThatCouldNotBeMade) {
  auto &service = Platform::current().networkReachability();
  const auto mainRunLoop = Platform::current().runLoops().mainRunLoop();
  EXPECT_EQ(service.getFlags(nullptr), std::nullopt);
  EXPECT_FALSE(service.setCallback(nullptr, noteReport, {}));
  EXPECT_FALSE(service.scheduleWithRunLoop(nullptr, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_FALSE(service.unscheduleFromRunLoop(nullptr, mainRunLoop, RunLoopMode::defaultMode));
}

}  // namespace
}  // namespace kx
