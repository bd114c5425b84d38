#include <atomic>
#include <limits>
#include <stdexcept>

#include "tests/platform/linux/location/LocationTest.h"

namespace kx {
namespace {

/// The positions that GeoClue finds, and when.
class LocationUpdatesTest : public LocationTest {
 protected:
  std::size_t count(const std::string &event) const {
    return static_cast<std::size_t>(std::count(delegate->events.begin(), delegate->events.end(), event));
  }
  bool untilLatitude(double latitude) {
    return until([&] { return delegate->position.coordinate.latitude == latitude; });
  }
};

TEST_F(LocationUpdatesTest, AsksForWhatTheHostNeeds) {
  makeUpdatingManager();
  EXPECT_EQ(geoclue.client().desktopId, application);
  EXPECT_EQ(geoclue.client().distanceThreshold, 10U);
  EXPECT_EQ(geoclue.client().accuracyLevel, 8U);
}

TEST_F(LocationUpdatesTest, AContextThatTheHostHasMadeItsThreadsDefaultIsNoObstacle) {
  const ForeignContext context;
  makeUpdatingManager();
  geoclue.moveTo(52.52, 13.405);
  ASSERT_TRUE(until([this] { return delegate->events == Events{authorized, "position"}; }));
  geoclue.setActive(false);
  ASSERT_TRUE(until([this] { return delegate->events.back() == "pause"; }));
}

TEST_F(LocationUpdatesTest, AChangedDistanceFilterReachesTheService) {
  makeUpdatingManager();
  manager->setDistanceFilter(250);
  EXPECT_TRUE(until([&] { return geoclue.client().distanceThreshold == 250; }));
}

TEST_F(LocationUpdatesTest, ReportsPositionsInOrder) {
  makeUpdatingManager();
  geoclue.moveTo(52.5, 13.4, 4.5, 34);
  ASSERT_TRUE(untilLatitude(52.5));
  EXPECT_EQ(delegate->position.coordinate.longitude, 13.4);
  EXPECT_EQ(delegate->position.horizontalAccuracy, 4.5);
  EXPECT_EQ(delegate->position.altitude, 34);
  EXPECT_EQ(delegate->position.verticalAccuracy, -1);
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilLatitude(52.6));
  EXPECT_EQ(delegate->events, (Events{authorized, "position", "position"}));
  ASSERT_TRUE(manager->location());
  EXPECT_EQ(manager->location()->coordinate.latitude, 52.6);
}

TEST_F(LocationUpdatesTest, APositionComesAfterTheAuthorizationItNeeds) {
  geoclue.silent["Start"] = true;
  makeManager();
  ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
  geoclue.moveTo(52.5, 13.4);
  settle();
  EXPECT_TRUE(delegate->events.empty());
  geoclue.answerWaiting();
  ASSERT_TRUE(untilLatitude(52.5));
  EXPECT_EQ(delegate->events, (Events{authorized, "position"}));
}

TEST_F(LocationUpdatesTest, IsToldOnTheMainThreadAndNeverFromWithinACall) {
  makeManager();
  std::thread([&] {
    manager->setDelegate(delegate);
    manager->startUpdatingLocation();
  }).join();
  manager->startUpdatingLocation();
  EXPECT_TRUE(delegate->events.empty());
  ASSERT_TRUE(until([&] { return !delegate->events.empty(); }));
  ASSERT_TRUE(until([&] { return !geoclue.clients.empty(); }));
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  EXPECT_THAT(delegate->threads, testing::Each(std::this_thread::get_id()));
}

TEST_F(LocationUpdatesTest, NothingRunsAtTheServiceWhileUpdatesAreStopped) {
  makeUpdatingManager();
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  ASSERT_TRUE(manager->location()) << "the last position stays known";
  EXPECT_EQ(manager->location()->coordinate.latitude, 52.5);
  EXPECT_TRUE(permitted());

  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return !geoclue.clients.empty() && geoclue.client().active; }));
  geoclue.moveTo(52.7, 13.4);
  ASSERT_TRUE(untilLatitude(52.7));
  EXPECT_EQ(delegate->events, (Events{authorized, "position", "position"}));
}

TEST_F(LocationUpdatesTest, APositionThatIsOnItsWayWhenUpdatesAreStoppedIsNotReported) {
  makeUpdatingManager();
  geoclue.silent["GetAll"] = true;
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
  manager->stopUpdatingLocation();
  geoclue.answerWaiting();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  settle();
  EXPECT_EQ(delegate->events, Events{authorized});
  EXPECT_EQ(manager->location(), std::nullopt);
}

TEST_F(LocationUpdatesTest, AClientThatIsNoLongerNeededWhenItHasBeenCreatedIsDeleted) {
  makeUpdatingManager();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  geoclue.silent["CreateClient"] = true;
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
  manager->stopUpdatingLocation();
  settle();
  geoclue.answerWaiting();
  ASSERT_TRUE(until([&] { return geoclue.calls["DeleteClient"] == 2; }));
  EXPECT_TRUE(geoclue.clients.empty());
}

TEST_F(LocationUpdatesTest, NonsenseIsIgnored) {
  makeUpdatingManager();
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  const auto untilFetched = [this](int fetches) {
    return until([=] { return geoclue.calls["GetAll"] == fetches; });
  };
  geoclue.moveTo(std::numeric_limits<double>::quiet_NaN(), 13.4);
  ASSERT_TRUE(untilFetched(2));
  geoclue.moveTo(91, 13.4);
  ASSERT_TRUE(untilFetched(3));
  geoclue.moveTo(g_variant_new_parsed("{'Latitude': <'52.6'>, 'Longitude': <13.4>, 'Accuracy': <5.0>}"));
  ASSERT_TRUE(untilFetched(4));
  geoclue.sendLocationUpdated(g_variant_new("(ss)", "/", "52.6"));
  geoclue.sendLocationUpdated(g_variant_new("(oo)", "/", "/"));
  geoclue.sendLocationUpdated(g_variant_new("(oo)", "/", "/there/is/none"));
  geoclue.sendPropertiesChanged(
      g_variant_new_parsed("('org.freedesktop.GeoClue2.Client', {'Active': <'false'>}, @as [])"));
  geoclue.sendPropertiesChanged(g_variant_new_parsed("('org.freedesktop.GeoClue2.Client', 'Active')"));
  settle();
  EXPECT_EQ(delegate->events, (Events{authorized, "position"}));
  geoclue.answer = [](const std::string &method) {
    return method == "GetAll" ? g_variant_new("(s)", "52.6") : nullptr;
  };
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilFetched(5));
  geoclue.answer = [](const std::string &) { return nullptr; };
  geoclue.moveTo(52.7, 13.4);
  ASSERT_TRUE(untilLatitude(52.7)) << "it came through all that";
  EXPECT_EQ(delegate->events, (Events{authorized, "position", "position"}));
}

TEST_F(LocationUpdatesTest, OfAFloodTheLastOneWins) {
  times.betweenPositions = std::chrono::milliseconds(500);
  makeUpdatingManager();
  constexpr int flood = 1000;
  for (int i = 1; i <= flood; ++i) geoclue.moveTo(52 + i / 10000.0, 13.4);
  ASSERT_TRUE(untilLatitude(52 + flood / 10000.0));
  // The first one, unless it was gone already, and the last one; a few more if the machine was slow.
  EXPECT_LT(count("position"), 100U);
  EXPECT_LT(geoclue.calls["GetAll"], 100);
}

TEST_F(LocationUpdatesTest, OnePositionIsFetchedAtATimeAndThenTheNewest) {
  makeUpdatingManager();
  geoclue.silent["GetAll"] = true;
  for (const double latitude : {52.1, 52.2, 52.3}) geoclue.moveTo(latitude, 13.4);
  ASSERT_TRUE(until([&] { return geoclue.waiting() > 0; }));
  settle();
  EXPECT_EQ(geoclue.waiting(), 1U);
  geoclue.silent.clear();
  geoclue.answerWaiting();
  ASSERT_TRUE(untilLatitude(52.3));
  EXPECT_LE(count("position"), 2U);
}

TEST_F(LocationUpdatesTest, APositionOfNoObjectTakesNoOthersPlace) {
  makeUpdatingManager();
  geoclue.silent["GetAll"] = true;
  geoclue.moveTo(52.1, 13.4);
  ASSERT_TRUE(until([&] { return geoclue.waiting() > 0; }));
  geoclue.moveTo(52.2, 13.4);
  geoclue.sendLocationUpdated(g_variant_new("(oo)", "/", "/"));
  settle();
  geoclue.silent.clear();
  geoclue.answerWaiting();
  EXPECT_TRUE(untilLatitude(52.2));
}

TEST_F(LocationUpdatesTest, PositionsThatComeTooFastWait) {
  times.betweenPositions = std::chrono::milliseconds(200);
  makeUpdatingManager();
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  const auto before = std::chrono::steady_clock::now();
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilLatitude(52.6));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(150));
}

TEST_F(LocationUpdatesTest, PausedUpdatesResume) {
  makeUpdatingManager();
  geoclue.setActive(false);
  ASSERT_TRUE(until([&] { return count("pause") == 1; }));
  settle();
  EXPECT_TRUE(permitted());
  EXPECT_EQ(geoclue.clients.size(), 1U) << "nobody would tell of the resumption";
  geoclue.setActive(true);
  ASSERT_TRUE(until([&] { return count("resume") == 1; }));
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  EXPECT_EQ(delegate->events, (Events{authorized, "pause", "resume", "position"}));
  EXPECT_EQ(geoclue.calls["Start"], 1);
}

TEST_F(LocationUpdatesTest, StoppedAfterThePauseTheyDoNotResume) {
  makeUpdatingManager();
  geoclue.setActive(false);
  ASSERT_TRUE(until([&] { return count("pause") == 1; }));
  settle();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
}

TEST_F(LocationUpdatesTest, ResumedUpdatesThatNobodyWantsEnd) {
  makeUpdatingManager();
  delegate->react = [](LocationManager &told, const std::string &event) {
    if (event == "pause") told.stopUpdatingLocation();
  };
  geoclue.setActive(false);
  ASSERT_TRUE(until([&] { return count("pause") == 1; }));
  geoclue.setActive(true);
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  EXPECT_EQ(count("resume"), 1U);
}

TEST_F(LocationUpdatesTest, WhatThePropertySaysAgainIsNoNews) {
  makeUpdatingManager();
  geoclue.setActive(true);
  geoclue.setActive(false);
  geoclue.setActive(false);
  geoclue.setActive(true);
  geoclue.setActive(true);
  ASSERT_TRUE(until([&] { return count("resume") == 1; }));
  settle();
  EXPECT_EQ(delegate->events, (Events{authorized, "pause", "resume"}));
}

TEST_F(LocationUpdatesTest, TheDelegateIsNotKeptAlive) {
  makeUpdatingManager();
  auto other = std::make_shared<RecordingDelegate>();
  const std::weak_ptr<RecordingDelegate> weak = other;
  manager->setDelegate(other);
  settle();
  other.reset();
  EXPECT_TRUE(weak.expired());
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(until([&] { return manager->location().has_value(); }));
  EXPECT_EQ(delegate->events, Events{authorized}) << "it was another's place";
}

TEST_F(LocationUpdatesTest, ADelegateThatThrowsStopsNothing) {
  makeUpdatingManager();
  delegate->react = [](LocationManager &, const std::string &) {
    throw std::runtime_error("by the delegate");
  };
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilLatitude(52.5));
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilLatitude(52.6));
}

TEST_F(LocationUpdatesTest, AManagerThatIsReleasedLeavesNothingAtTheService) {
  makeUpdatingManager();
  std::thread([&] { manager.reset(); }).join();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
}

TEST_F(LocationUpdatesTest, AManagerMayBeReleasedByItsDelegate) {
  makeUpdatingManager();
  delegate->react = [this](LocationManager &, const std::string &) { manager.reset(); };
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  EXPECT_EQ(manager, nullptr);
}

TEST_F(LocationUpdatesTest, AnyThreadMayUseAManager) {
  makeUpdatingManager();
  std::atomic<int> running = 3;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        manager->startUpdatingLocation();
        manager->setDistanceFilter(round);
        manager->setDelegate(delegate);
        manager->location();
        service->authorizationStatus();
        manager->stopUpdatingLocation();
      }
      --running;
    });
  }
  EXPECT_TRUE(until([&] { return running == 0; }));
  for (std::thread &thread : threads) thread.join();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return !geoclue.clients.empty() && geoclue.client().active; }));
}

}  // namespace
}  // namespace kx
