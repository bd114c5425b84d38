#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>

#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/platform/simulated/SimulatedScope.h"

// A Linux host's own door, on the simulated device.

namespace kx {
namespace {

constexpr const char *identifier = "0F2A6C1E-0000-4000-8000-000000000001";

LinuxHostOptions options() {
  LinuxHostOptions options;
  options.advertisingIdentifier = identifier;
  return options;
}

TEST(SimulatedLinuxHost, GivesItsOptionsToTheDevice) {
  SimulatedScope scope;
  LinuxHostOptions given = options();
  given.advertisingTrackingEnabled = false;
  given.backgroundRefreshStatus = BackgroundRefreshStatus::denied;
  given.applicationIdentifier = "org.example.QtHost";
  EXPECT_TRUE(LinuxHost::setOptions(given));
  KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  scope.device.advance(5);
  const auto text = scope.device.service.messages().at(0).text().value_or("");
  EXPECT_NE(text.find(identifier), std::string::npos);
  EXPECT_NE(text.find("\"dnt\":1"), std::string::npos);
  EXPECT_NE(text.find("\"bundleId\":\"org.example.QtHost\""), std::string::npos);
  LinuxHost::didEnterBackground();
  scope.device.advance(1);
  EXPECT_EQ(scope.device.service.messages().size(), 2u);
  EXPECT_TRUE(scope.device.application->backgroundTasks.empty());
}

TEST(SimulatedLinuxHost, SendsNothingWithoutAnIdentifierAsOnARealDevice) {
  SimulatedScope scope;
  EXPECT_TRUE(LinuxHost::setOptions({}));
  KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  scope.device.advance(700);
  EXPECT_TRUE(scope.device.service.messages().empty());
}

TEST(SimulatedLinuxHost, GivesOptionsThatComeBeforeTheDeviceToTheNextOne) {
  EXPECT_TRUE(LinuxHost::setOptions(options()));
  {
    SimulatedScope scope;
    EXPECT_EQ(scope.device.advertisingService->identifier, identifier);
  }
  SimulatedScope scope;
  EXPECT_NE(scope.device.advertisingService->identifier, identifier);
}

TEST(SimulatedLinuxHost, RefusesOptionsThatComeTooLate) {
  SimulatedScope scope;
  KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  EXPECT_FALSE(LinuxHost::setOptions(options()));
  EXPECT_NE(scope.device.advertisingService->identifier, identifier);
  EXPECT_TRUE(KXPublisher::diagnosis().optionsCameTooLate);
}

TEST(SimulatedLinuxHost, AnnouncesEachTransitionOnceAndOnTheMainThread) {
  SimulatedScope scope;
  KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  scope.device.advance(100);
  LinuxHost::willEnterForeground();
  scope.device.advance(10);
  EXPECT_EQ(scope.device.service.messages().size(), 1u);  // it is there already

  scope.device.scheduler.globalQueue(DispatchQueuePriority::low).async([] {
    LinuxHost::didEnterBackground();
    LinuxHost::didEnterBackground();
  });
  scope.device.advance(1000);
  EXPECT_TRUE(scope.device.application->inBackground);
  EXPECT_EQ(scope.device.service.messages().size(), 2u);

  LinuxHost::willEnterForeground();
  EXPECT_TRUE(scope.device.application->inBackground);  // it returns at once
  scope.device.advance(5);
  EXPECT_FALSE(scope.device.application->inBackground);
  EXPECT_EQ(scope.device.service.messages().size(), 3u);
}

TEST(SimulatedLinuxHost, DoesNothingWithoutADevice) {
  LinuxHost::didEnterBackground();
  LinuxHost::willEnterForeground();
  EXPECT_EQ(SimulatedPlatform::made(), nullptr);
}

}  // namespace
}  // namespace kx
