// Where the device is.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/providers/KXLocation.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using nlohmann::json;

constexpr const char *geocoding = "-[CLGeocoder reverseGeocodeLocation:completionHandler:]";

const json atSea = {{"lat", 54.5},
                    {"lon", 7.25},
                    {"horizontalAccuracy", 5.0},
                    {"altitude", 35.5},
                    {"verticalAccuracy", -1.0}};
const json nothing = json::object();

CLPlacemark *berlin() {
  return standin::placemark(@"DE", @"Berlin", @"Berlin", @"10115",
                            [NSTimeZone timeZoneForSecondsFromGMT:7200]);
}

/// The updates that the library has asked for start once it knows that location services are switched on;
/// then nothing is under way any more.
bool comesToUpdate() {
  if (!standin::runMainLoopUntil([] { return standin::updatingLocationManagers() == 1; })) return false;
  standin::settleQueues();
  return true;
}

std::shared_ptr<KXLocation> providerAtSea() {
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  return KXLocation::sharedInstance();
}

/// The same with these placemarks for each position: the first refresh asks for its place, and another one
/// does when location services turn out to be switched on.
bool comesToKnow(const KXData &provider, const json &facts, NSArray<CLPlacemark *> *placemarks) {
  return standin::runMainLoopUntil([&] {
    standin::answerGeocoding(placemarks);
    return factsOf(provider) == facts;
  });
}

TEST(AppleLocation, IsKnownAtOnceAndItsPlaceLater) {
  const auto provider = providerAtSea();
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  CLPlacemark *const other = standin::placemark(@"FR", @"Bretagne", @"Brest", @"29200", nil);
  json withPlace = atSea;
  withPlace.update(
      {{"country", "DE"}, {"state", "Berlin"}, {"city", "Berlin"}, {"zip", "10115"}, {"tzOffset", 7200}});
  EXPECT_TRUE(comesToKnow(*provider, withPlace, @[ berlin(), other ])) << factsOf(*provider);
}

TEST(AppleLocation, IsWhatTheGeocoderIsAskedFor) {
  NSDate *const before = [NSDate date];
  const auto provider = providerAtSea();
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::geocodedLocation() != nil; }));
  CLLocation *const location = standin::geocodedLocation();
  EXPECT_EQ(location.coordinate.latitude, 54.5);
  EXPECT_EQ(location.coordinate.longitude, 7.25);
  EXPECT_EQ(location.horizontalAccuracy, 5);
  EXPECT_EQ(location.altitude, 35.5);
  EXPECT_EQ(location.verticalAccuracy, -1);
  EXPECT_GE([[location valueForKey:@"timestamp"] timeIntervalSinceDate:before], 0);
}

TEST(AppleLocation, LeavesOutWhatThePlaceHasNot) {
  const auto provider = providerAtSea();
  CLPlacemark *const place = standin::placemark(@"DE", nil, nil, @"", nil);
  json withPlace = atSea;
  withPlace["country"] = "DE";
  EXPECT_TRUE(comesToKnow(*provider, withPlace, @[ place ])) << factsOf(*provider);
}

TEST(AppleLocation, HasNoPlaceWhenNoneIsFound) {
  const auto provider = providerAtSea();
  NSError *const error = [NSError errorWithDomain:@"kCLErrorDomain" code:8 userInfo:nil];
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return standin::answerGeocoding(nil, error); }));
  standin::moveTo(standin::locationAt(54.5, 7.25));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return standin::answerGeocoding(@[]); }));
  standin::settleMainLoop();
  EXPECT_TRUE(comesToKnow(*provider, atSea)) << factsOf(*provider);
}

TEST(AppleLocation, FollowsTheDevice) {
  const auto provider = providerAtSea();
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  EXPECT_TRUE(comesToUpdate());
  standin::settleMainLoop();
  const int asked = standin::callsOf(geocoding);
  standin::moveTo(standin::locationAt(53.0, 7.25, 0));
  json moved = atSea;
  moved["lat"] = 53.0;
  moved["horizontalAccuracy"] = 0.0;
  EXPECT_TRUE(comesToKnow(*provider, moved));
  EXPECT_TRUE(standin::runMainLoopUntil([asked] { return standin::callsOf(geocoding) > asked; }));
  EXPECT_EQ(standin::distanceFilter(), 10.0);
}

TEST(AppleLocation, ThatIsInvalidIsNoLocation) {
  standin::locationServices().location = standin::locationAt(54.5, 7.25, -1);
  const auto provider = KXLocation::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, nothing));
  EXPECT_EQ(standin::callsOf(geocoding), 0);
}

TEST(AppleLocation, FollowsTheUsersPermission) {
  standin::locationServices().authorizationStatus = kCLAuthorizationStatusDenied;
  const auto provider = providerAtSea();
  standin::settleQueues();
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedAlways);
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  EXPECT_TRUE(comesToUpdate());
  standin::changeAuthorization(kCLAuthorizationStatusRestricted);
  EXPECT_TRUE(comesToKnow(*provider, nothing));
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
}

TEST(AppleLocation, FollowsTheUsersPermissionBeforeIOS14) {
  standin::locationServices().knowsItsOwnAuthorization = false;
  standin::locationServices().authorizationStatus = kCLAuthorizationStatusDenied;
  const auto provider = providerAtSea();
  standin::settleQueues();
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedWhenInUse);
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  standin::changeAuthorization(kCLAuthorizationStatusDenied);
  EXPECT_TRUE(comesToKnow(*provider, nothing));
}

TEST(AppleLocation, NeedsTheServicesToBeEnabled) {
  standin::locationServices().areEnabled = false;
  const auto provider = providerAtSea();
  EXPECT_FALSE(provider->hasPermissions());
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
}

TEST(AppleLocation, IsForgottenWhileTheSystemPausesUpdates) {
  const auto provider = providerAtSea();
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  EXPECT_TRUE(comesToUpdate());
  standin::pauseLocationUpdates();
  EXPECT_TRUE(comesToKnow(*provider, nothing));
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
  standin::resumeLocationUpdates();
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  EXPECT_EQ(standin::updatingLocationManagers(), 1);
}

TEST(AppleLocation, IsNotFollowedInTheBackground) {
  const auto provider = providerAtSea();
  EXPECT_TRUE(comesToKnow(*provider, atSea));
  EXPECT_TRUE(comesToUpdate());
  standin::enterBackground();
  EXPECT_EQ(standin::updatingLocationManagers(), 0);
  standin::locationServices().location = standin::locationAt(1.0, 7.25);
  EXPECT_EQ(factsOf(*provider), atSea);
  standin::enterForeground();
  EXPECT_EQ(standin::updatingLocationManagers(), 1);
  json moved = atSea;
  moved["lat"] = 1.0;
  EXPECT_TRUE(comesToKnow(*provider, moved));
}

TEST(AppleLocation, SurvivesWhatTheGeocoderRaises) {
  standin::raiseIn(geocoding);
  const auto provider = providerAtSea();
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::callsOf(geocoding) >= 1; }));
  standin::changeAuthorization(kCLAuthorizationStatusDenied);
  EXPECT_TRUE(comesToKnow(*provider, nothing));
}

TEST(AppleGeocoder, EndsWhatTheAnswerThrows) {
  const auto geocoder = Platform::current().location().makeGeocoder();
  std::atomic<int> answers{0};
  geocoder->reverseGeocodeLocation({}, [&answers](const std::vector<Placemark> &) {
    ++answers;
    throw 1;
  });
  EXPECT_NO_THROW(standin::answerGeocoding(@[ berlin() ]));
  EXPECT_TRUE(standin::runMainLoopUntil([&answers] { return answers == 1; }));
}

/// Counts what it is told.
class Delegate : public Object, public LocationManagerDelegate {
 public:
  void locationManager(LocationManager & /*manager*/, AuthorizationStatus status) override {
    lastStatus = status;
  }
  void locationManager(LocationManager &manager, const std::vector<Location> &locations) override {
    EXPECT_TRUE([NSThread isMainThread]);
    EXPECT_EQ(&manager, expectedManager);
    if (throws) throw 1;
    received.insert(received.end(), locations.begin(), locations.end());
  }
  void locationManagerDidPauseLocationUpdates(LocationManager & /*manager*/) override { ++pauses; }
  void locationManagerDidResumeLocationUpdates(LocationManager & /*manager*/) override { ++resumptions; }

  const LocationManager *expectedManager = nullptr;
  bool throws = false;
  AuthorizationStatus lastStatus = AuthorizationStatus::notDetermined;
  std::vector<Location> received;
  int pauses = 0;
  int resumptions = 0;
};

class AppleLocationManager : public ::testing::Test {
 protected:
  void SetUp() override {
    delegate->expectedManager = manager.get();
    manager->setDelegate(delegate);
    manager->startUpdatingLocation();
  }

  std::shared_ptr<LocationManager> manager = Platform::current().location().makeLocationManager();
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
};

TEST_F(AppleLocationManager, TellsItsDelegateEverything) {
  standin::moveTo(standin::locationAt(1, 2, 3));
  standin::changeAuthorization(kCLAuthorizationStatusAuthorizedAlways);
  standin::pauseLocationUpdates();
  standin::resumeLocationUpdates();
  EXPECT_TRUE(standin::runMainLoopUntil([this] { return delegate->resumptions == 1; }));
  ASSERT_EQ(delegate->received.size(), 1u);
  EXPECT_EQ(delegate->received[0].coordinate.latitude, 1);
  EXPECT_EQ(delegate->received[0].coordinate.longitude, 2);
  EXPECT_EQ(delegate->received[0].horizontalAccuracy, 3);
  EXPECT_EQ(delegate->received[0].altitude, 35.5);
  EXPECT_EQ(delegate->received[0].verticalAccuracy, -1);
  EXPECT_EQ(delegate->lastStatus, AuthorizationStatus::authorizedAlways);
  EXPECT_EQ(delegate->pauses, 1);
}

TEST_F(AppleLocationManager, TellsItsDelegateThePermissionBeforeIOS14) {
  standin::locationServices().knowsItsOwnAuthorization = false;
  standin::changeAuthorization(kCLAuthorizationStatusRestricted);
  EXPECT_TRUE(
      standin::runMainLoopUntil([this] { return delegate->lastStatus == AuthorizationStatus::restricted; }));
  EXPECT_EQ(standin::callsOf("-[CLLocationManager authorizationStatus]"), 0);
}

TEST_F(AppleLocationManager, TellsItsDelegateSeveralLocationsAtOnce) {
  standin::moveTo(@[ standin::locationAt(1, 2), standin::locationAt(3, 4) ]);
  EXPECT_TRUE(standin::runMainLoopUntil([this] { return delegate->received.size() == 2; }));
  EXPECT_EQ(delegate->received[0].coordinate.latitude, 1);
  EXPECT_EQ(delegate->received[1].coordinate.latitude, 3);
}

TEST_F(AppleLocationManager, MayKnowNoLocation) {
  standin::locationServices().location = nil;
  EXPECT_EQ(manager->location(), std::nullopt);
}

TEST_F(AppleLocationManager, MayHaveNoDelegate) {
  manager->setDelegate({});
  standin::moveTo(standin::locationAt(1, 2));
  standin::settleMainLoop();
  EXPECT_TRUE(delegate->received.empty());
}

TEST_F(AppleLocationManager, DoesNotKeepItsDelegate) {
  const std::weak_ptr<Delegate> weak = delegate;
  delegate.reset();
  EXPECT_TRUE(weak.expired());
  standin::moveTo(standin::locationAt(1, 2));
  standin::settleMainLoop();
}

TEST_F(AppleLocationManager, IsGoneWithItsLastReference) {
  EXPECT_EQ(standin::locationManagers(), 1);
  @autoreleasepool {
    manager.reset();
  }
  EXPECT_EQ(standin::locationManagers(), 0);
}

TEST_F(AppleLocationManager, LeavesTheSystemNoDelegateBehind) {
  CLLocationManager *const systemManager = standin::latestLocationManager();
  id<CLLocationManagerDelegate> const systemDelegate = systemManager.delegate;
  ASSERT_TRUE(systemDelegate != nil);
  manager.reset();
  EXPECT_TRUE(systemManager.delegate == nil);
  // A call that was under way.
  [systemDelegate locationManager:systemManager didUpdateLocations:@[ standin::locationAt(1, 2) ]];
  EXPECT_TRUE(delegate->received.empty());
}

TEST_F(AppleLocationManager, EndsWhatThePermissionRaises) {
  constexpr const char *permission = "-[CLLocationManager authorizationStatus]";
  standin::raiseIn(permission);
  standin::changeAuthorization(kCLAuthorizationStatusDenied);
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::callsOf(permission) == 1; }));
  EXPECT_EQ(delegate->lastStatus, AuthorizationStatus::notDetermined);
}

TEST_F(AppleLocationManager, EndsWhatALocationRaises) {
  constexpr const char *coordinate = "-[CLLocation coordinate]";
  standin::raiseIn(coordinate);
  standin::moveTo(standin::locationAt(1, 2));
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::callsOf(coordinate) == 1; }));
  EXPECT_TRUE(delegate->received.empty());
}

TEST_F(AppleLocationManager, EndsWhatItsDelegateThrows) {
  delegate->throws = true;
  standin::moveTo(standin::locationAt(1, 2));
  standin::settleMainLoop();
  delegate->throws = false;
  standin::moveTo(standin::locationAt(1, 2));
  EXPECT_TRUE(standin::runMainLoopUntil([this] { return delegate->received.size() == 1; }));
}

}  // namespace
}  // namespace kx
