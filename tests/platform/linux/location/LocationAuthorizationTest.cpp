#include "tests/platform/linux/location/LocationTest.h"

namespace kx {
namespace {

/// Whether the host may know where the device is, as GeoClue tells it.
class LocationAuthorizationTest : public LocationTest {};

TEST_F(LocationAuthorizationTest, AHostWithoutAnIdentifierHasNoLocationManagers) {
  for (const auto &identifier :
       {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("\xff")}) {
    LinuxLocationService without(loop, systemBus, identifier, nullptr);
    EXPECT_EQ(without.makeLocationManager(), nullptr);
    EXPECT_FALSE(without.locationServicesEnabled());
    EXPECT_EQ(without.authorizationStatus(), AuthorizationStatus::notDetermined);
  }
}

TEST_F(LocationAuthorizationTest, TheGeocoderIsTheOneThatWasGiven) {
  class NoPlaces : public Geocoder {
   public:
    void reverseGeocodeLocation(const Location &, CompletionHandler) override {}
  };
  const auto geocoder = std::make_shared<NoPlaces>();
  EXPECT_EQ(LinuxLocationService(loop, systemBus, application, geocoder).makeGeocoder(), geocoder);
  EXPECT_EQ(LinuxLocationService(loop, systemBus, application, nullptr).makeGeocoder(), nullptr);
}

TEST_F(LocationAuthorizationTest, IsNotDeterminedAtFirst) {
  makeManager();
  EXPECT_FALSE(service->locationServicesEnabled());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::notDetermined);
  EXPECT_EQ(manager->location(), std::nullopt);
}

TEST_F(LocationAuthorizationTest, IsFoundForADelegateWithoutAnyUpdates) {
  makeManager();
  delegate->react = nullptr;
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  EXPECT_EQ(delegate->events, Events{authorized});
  EXPECT_TRUE(service->locationServicesEnabled());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::authorizedWhenInUse);
  ASSERT_TRUE(until([&] { return geoclue.calls["DeleteClient"] == 1; })) << "it went on";
  EXPECT_TRUE(geoclue.clients.empty());
}

TEST_F(LocationAuthorizationTest, AsksNobodyWhileNobodyWantsToKnow) {
  makeManager(false);
  settle();
  EXPECT_TRUE(geoclue.calls.empty());
}

TEST_F(LocationAuthorizationTest, TheFirstUpdatesGoOnFromTheQuestion) {
  makeUpdatingManager();
  settle();
  EXPECT_EQ(geoclue.calls["CreateClient"], 1);
  EXPECT_EQ(geoclue.calls["Start"], 1);
  EXPECT_TRUE(geoclue.client().active);
}

TEST_F(LocationAuthorizationTest, ADeniedHostIsDenied) {
  geoclue.errors["Start"] = {accessDenied, "'org.example.Host' disallowed by configuration for UID 1000"};
  makeManager();
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  EXPECT_EQ(delegate->events, Events{denied});
  EXPECT_TRUE(service->locationServicesEnabled());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::denied);
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
}

TEST_F(LocationAuthorizationTest, ServicesThatAreSwitchedOffAreDisabled) {
  geoclue.errors["Start"] = {accessDenied, "Geolocation disabled for UID 1000"};
  makeManager();
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  EXPECT_EQ(delegate->events, Events{denied});
  EXPECT_FALSE(service->locationServicesEnabled());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::denied);
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
}

TEST_F(LocationAuthorizationTest, ServicesThatAreSwitchedOnAgainAreFound) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  geoclue.errors["Start"] = {accessDenied, "Geolocation disabled for UID 1000"};
  makeManager();
  ASSERT_TRUE(until([&] { return geoclue.calls["Start"] > 2; }));
  EXPECT_EQ(delegate->events, Events{denied}) << "nothing had changed";
  geoclue.errors.clear();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 2; }));
  EXPECT_EQ(delegate->events, (Events{denied, authorized}));
  settle();
  EXPECT_TRUE(geoclue.client().active);
}

TEST_F(LocationAuthorizationTest, AHostThatWasDeniedDoesNotHaveTheUserAskedAgain) {
  times.betweenAttempts = std::chrono::milliseconds(1);
  geoclue.errors["Start"] = {accessDenied, "Agent rejected 'org.example.Host' for user '1000'."};
  makeManager();
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  manager->stopUpdatingLocation();
  settle();
  geoclue.vanish();
  settle();
  EXPECT_EQ(geoclue.calls["Start"], 1);
  EXPECT_EQ(delegate->events, Events{denied}) << "that it is not needed says nothing new";
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::denied);
}

TEST_F(LocationAuthorizationTest, ADeniedHostIsNotRefusedForEver) {
  geoclue.errors["Start"] = {accessDenied, "Agent rejected 'org.example.Host' for user '1000'."};
  makeManager();
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  geoclue.errors.clear();
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 2; }));
  EXPECT_EQ(delegate->events, (Events{denied, authorized}));
}

TEST_F(LocationAuthorizationTest, AServiceThatAppearsAnewIsAskedAgain) {
  geoclue.errors["Start"] = {accessDenied, "Agent rejected 'org.example.Host' for user '1000'."};
  makeManager();
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  geoclue.vanish();
  geoclue.errors.clear();
  geoclue.appear();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 2; }));
  EXPECT_EQ(delegate->events, (Events{denied, authorized}));
}

TEST_F(LocationAuthorizationTest, WithoutAnAgentItStaysUndeterminedUntilThereIsOne) {
  for (const char *const method : {"CreateClient", "Start"}) {
    SCOPED_TRACE(method);
    times.forAnswer = std::chrono::milliseconds(1);
    geoclue.silent[method] = true;
    delegate->events.clear();
    makeManager();
    ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
    settle();
    EXPECT_TRUE(delegate->events.empty()) << "there is nothing to tell";
    EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::notDetermined);
    geoclue.silent.clear();
    geoclue.answerWaiting();
    ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
    EXPECT_EQ(delegate->events, Events{authorized});
    manager.reset();
    ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  }
}

TEST_F(LocationAuthorizationTest, OnceItIsDeterminedNobodyIsOutOfPatience) {
  times.forAnswer = std::chrono::milliseconds(100);
  makeUpdatingManager();
  bool later = false;  // than the other timer, which began earlier
  OneShotTimer timer(g_main_context_default());
  timer.schedule(2 * times.forAnswer, [&later] { later = true; });
  ASSERT_TRUE(until([&later] { return later; }));
  EXPECT_EQ(delegate->events, Events{authorized});
  EXPECT_TRUE(permitted());
}

TEST_F(LocationAuthorizationTest, IsNoLongerDeterminedWhenTheAgentHasGone) {
  times.forAnswer = std::chrono::milliseconds(20);
  makeUpdatingManager();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  geoclue.silent["CreateClient"] = true;
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 2; }));
  EXPECT_EQ(delegate->events, (Events{authorized, notDetermined}));
  EXPECT_FALSE(permitted());
  geoclue.silent.clear();
  geoclue.answerWaiting();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 3; }));
  EXPECT_EQ(delegate->events.back(), authorized);
  EXPECT_EQ(geoclue.calls["CreateClient"], 2) << "asked twice";
}

TEST_F(LocationAuthorizationTest, WithdrawnWhileUpdatesWereStoppedItIsNoticedAtTheNextStart) {
  makeUpdatingManager();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  geoclue.errors["Start"] = {accessDenied, "'org.example.Host' disallowed by configuration for UID 1000"};
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return delegate->events.size() == 2; }));
  EXPECT_EQ(delegate->events, (Events{authorized, denied}));
}

TEST_F(LocationAuthorizationTest, EveryManagersDelegateIsTold) {
  makeUpdatingManager();
  const auto other = std::make_shared<RecordingDelegate>();
  const auto otherManager = service->makeLocationManager();
  otherManager->setDelegate(other);
  ASSERT_TRUE(until([&] { return !other->events.empty(); }));
  EXPECT_EQ(other->events, Events{authorized});
  EXPECT_EQ(delegate->events, Events{authorized});
}

}  // namespace
}  // namespace kx
