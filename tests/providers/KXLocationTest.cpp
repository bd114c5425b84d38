#include <cmath>

#include "KXPublisher/providers/KXLocation.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

const Location berlin{{52.52, 13.405}, 12.5, 34.0, 3.0};
const Location paris{{48.8566, 2.3522}, 8.0, 35.0, 4.0};

const Dictionary berlinPosition{{"lat", 52.52},
                                {"lon", 13.405},
                                {"horizontalAccuracy", 12.5},
                                {"altitude", 34.0},
                                {"verticalAccuracy", 3.0}};

class KXLocationTest : public SimulatedTest {
 protected:
  SimulatedLocationService &service = device.locationService;

  Dictionary facts() {
    const auto provider = KXLocation::sharedInstance();
    device.runReadyTasks();
    const auto data = provider->data();
    return data == nullptr ? Dictionary() : *data->contents();
  }
  Dictionary berlinPositionAndPlace() const {
    Dictionary expected = berlinPosition;
    expected.addEntriesFrom(
        {{"country", "DE"}, {"state", "Berlin"}, {"city", "Berlin"}, {"zip", "10115"}, {"tzOffset", 7200}});
    return expected;
  }
  const Placemark berlinPlace{"DE", "Berlin", "Berlin", "10115", 7200};
};

TEST_F(KXLocationTest, ReportsThePositionFirstAndThePlaceLater) {
  service.position = berlin;
  service.placemarks = {berlinPlace};
  EXPECT_EQ(facts(), berlinPosition);
  device.advance(1);
  EXPECT_EQ(facts(), berlinPositionAndPlace());
}

TEST_F(KXLocationTest, UsesOnlyTheFirstPlace) {
  service.position = berlin;
  service.placemarks = {berlinPlace, Placemark{"FR", "Paris", "Paris", "75001", 3600}};
  facts();
  device.advance(1);
  EXPECT_EQ(facts(), berlinPositionAndPlace());
}

TEST_F(KXLocationTest, KeepsThePositionAloneWhenNoPlaceIsFound) {
  service.position = berlin;
  facts();
  device.advance(1);
  EXPECT_EQ(facts(), berlinPosition);
  EXPECT_EQ(service.geocoded.size(), 1u);
}

TEST_F(KXLocationTest, LeavesOutWhatThePlaceDoesNotTell) {
  service.position = berlin;
  service.placemarks = {Placemark{"DE", std::nullopt, std::nullopt, std::nullopt, std::nullopt}};
  facts();
  device.advance(1);
  Dictionary expected = berlinPosition;
  expected.set("country", "DE");
  EXPECT_EQ(facts(), expected);
}

TEST_F(KXLocationTest, TellsOfAPlaceWhatThereIsThoughItsCountryIsNotKnown) {
  service.position = berlin;
  service.placemarks = {Placemark{std::nullopt, "Berlin", "Berlin", "10115", std::nullopt}};
  facts();
  device.advance(1);
  Dictionary expected = berlinPosition;
  expected.addEntriesFrom({{"state", "Berlin"}, {"city", "Berlin"}, {"zip", "10115"}});
  EXPECT_EQ(facts(), expected);
}

TEST_F(KXLocationTest, ReportsTheTimeZoneInWholeSeconds) {
  service.position = berlin;
  service.placemarks = {berlinPlace};
  facts();
  device.advance(1);
  const Dictionary known = facts();
  ASSERT_NE(known.find("tzOffset"), nullptr);
  ASSERT_NE(known.find("tzOffset")->integer(), nullptr);
  EXPECT_EQ(*known.find("tzOffset")->integer(), 7200);
}

TEST_F(KXLocationTest, IsEmptyWithoutAPosition) {
  EXPECT_TRUE(facts().empty());
  EXPECT_NE(KXLocation::sharedInstance()->data(), nullptr);
  EXPECT_TRUE(service.geocoded.empty());
}

TEST_F(KXLocationTest, TakesANegativeHorizontalAccuracyForNoPosition) {
  service.position = berlin;
  service.position->horizontalAccuracy = -1;
  EXPECT_TRUE(facts().empty());
  EXPECT_TRUE(service.geocoded.empty());
}

TEST_F(KXLocationTest, TakesAnAccuracyThatIsNotANumberForNoPosition) {
  service.position = berlin;
  service.position->horizontalAccuracy = std::nan("");
  EXPECT_TRUE(facts().empty());
  EXPECT_TRUE(service.geocoded.empty());
}

TEST_F(KXLocationTest, TakesAHorizontalAccuracyOfZeroForAPosition) {
  service.position = berlin;
  service.position->horizontalAccuracy = 0.0;
  EXPECT_EQ(*facts().find("horizontalAccuracy"), Value(0.0));
  EXPECT_EQ(service.geocoded.size(), 1u);
}

TEST_F(KXLocationTest, ReportsAltitudeWhateverItsAccuracy) {
  service.position = berlin;
  service.position->verticalAccuracy = -1;
  const Dictionary known = facts();
  EXPECT_EQ(*known.find("altitude"), Value(34.0));
  EXPECT_EQ(*known.find("verticalAccuracy"), Value(-1.0));
}

TEST_F(KXLocationTest, ReportsThePositionWithoutAGeocoder) {
  service.geocoderPresent = false;
  service.position = berlin;
  EXPECT_EQ(facts(), berlinPosition);
}

TEST_F(KXLocationTest, StaysEmptyWithoutALocationManager) {
  service.managerPresent = false;
  service.position = berlin;
  EXPECT_TRUE(facts().empty());
  device.application->enterBackground();
  device.application->enterForeground();
  EXPECT_TRUE(facts().empty());
  EXPECT_EQ(service.startCalls, 0);
}

TEST_F(KXLocationTest, IsPermittedByServicesAndAuthorizationTogether) {
  const auto provider = KXLocation::sharedInstance();
  const auto permitted = [&](bool enabled, int status) {
    service.enabled = enabled;
    service.status = static_cast<AuthorizationStatus>(status);
    return provider->hasPermissions();
  };
  EXPECT_TRUE(permitted(true, 3));
  EXPECT_TRUE(permitted(true, 4));
  EXPECT_TRUE(permitted(true, 5));
  EXPECT_TRUE(permitted(true, -1));  // compared as unsigned
  for (const int status : {0, 1, 2}) EXPECT_FALSE(permitted(true, status)) << status;
  for (const int status : {0, 1, 2, 3, 4}) EXPECT_FALSE(permitted(false, status)) << status;
}

TEST_F(KXLocationTest, StartsUpdatesAtItsCreationIfPermitted) {
  KXLocation::sharedInstance();
  EXPECT_TRUE(service.updating());
  EXPECT_EQ(service.distanceFilter, 10.0);
}

TEST_F(KXLocationTest, NeitherStartsNorComputesWithoutPermission) {
  service.status = AuthorizationStatus::notDetermined;
  service.position = berlin;
  EXPECT_TRUE(facts().empty());
  EXPECT_EQ(KXLocation::sharedInstance()->data(), nullptr);
  EXPECT_EQ(service.startCalls, 0);
}

TEST_F(KXLocationTest, StartsWhenTheAuthorizationIsGranted) {
  service.status = AuthorizationStatus::notDetermined;
  service.position = berlin;
  facts();
  service.changeAuthorization(AuthorizationStatus::authorizedAlways);
  EXPECT_EQ(facts(), berlinPosition);
  EXPECT_TRUE(service.updating());
}

TEST_F(KXLocationTest, StopsAndEmptiesItsDataWhenTheAuthorizationIsWithdrawn) {
  service.position = berlin;
  facts();
  service.changeAuthorization(AuthorizationStatus::denied);
  EXPECT_TRUE(facts().empty());
  EXPECT_NE(KXLocation::sharedInstance()->data(), nullptr);
  EXPECT_FALSE(service.updating());
}

TEST_F(KXLocationTest, AsksForTheAuthorizationAfreshWhateverTheReportSays) {
  service.position = berlin;
  facts();
  service.changeAuthorization(AuthorizationStatus::denied);
  service.status = AuthorizationStatus::authorizedAlways;  // before the report arrives
  EXPECT_EQ(facts(), berlinPosition);
}

TEST_F(KXLocationTest, FollowsNewPositions) {
  service.position = berlin;
  facts();
  service.moveTo(paris);
  EXPECT_EQ(*facts().find("lat"), Value(48.8566));
  EXPECT_EQ(service.geocoded.size(), 2u);
}

TEST_F(KXLocationTest, IgnoresNewPositionsWithoutPermission) {
  service.position = berlin;
  facts();
  service.enabled = false;
  service.moveTo(paris);
  EXPECT_EQ(facts(), berlinPosition);
}

TEST_F(KXLocationTest, LooksForThePlaceOfAPositionThoughThePermissionHasGoneMeanwhile) {
  service.position = berlin;
  facts();
  KXLocation::sharedInstance()->updateData();
  service.enabled = false;
  facts();
  EXPECT_EQ(service.geocoded.size(), 2u);
}

TEST_F(KXLocationTest, LetsALatePlaceReplaceANewerPosition) {
  service.position = berlin;
  service.placemarks = {berlinPlace};
  service.geocodingLatency = 10;
  facts();
  device.advance(5);
  service.geocodingLatency = 100;
  service.moveTo(paris);
  EXPECT_EQ(*facts().find("lat"), Value(48.8566));
  device.advance(5);
  EXPECT_EQ(facts(), berlinPositionAndPlace());
}

TEST_F(KXLocationTest, ALateAnswerWithoutAPlaceReplacesNothing) {
  service.position = berlin;
  service.geocodingLatency = 10;
  facts();
  device.advance(5);
  service.geocodingLatency = 100;
  service.moveTo(paris);
  const auto before = facts();
  EXPECT_EQ(*before.find("lat"), Value(48.8566));
  device.advance(5);
  EXPECT_EQ(facts(), before);
}

TEST_F(KXLocationTest, APlaceThatComesWhenThePermissionHasGoneIsReportedStill) {
  service.position = berlin;
  service.placemarks = {berlinPlace};
  service.geocodingLatency = 10;
  EXPECT_EQ(facts(), berlinPosition);
  service.enabled = false;
  device.advance(10);
  EXPECT_EQ(facts(), berlinPositionAndPlace());
}

TEST_F(KXLocationTest, StopsUpdatesInTheBackgroundAndKeepsItsData) {
  service.position = berlin;
  facts();
  device.application->enterBackground();
  EXPECT_FALSE(service.updating());
  EXPECT_EQ(facts(), berlinPosition);
}

TEST_F(KXLocationTest, RestartsUpdatesAndRecomputesAtTheReturnToTheForeground) {
  service.position = berlin;
  facts();
  device.application->enterBackground();
  service.moveTo(paris);
  EXPECT_EQ(facts(), berlinPosition);
  device.application->enterForeground();
  EXPECT_TRUE(service.updating());
  EXPECT_EQ(*facts().find("lat"), Value(48.8566));
}

TEST_F(KXLocationTest, DoesNothingAtTheReturnWithoutPermission) {
  service.position = berlin;
  facts();
  const auto before = KXLocation::sharedInstance()->data();
  device.application->enterBackground();
  service.status = AuthorizationStatus::restricted;
  service.position = paris;
  const int starts = service.startCalls;
  device.application->enterForeground();
  EXPECT_EQ(facts(), berlinPosition);
  EXPECT_EQ(KXLocation::sharedInstance()->data(), before) << "computed anew";
  EXPECT_EQ(service.geocoded.size(), 1u);
  EXPECT_EQ(service.startCalls, starts);
}

TEST_F(KXLocationTest, EmptiesItsDataWhenUpdatesPause) {
  service.position = berlin;
  facts();
  service.pauseUpdates();
  EXPECT_TRUE(facts().empty());
  EXPECT_FALSE(service.updating());
}

TEST_F(KXLocationTest, EmptiesItsDataWhenUpdatesPauseEvenWithoutPermission) {
  service.position = berlin;
  facts();
  service.enabled = false;
  const int stops = service.stopCalls;
  service.pauseUpdates();
  EXPECT_TRUE(facts().empty());
  EXPECT_EQ(service.stopCalls, stops);
}

TEST_F(KXLocationTest, RestartsAndRecomputesWhenUpdatesResume) {
  service.position = berlin;
  facts();
  service.pauseUpdates();
  facts();
  service.resumeUpdates();
  EXPECT_EQ(facts(), berlinPosition);
  EXPECT_TRUE(service.updating());
}

TEST_F(KXLocationTest, ChangesNothingWhenUpdatesResumeWithoutPermission) {
  service.position = berlin;
  facts();
  const auto before = KXLocation::sharedInstance()->data();
  service.enabled = false;
  service.position = paris;
  const int starts = service.startCalls;
  service.resumeUpdates();
  EXPECT_EQ(facts(), berlinPosition);
  EXPECT_EQ(KXLocation::sharedInstance()->data(), before) << "computed anew";
  EXPECT_EQ(service.geocoded.size(), 1u);
  EXPECT_EQ(service.startCalls, starts);
}

TEST_F(KXLocationTest, NeverAsksTwiceForAManager) {
  facts();
  device.application->enterBackground();
  device.application->enterForeground();
  facts();
  EXPECT_EQ(service.managersMade, 1);
}

TEST_F(KXLocationTest, IsUnmonitored) {
  EXPECT_FALSE(KXLocation::sharedInstance()->needsMonitoring());
}

}  // namespace
}  // namespace kx
