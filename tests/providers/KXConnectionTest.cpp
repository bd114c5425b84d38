#include <vector>

#include "KXPublisher/providers/KXConnection.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

constexpr NetworkReachabilityFlags wwan = networkReachabilityFlagsReachable | networkReachabilityFlagsIsWWAN;

class KXConnectionTest : public SimulatedTest {
 protected:
  Dictionary facts() {
    const auto provider = KXConnection::sharedInstance();
    device.runReadyTasks();
    return *provider->data()->contents();
  }
  const Dictionary wifi{{"connectionType", "WIFI"}};
  const Dictionary cellular{{"connectionType", "CELLULAR"}};
};

TEST_F(KXConnectionTest, MapsFlagsToAStatus) {
  const auto status = [](NetworkReachabilityFlags flags) {
    return KXConnection::networkStatusForFlags(flags);
  };
  EXPECT_EQ(status(0x0), KXNetworkStatusNone);
  EXPECT_EQ(status(0x2), KXNetworkStatusWifi);
  EXPECT_EQ(status(0x2 | 0x40000), KXNetworkStatusCellular);
  EXPECT_EQ(status(0x40000), KXNetworkStatusNone);
  EXPECT_EQ(status(0x2 | 0x4), KXNetworkStatusNone);
  EXPECT_EQ(status(0x2 | 0x4 | 0x8), KXNetworkStatusWifi);
  EXPECT_EQ(status(0x2 | 0x4 | 0x8 | 0x10), KXNetworkStatusNone);
  EXPECT_EQ(status(0x2 | 0x4 | 0x20), KXNetworkStatusWifi);
  EXPECT_EQ(status(0x2 | 0x10), KXNetworkStatusWifi);
  EXPECT_EQ(status(0x2 | 0x4 | 0x40000), KXNetworkStatusCellular);
  EXPECT_EQ(status(0x4 | 0x8), KXNetworkStatusNone);
  EXPECT_EQ(KXNetworkStatusNone, 0);
  EXPECT_EQ(KXNetworkStatusWifi, 1);
  EXPECT_EQ(KXNetworkStatusCellular, 2);
}

TEST_F(KXConnectionTest, WatchesTheZeroAddress) {
  KXConnection::sharedInstance();
  EXPECT_EQ(device.reachability.lastAddress, (SocketAddress{16, 2}));
}

TEST_F(KXConnectionTest, ReportsWhatTheNetworkIsReachedOver) {
  EXPECT_EQ(facts(), wifi);
  device.reachability.changeFlags(wwan);
  EXPECT_EQ(facts(), cellular);
  device.reachability.changeFlags(networkReachabilityFlagsReachable);
  EXPECT_EQ(facts(), wifi);
}

TEST_F(KXConnectionTest, HasNoKeyWithoutAConnection) {
  device.reachability.flags = 0;
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXConnectionTest, HasNoKeyWhenTheFlagsCannotBeRead) {
  device.reachability.flags = std::nullopt;
  EXPECT_TRUE(facts().empty());
  EXPECT_EQ(KXConnection::sharedInstance()->currentReachabilityStatus(), KXNetworkStatusNone);
}

TEST_F(KXConnectionTest, PostsEachChangeWithItselfAsTheSender) {
  const auto provider = KXConnection::sharedInstance();
  std::vector<std::shared_ptr<Object>> senders;
  device.notificationCenter.addObserverForName(
      "kNetworkReachabilityDidChangeNotification", nullptr, device.mainOperations,
      [&](const std::shared_ptr<Notification> &notification) { senders.push_back(notification->object()); });
  device.reachability.changeFlags(0);
  device.runReadyTasks();
  EXPECT_EQ(senders, (std::vector<std::shared_ptr<Object>>{provider}));
}

TEST_F(KXConnectionTest, RecomputesWhoeverPostsTheChange) {
  facts();
  device.reachability.flags = wwan;  // without a report
  device.notificationCenter.postNotificationName(constants::kReachabilityDidChangeNotification, nullptr);
  EXPECT_EQ(facts(), cellular);
}

TEST_F(KXConnectionTest, StopsWatchingInTheBackground) {
  facts();
  EXPECT_TRUE(device.reachability.scheduledOn(device.runLoopService.mainRunLoop()));
  device.application->enterBackground();
  EXPECT_FALSE(device.reachability.scheduledOn(device.runLoopService.mainRunLoop()));
  device.reachability.changeFlags(wwan);
  EXPECT_EQ(facts(), wifi);
}

TEST_F(KXConnectionTest, WatchesAgainAndRecomputesAtTheReturnToTheForeground) {
  facts();
  device.application->enterBackground();
  device.reachability.changeFlags(wwan);
  device.application->enterForeground();
  EXPECT_EQ(facts(), cellular);
  device.reachability.changeFlags(0);
  EXPECT_TRUE(facts().empty());
  EXPECT_EQ(device.reachability.schedules(), 1u);
}

TEST_F(KXConnectionTest, ReportsChangesOnlyAfterAReturnToTheForegroundWhenItsCreatorRunsNoLoop) {
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([] { KXConnection::sharedInstance(); });
  EXPECT_EQ((device.runReadyTasks(), facts()), wifi);
  device.reachability.changeFlags(wwan);
  EXPECT_EQ(facts(), wifi);
  device.application->enterForeground();
  device.reachability.changeFlags(0);
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXConnectionTest, HearsOfChangesWhenTheUserHasScrolled) {
  facts();
  device.runLoopService.setTracking(true);
  device.reachability.changeFlags(wwan);
  EXPECT_EQ(facts(), wifi);
  device.runLoopService.setTracking(false);
  EXPECT_EQ(facts(), cellular);
}

TEST_F(KXConnectionTest, FollowsWhoeverSaysThatReachabilityChanged) {
  facts();
  device.reachability.flags = wwan;
  device.notificationCenter.postNotificationName(constants::kReachabilityDidChangeNotification,
                                                 device.application);
  EXPECT_EQ(facts(), cellular);
}

TEST_F(KXConnectionTest, StaysSilentForEverWhenTheHandleCannotBeMade) {
  device.reachability.creationSucceeds = false;
  EXPECT_TRUE(facts().empty());
  const auto provider = KXConnection::sharedInstance();
  const auto before = provider->data();
  device.application->enterBackground();
  device.application->enterForeground();
  device.notificationCenter.postNotificationName(constants::kReachabilityDidChangeNotification, nullptr);
  device.runReadyTasks();
  EXPECT_EQ(provider->data(), before) << "computed anew";
  provider->updateData();
  EXPECT_TRUE(facts().empty());
  EXPECT_NE(provider->data(), before);
  EXPECT_EQ(provider->reachability(), std::nullopt);
  EXPECT_EQ(device.reachability.callbackRegistrations, 0);
}

TEST_F(KXConnectionTest, RegistersItsCallbackBeforeItLooksAtTheHandle) {
  const auto provider = KXConnection::sharedInstance();
  provider->setReachability(NetworkReachabilityRef{nullptr});
  const int before = device.reachability.callbackRegistrations;
  const std::size_t schedules = device.reachability.schedules();
  provider->startNotifier();
  EXPECT_EQ(device.reachability.callbackRegistrations, before + 1);
  EXPECT_EQ(device.reachability.schedules(), schedules);
  EXPECT_EQ(provider->currentReachabilityStatus(), KXNetworkStatusNone);
  provider->stopNotifier();
}

TEST_F(KXConnectionTest, DoesNotWatchWhenTheCallbackCannotBeRegistered) {
  device.reachability.registrationSucceeds = false;
  EXPECT_EQ(facts(), wifi);
  EXPECT_EQ(device.reachability.schedules(), 0u);
}

TEST_F(KXConnectionTest, IgnoresACallbackForAProviderThatIsGone) {
  ReachabilityCallback(nullptr, 0, std::weak_ptr<Object>());
}

TEST_F(KXConnectionTest, IsPermittedAndUnmonitored) {
  EXPECT_TRUE(KXConnection::sharedInstance()->hasPermissions());
  EXPECT_FALSE(KXConnection::sharedInstance()->needsMonitoring());
}

}  // namespace
}  // namespace kx
