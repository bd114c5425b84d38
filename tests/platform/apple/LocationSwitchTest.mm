// Whether location services are switched on is asked elsewhere than on the main thread, and nothing is lost
// by it.

#import <Foundation/Foundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/providers/KXLocation.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

constexpr const char *asking = "+[CLLocationManager locationServicesEnabled]";
constexpr const char *geocoding = "-[CLGeocoder reverseGeocodeLocation:completionHandler:]";

LocationService &service() {
  return Platform::current().location();
}

bool comesToUpdate(int managers) {
  return standin::runMainLoopUntil([managers] { return standin::updatingLocationManagers() == managers; });
}

/// Until the system has answered so often, and what follows from it is done.
void awaitAnswers(int count) {
  ASSERT_TRUE(standin::runMainLoopUntil([count] { return standin::callsOf(asking) >= count; }));
  standin::settleMainLoop();
}

TEST(AppleLocationSwitch, TheMainThreadIsNeverTheOneThatAsks) {
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  const auto provider = KXLocation::sharedInstance();
  EXPECT_TRUE(comesToUpdate(1));
  standin::enterBackground();
  standin::enterForeground();
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedAlways);
  standin::settleMainLoop();
  EXPECT_TRUE(provider->hasPermissions());
  EXPECT_GT(standin::callsOf(asking), 0);
  EXPECT_EQ(standin::callsOf(asking), standin::callsOffMainThread(asking));
}

TEST(AppleLocationSwitch, NothingIsOnBeforeTheSystemHasSaidSo) {
  standin::holdIn(asking);
  const auto provider = KXLocation::sharedInstance();
  EXPECT_FALSE(provider->hasPermissions());
  standin::settleMainLoop();
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
  standin::letGo(asking);
  EXPECT_TRUE(comesToUpdate(1));
  EXPECT_TRUE(provider->hasPermissions());
}

TEST(AppleLocationSwitch, TheFactsAreComputedWhenTheAnswerComes) {
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  standin::locationServices().areEnabled = false;
  const auto provider = KXLocation::sharedInstance();
  awaitAnswers(2);  // one for the first question, one for the initial refresh
  EXPECT_EQ(standin::callsOf(geocoding), 0);
  standin::locationServices().areEnabled = true;
  EXPECT_FALSE(provider->hasPermissions());  // on the main thread: what was known
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return factsOf(*provider).contains("lat"); }));
  EXPECT_TRUE(comesToUpdate(1));
}

TEST(AppleLocationSwitch, FollowsTheAuthorizationsReports) {
  standin::locationServices().areEnabled = false;
  const auto provider = KXLocation::sharedInstance();
  awaitAnswers(2);
  standin::locationServices().areEnabled = true;
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedWhenInUse);
  EXPECT_TRUE(comesToUpdate(1));
  standin::locationServices().areEnabled = false;
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedWhenInUse);
  EXPECT_TRUE(comesToUpdate(0));
  EXPECT_FALSE(provider->hasPermissions());
}

TEST(AppleLocationSwitch, IsAskedAnewOnTheReturnToTheForeground) {
  standin::locationServices().areEnabled = false;
  const auto provider = KXLocation::sharedInstance();
  awaitAnswers(2);
  standin::enterBackground();
  standin::locationServices().areEnabled = true;
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  standin::enterForeground();
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return factsOf(*provider).contains("lat"); }));
  EXPECT_TRUE(comesToUpdate(1));
}

/// Counts the reports of the authorization.
class Delegate : public Object, public LocationManagerDelegate {
 public:
  void locationManager(LocationManager & /*manager*/, AuthorizationStatus didChange) override {
    EXPECT_TRUE([NSThread isMainThread]);
    EXPECT_EQ(didChange, AuthorizationStatus::authorizedWhenInUse);
    ++reports;
  }
  void locationManager(LocationManager & /*manager*/, const std::vector<Location> & /*new*/) override {}
  void locationManagerDidPauseLocationUpdates(LocationManager & /*manager*/) override {}
  void locationManagerDidResumeLocationUpdates(LocationManager & /*manager*/) override {}

  int reports = 0;
};

TEST(AppleLocationSwitch, OnlyAnAnswerThatWasWrongIsReported) {
  const auto delegate = std::make_shared<Delegate>();
  const auto manager = service().makeLocationManager();
  manager->setDelegate(delegate);
  EXPECT_FALSE(service().locationServicesEnabled());
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return delegate->reports == 1; }));
  EXPECT_TRUE(service().locationServicesEnabled());
  awaitAnswers(2);
  EXPECT_EQ(delegate->reports, 1);
}

TEST(AppleLocationSwitch, OtherThreadsAreToldWhatTheSystemSaysNow) {
  const auto delegate = std::make_shared<Delegate>();
  const auto manager = service().makeLocationManager();
  manager->setDelegate(delegate);
  std::atomic<bool> isOn{false};
  std::thread([&isOn] { isOn = service().locationServicesEnabled(); }).join();
  EXPECT_TRUE(isOn);
  standin::locationServices().areEnabled = false;
  std::thread([&isOn] { isOn = service().locationServicesEnabled(); }).join();
  EXPECT_FALSE(isOn);
  standin::settleMainLoop();
  EXPECT_EQ(delegate->reports, 0);  // the main thread was told nothing
}

TEST(AppleLocationSwitch, WhatTheAnswerRaisesEndsThere) {
  standin::raiseIn(asking);
  const auto provider = KXLocation::sharedInstance();
  awaitAnswers(2);
  EXPECT_FALSE(provider->hasPermissions());
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
}

TEST(AppleLocationSwitch, AManagerThatIsGoneIsReportedNothing) {
  const auto delegate = std::make_shared<Delegate>();
  @autoreleasepool {
    const auto manager = service().makeLocationManager();
    manager->setDelegate(delegate);
    standin::holdIn(asking);
    EXPECT_FALSE(service().locationServicesEnabled());
  }
  EXPECT_EQ(standin::locationManagers(), 0);
  standin::letGo(asking);
  awaitAnswers(1);
  EXPECT_EQ(delegate->reports, 0);
}

}  // namespace
}  // namespace kx
