#include <vector>

#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/providers/KXScheduler.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXDataMonitoringTest : public SimulatedTest {
 protected:
  void SetUp() override { device.runReadyTasks(); }

  std::shared_ptr<TestProvider> provider = TestProvider::makeMonitored();

  void startMonitoring() {
    provider->setMonitoring(true);
    device.runReadyTasks();
    provider->computed = 0;
  }
};

TEST_F(KXDataMonitoringTest, IsOffAtCreation) {
  EXPECT_FALSE(provider->isMonitoring());
  device.advance(3600);
  EXPECT_EQ(provider->computed, 1);
}

TEST_F(KXDataMonitoringTest, RecomputesOncePerPeriod) {
  startMonitoring();
  EXPECT_TRUE(provider->isMonitoring());
  device.advance(59.9);
  EXPECT_EQ(provider->computed, 0);
  device.advance(0.2);
  EXPECT_EQ(provider->computed, 1);
  device.advance(600);
  EXPECT_EQ(provider->computed, 11);
}

TEST_F(KXDataMonitoringTest, KeepsARunningTimersPhase) {
  startMonitoring();
  device.advance(30);
  provider->updateMonitoring();
  device.advance(30);
  EXPECT_EQ(provider->computed, 1);
}

TEST_F(KXDataMonitoringTest, StopsAndEmptiesItsDataWhenSwitchedOff) {
  startMonitoring();
  device.advance(60);
  EXPECT_FALSE(provider->facts().empty());
  provider->setMonitoring(false);
  device.advance(600);
  EXPECT_FALSE(provider->isMonitoring());
  EXPECT_EQ(provider->computed, 1);
  ASSERT_NE(provider->data(), nullptr);
  EXPECT_TRUE(provider->facts().empty());
}

TEST_F(KXDataMonitoringTest, StopsAndEmptiesItsDataWithoutPermission) {
  startMonitoring();
  device.advance(60);
  provider->permitted = false;
  provider->updateMonitoring();
  device.advance(600);
  EXPECT_TRUE(provider->isMonitoring());
  EXPECT_EQ(provider->computed, 1);
  EXPECT_TRUE(provider->facts().empty());
}

TEST_F(KXDataMonitoringTest, RestsInTheBackgroundWithItsDataKept) {
  startMonitoring();
  device.advance(60);
  device.application->enterBackground();
  device.advance(3600);
  EXPECT_EQ(provider->computed, 1);
  EXPECT_TRUE(provider->isMonitoring());
  EXPECT_FALSE(provider->facts().empty());
}

TEST_F(KXDataMonitoringTest, RefreshesAndGoesOnAfterTheReturnToTheForeground) {
  startMonitoring();
  device.application->enterBackground();
  device.advance(100);
  device.application->enterForeground();
  EXPECT_EQ(provider->computed, 0);
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 1);
  device.advance(60);
  EXPECT_EQ(provider->computed, 2);
}

TEST_F(KXDataMonitoringTest, EmptiesItsDataAtTheReturnToTheForegroundWithoutPermission) {
  startMonitoring();
  device.advance(60);
  provider->permitted = false;
  device.application->enterBackground();
  device.application->enterForeground();
  device.advance(600);
  EXPECT_EQ(provider->computed, 1);
  EXPECT_TRUE(provider->facts().empty());
}

TEST_F(KXDataMonitoringTest, HasNoTimerInTheRegistryUnlessItMonitors) {
  const Selector tick = Selector::of<&KXData::updateDataWithTimer>("updateDataWithTimer:");
  const auto scheduler = KXScheduler::sharedInstance();
  EXPECT_EQ(scheduler->scheduleInfoForTarget(provider, tick), nullptr);
  startMonitoring();
  ASSERT_NE(scheduler->scheduleInfoForTarget(provider, tick), nullptr);
  EXPECT_EQ(scheduler->scheduleInfoForTarget(provider, tick)->timeInterval(), 60);
  device.application->enterBackground();
  EXPECT_EQ(scheduler->scheduleInfoForTarget(provider, tick), nullptr);
}

}  // namespace
}  // namespace kx
