#include <filesystem>
#include <fstream>

#include "platform/linux/threads/OneShotTimer.h"
#include "tests/platform/linux/location/LocationTest.h"

namespace kx {
namespace {

/// A GeoClue, or a bus, that is not there or does not what it should.
class LocationLossTest : public LocationTest {
 protected:
  bool untilTold(std::size_t events) {
    return until([=] { return delegate->events.size() == events; });
  }
  bool untilActive() {
    return until([&] { return !geoclue.clients.empty() && geoclue.client().active; });
  }
  /// Of a manager with updates: they pause, the service goes, and comes back.
  void restartWhilePaused() {
    geoclue.setActive(false);
    ASSERT_TRUE(untilTold(2));
    geoclue.vanish();
    ASSERT_TRUE(untilTold(3));
    geoclue.appear();
    ASSERT_TRUE(untilTold(4));
  }
};

TEST_F(LocationLossTest, WithoutAServiceNothingIsDetermined) {
  geoclue.vanish();
  makeManager();
  manager->startUpdatingLocation();
  settle();
  EXPECT_TRUE(delegate->events.empty());
  EXPECT_FALSE(permitted());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::notDetermined);
  EXPECT_EQ(manager->location(), std::nullopt);
}

TEST_F(LocationLossTest, AServiceThatAppearsLaterIsUsed) {
  geoclue.vanish();
  makeManager();
  settle();
  geoclue.appear();
  ASSERT_TRUE(untilTold(1));
  EXPECT_EQ(delegate->events, Events{authorized});
  ASSERT_TRUE(untilActive());
}

TEST_F(LocationLossTest, UpdatesResumeWithAServiceThatReappears) {
  makeUpdatingManager();
  geoclue.moveTo(52.5, 13.4);
  ASSERT_TRUE(untilTold(2));
  geoclue.vanish();
  ASSERT_TRUE(untilTold(3));
  EXPECT_FALSE(permitted());
  geoclue.appear();
  ASSERT_TRUE(untilTold(4));
  ASSERT_TRUE(untilActive());
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilTold(5));
  EXPECT_EQ(delegate->events, (Events{authorized, "position", notDetermined, authorized, "position"}));
}

TEST_F(LocationLossTest, UpdatesResumeThoughTheDelegateDidNothing) {
  makeUpdatingManager();
  delegate->react = nullptr;
  geoclue.vanish();
  ASSERT_TRUE(untilTold(2));
  geoclue.appear();
  ASSERT_TRUE(untilActive());
  geoclue.moveTo(52.6, 13.4);
  ASSERT_TRUE(untilTold(4));
  EXPECT_EQ(delegate->events, (Events{authorized, notDetermined, authorized, "position"}));
}

TEST_F(LocationLossTest, AServiceThatLeavesBecauseNobodyNeedsItChangesNothing) {
  makeUpdatingManager();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.clients.empty(); }));
  geoclue.vanish();
  settle();
  EXPECT_EQ(delegate->events, Events{authorized});
  EXPECT_TRUE(permitted());
  geoclue.appear();
  settle();
  EXPECT_TRUE(geoclue.clients.empty());
}

TEST_F(LocationLossTest, AServiceThatMakesNoClientIsNotAskedAgainAtOnce) {
  geoclue.errors["CreateClient"] = {"org.example.Broken", "not today"};
  makeManager();
  ASSERT_TRUE(until([&] { return geoclue.calls["CreateClient"] == 1; }));
  OneShotTimer end(g_main_context_default());
  bool ended = false;
  end.schedule(std::chrono::milliseconds(300), [&ended] { ended = true; });
  ASSERT_TRUE(until([&ended] { return ended; }));
  EXPECT_EQ(geoclue.calls["CreateClient"], 1);
}

TEST_F(LocationLossTest, AServiceThatFailedIsAskedAgainAfterAWhile) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  geoclue.errors["CreateClient"] = {"org.example.Broken", "not today"};
  makeManager();
  ASSERT_TRUE(until([&] { return geoclue.calls["CreateClient"] > 2; }));
  EXPECT_TRUE(delegate->events.empty());
  geoclue.errors.clear();
  ASSERT_TRUE(untilTold(1));
  EXPECT_EQ(delegate->events, Events{authorized});
}

/// On a bus that knows how to start GeoClue: a program that only leaves a mark, and fails.
class LocationActivationTest : public LocationLossTest {
 protected:
  LocationActivationTest() {
    times.betweenAttempts = std::chrono::milliseconds(20);
    geoclue.vanish();
    bus.stop();
    std::ofstream(directory + "/org.freedesktop.GeoClue2.service")
        << "[D-BUS Service]\nName=org.freedesktop.GeoClue2\nExec=/bin/sh -c \"mkdir " << mark
        << "; exit 1\"\n";
    std::fstream configuration(directory + "/bus.conf");
    std::string text(std::istreambuf_iterator<char>(configuration), {});
    text.insert(text.find("<policy"), "<servicedir>" + directory + "</servicedir>");
    configuration.seekp(0);
    configuration << text << std::flush;
    bus.start();
    ownConnection = bus.connect();
  }

  const std::string directory =
      std::filesystem::path(bus.address().substr(bus.address().find('/'))).parent_path().string();
  const std::string mark = directory + "/started";
};

TEST_F(LocationActivationTest, TheBusStartsAServiceThatIsNeededAndAgainAfterAWhile) {
  makeManager();
  for (int start = 0; start < 2; ++start) {
    ASSERT_TRUE(eventually([&] {
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
      return std::filesystem::exists(mark);
    })) << start;
    std::filesystem::remove(mark);
  }
  EXPECT_TRUE(delegate->events.empty());
}

TEST_F(LocationActivationTest, NobodyStartsAServiceThatHasDeniedTheHost) {
  geoclue.errors["Start"] = {accessDenied, "Agent rejected 'org.example.Host' for user '1000'."};
  geoclue.appear();
  makeManager();
  ASSERT_TRUE(untilTold(1));
  geoclue.vanish();
  const auto muchLater = std::chrono::steady_clock::now() + 10 * times.betweenAttempts;
  while (std::chrono::steady_clock::now() < muchLater) settle();
  EXPECT_FALSE(std::filesystem::exists(mark));
  EXPECT_EQ(delegate->events, Events{denied});
}

TEST_F(LocationLossTest, AServiceThatVanishesWhileItIsAskedLeavesNothingDetermined) {
  for (const char *const method : {"CreateClient", "Start"}) {
    SCOPED_TRACE(method);
    geoclue.silent[method] = true;
    delegate->events.clear();
    makeManager();
    ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
    geoclue.vanish();
    geoclue.silent.clear();
    settle();
    EXPECT_TRUE(delegate->events.empty());
    geoclue.appear();
    ASSERT_TRUE(untilTold(1));
    EXPECT_EQ(delegate->events, Events{authorized});
  }
}

TEST_F(LocationLossTest, AServiceThatHangsKeepsNobody) {
  for (const char *const method : {"CreateClient", "Set", "Start", "DeleteClient"}) {
    geoclue.silent[method] = true;
  }
  makeManager();
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.waiting() == 1; }));
  manager->stopUpdatingLocation();
  manager->startUpdatingLocation();
  settle();
  EXPECT_EQ(geoclue.calls["CreateClient"], 1) << "asking again would help nobody";
  EXPECT_FALSE(permitted());
}

TEST_F(LocationLossTest, AServiceThatFailsIsNotAskedAgainAtOnce) {
  geoclue.errors["Start"] = {"org.freedesktop.DBus.Error.Failed", "not today"};
  makeManager();
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return geoclue.calls["Start"] > 0; }));
  const int before = geoclue.calls["Start"];
  settle();
  settle();
  EXPECT_EQ(geoclue.calls["Start"], before);
  EXPECT_TRUE(delegate->events.empty());
  EXPECT_TRUE(until([&] { return geoclue.clients.empty(); }));
}

TEST_F(LocationLossTest, AnswersOfTheWrongTypeAreNoService) {
  for (const char *const method : {"CreateClient", "Start"}) {
    SCOPED_TRACE(method);
    geoclue.answer = [method](const std::string &called) {
      return called == method ? g_variant_new("(is)", 1, "one") : nullptr;
    };
    geoclue.calls.clear();
    makeManager();
    ASSERT_TRUE(until([&] { return geoclue.calls[method] == 1; }));
    settle();
    EXPECT_TRUE(delegate->events.empty());
    EXPECT_FALSE(permitted());
  }
}

TEST_F(LocationLossTest, AnotherOwnerOfTheNameIsAnotherService) {
  makeUpdatingManager();
  FakeGeoClue successor(bus);  // waits in the bus's queue for the name
  geoclue.vanish();
  ASSERT_TRUE(until([&] { return !successor.clients.empty() && successor.client().active; }));
  successor.moveTo(52.5, 13.4);
  ASSERT_TRUE(until([&] { return delegate->events.back() == "position"; }));
}

TEST_F(LocationLossTest, WithoutABusNothingIsDetermined) {
  geoclue.vanish();
  bus.stop();
  makeManager();
  manager->startUpdatingLocation();
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  EXPECT_TRUE(delegate->events.empty());
  EXPECT_FALSE(permitted());
  bus.start();
  geoclue.appear();
  ASSERT_TRUE(untilTold(1));
  EXPECT_EQ(delegate->events, Events{authorized});
}

TEST_F(LocationLossTest, UpdatesResumeWithTheNextBus) {
  makeUpdatingManager();
  bus.stop();
  ASSERT_TRUE(untilTold(2));
  EXPECT_FALSE(permitted());
  geoclue.vanish();
  bus.start();
  geoclue.appear();
  ASSERT_TRUE(untilTold(3));
  ASSERT_TRUE(untilActive());
  EXPECT_EQ(delegate->events, (Events{authorized, notDetermined, authorized}));
}

TEST_F(LocationLossTest, AServiceThatVanishesWhileUpdatesArePausedEndsThePause) {
  makeUpdatingManager();
  restartWhilePaused();
  EXPECT_EQ(delegate->events, (Events{authorized, "pause", notDetermined, authorized}));
  ASSERT_TRUE(untilActive());
}

TEST_F(LocationLossTest, APauseThatItsServiceHasNotOutlivedKeepsNoOtherClient) {
  makeUpdatingManager();
  delegate->react = [](LocationManager &told, const std::string &event) {
    if (event == "pause") told.stopUpdatingLocation();
  };
  restartWhilePaused();
  EXPECT_EQ(delegate->events.back(), authorized);
  EXPECT_TRUE(until([this] { return geoclue.clients.empty(); })) << "nobody wants positions";
}

}  // namespace
}  // namespace kx
