#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>
#include <stdexcept>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "KXPublisher/providers/KXData.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXScheduler.h"
#include "KXPublisher/publisher/KXLogger.h"

namespace kx {
namespace {

std::shared_ptr<KXPublisher> start(const char *hostname = "collect.example.com") {
  return KXPublisher::sharedInstanceWithApiToken("token", hostname);
}

TEST(SimulatedScope, PlaysOneDeviceAfterTheOther) {
  for (const char *hostname : {"first.example.com", "second.example.com", "third.example.com"}) {
    SimulatedScope scope;
    start(hostname);
    scope.device.advance(600);
    const auto messages = scope.device.service.messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].url.rfind(std::string("https://") + hostname, 0), 0u);
    EXPECT_EQ(scope.device.service.logins().size(), 1u);
  }
}

TEST(SimulatedScope, MakesTheSingleInstancesForItsDeviceAlone) {
  std::weak_ptr<KXPublisher> publisher;
  std::weak_ptr<KXDevice> provider;
  std::weak_ptr<KXScheduler> scheduler;
  std::weak_ptr<KXLog> log;
  {
    SimulatedScope scope;
    publisher = start();
    provider = KXDevice::sharedInstance();
    scheduler = KXScheduler::sharedInstance();
    log = KXLog::sharedInstance();
    KXLog::sharedInstance()->setLogLevel(KXLogLevelDebug);
    scope.device.advance(10);
    EXPECT_EQ(KXPublisher::diagnosis().reportsMade, 1u);
  }
  EXPECT_TRUE(publisher.expired());
  EXPECT_TRUE(provider.expired());
  EXPECT_TRUE(scheduler.expired());
  EXPECT_TRUE(log.expired());
  SimulatedScope scope;
  EXPECT_EQ(KXPublisher::diagnosis().reportsMade, 0u);
  EXPECT_EQ(KXLog::sharedInstance()->logLevel(), KXLogLevelError);
}

TEST(SimulatedScope, EndsInTheMiddleOfAnything) {
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    SimulatedScope scope(seed);
    scope.device.locationService.position = Location{{52.5, 13.4}, 5, 34, 5};
    scope.device.locationService.placemarks = {Placemark{}};
    start();
    scope.device.application->enterBackground();
    for (std::uint64_t i = 0; i < seed % 50; ++i) scope.device.step();
    scope.device.telephonyService.changeCarrier(std::nullopt);
    scope.device.runLoopService.setTracking(seed % 2 == 0);
    scope.device.advance(static_cast<double>(seed % 7) / 20);
  }
}

TEST(SimulatedScope, IsTheOnlyOneOfItsTime) {
  SimulatedScope scope;
  EXPECT_THROW(SimulatedScope(), std::logic_error);
  EXPECT_THROW(SimulatedPlatform::install(), std::logic_error);
  EXPECT_EQ(SimulatedPlatform::made(), &scope.device);
}

TEST(SimulatedScope, RefusesAProcessThatHasADeviceForGood) {
  SimulatedPlatform::install();
  EXPECT_THROW(SimulatedScope(), std::logic_error);
}

TEST(SimulatedScope, TellsATestThatStillHoldsASingleInstance) {
  std::shared_ptr<KXPublisher> kept;
  SimulatedScope scope;
  kept = start();
  EXPECT_THROW(scope.end(), std::logic_error);
}

TEST(SimulatedScope, LeavesNoDeviceBehind) {
  { SimulatedScope scope; }
  EXPECT_EQ(SimulatedPlatform::made(), nullptr);
  EXPECT_THROW(Platform::current().clock(), std::logic_error);
}

TEST(SimulatedScope, MakesASingleInstanceOnceThoughManyTasksWantItFirst) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    SimulatedScope scope(seed);
    std::vector<std::shared_ptr<KXPublisher>> seen;
    for (int i = 0; i < 4; ++i) {
      scope.device.scheduler.globalQueue(DispatchQueuePriority::high).async([&seen] {
        seen.push_back(start());
      });
    }
    scope.device.runReadyTasks();
    ASSERT_EQ(seen.size(), 4u);
    for (const auto &publisher : seen) EXPECT_EQ(publisher, seen.front()) << "seed " << seed;
    EXPECT_EQ(scope.device.urlSessionService.sessions, 1) << "seed " << seed;
  }
}

}  // namespace
}  // namespace kx
