#include <atomic>
#include <cstdlib>
#include <mutex>

#include "platform/linux/bus/Portal.h"
#include "platform/linux/bus/SessionBus.h"
#include "tests/platform/linux/location/LocationTest.h"
#include "tests/support/FakeService.h"

namespace kx {
namespace {

constexpr const char *locationInterface = "org.freedesktop.portal.Location";
constexpr const char *sessionInterface = "org.freedesktop.portal.Session";
constexpr const char *requestInterface = "org.freedesktop.portal.Request";
constexpr const char *session = "/org/freedesktop/portal/desktop/session/1_2/kx";

/// In a sandbox, on whose session bus the portal is what the test makes of it.
class PortalLocationTest : public testing::Test {
 protected:
  using Events = std::vector<std::string>;

  PortalLocationTest() {
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    portal.answer("CreateSession", [this](GDBusMessage *call) {
      note(&options, call, 0);
      return g_variant_new("(o)", session);
    });
    portal.answer("Start", [this](GDBusMessage *call) {
      GVariant *const started = g_variant_get_child_value(g_dbus_message_get_body(call), 0);
      EXPECT_STREQ(g_variant_get_string(started, nullptr), session);
      g_variant_unref(started);
      note(&startOptions, call, 2);
      std::string sender = g_dbus_message_get_sender(call);
      for (char &character : sender) character = character == '.' ? '_' : character;
      const std::string path = std::string(portal::path) + "/request/" + sender.substr(1) + "/" + token();
      const std::lock_guard<std::mutex> lock(mutex);
      request = path;
      return g_variant_new("(o)", path.c_str());
    });
    portal.appear();
  }

  void makeManager() {
    service =
        std::make_unique<LinuxLocationService>(loop, std::make_shared<SessionBus>(loop, 1U),
                                               "org.example.Host", nullptr, times, LocationBackend::portal);
    delegate->react = [](LocationManager &told, const std::string &event) {
      if (event == authorized) told.startUpdatingLocation();
    };
    manager = service->makeLocationManager();
    manager->setDistanceFilter(10);
    manager->setDelegate(delegate);
  }
  bool until(const std::function<bool()> &condition) const {
    // What is waited for may be noticed by GLib's thread, which wakes nobody here.
    const guint ticks = g_timeout_add(
        5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    const bool holds = mainThread.runUntil(condition);
    g_source_remove(ticks);
    return holds;
  }
  bool isTold(std::size_t count) {
    return until([this, count] { return delegate->events.size() >= count; });
  }
  bool isAsked() {
    return until([this] {
      const std::lock_guard<std::mutex> lock(mutex);
      return !request.empty();
    });
  }
  /// The user has answered; or the portal for the user.
  void respond(guint32 response) {
    const std::lock_guard<std::mutex> lock(mutex);
    portal.emit(request, requestInterface, "Response",
                "(uint32 " + std::to_string(response) + ", @a{sv} {})");
  }
  void makeUpdatingManager() {
    makeManager();
    ASSERT_TRUE(isAsked());
    respond(0);
    ASSERT_TRUE(isTold(1));
    ASSERT_EQ(delegate->events, Events{authorized});
  }
  void moveTo(double latitude, const char *inSession = session) {
    portal.emit(portal::path, locationInterface, "LocationUpdated",
                g_variant_new("(o@a{sv})", inSession, FakeGeoClue::properties(latitude, 13.4, 5, 34)));
  }
  std::string token() {
    const std::lock_guard<std::mutex> lock(mutex);
    const char *text = "";
    g_variant_lookup(startOptions.get(), "handle_token", "&s", &text);
    return text;
  }

  PrivateBus bus;
  FakeService portal{bus, portal::serviceName};
  MainThread mainThread;
  GeoClueTimes times{std::chrono::hours(1), std::chrono::hours(1), std::chrono::milliseconds(0)};
  const std::shared_ptr<LinuxRunLoop> loop = LinuxRunLoop::of(g_main_context_default());
  std::unique_ptr<LinuxLocationService> service;
  const std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<LocationManager> manager;

  std::mutex mutex;  // what follows is noted by GLib's thread
  std::shared_ptr<GVariant> options;
  std::shared_ptr<GVariant> startOptions;
  std::string request;

 private:
  void note(std::shared_ptr<GVariant> *to, GDBusMessage *call, gsize child) {
    const std::lock_guard<std::mutex> lock(mutex);
    to->reset(g_variant_get_child_value(g_dbus_message_get_body(call), child), &g_variant_unref);
  }
};

TEST_F(PortalLocationTest, AsksForWhatTheHostNeeds) {
  makeUpdatingManager();
  EXPECT_TRUE(service->locationServicesEnabled());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::authorizedWhenInUse);
  guint32 threshold = 0;
  guint32 accuracy = 0;
  const char *sessionToken = "";
  ASSERT_TRUE(g_variant_lookup(options.get(), "distance-threshold", "u", &threshold));
  ASSERT_TRUE(g_variant_lookup(options.get(), "accuracy", "u", &accuracy));
  ASSERT_TRUE(g_variant_lookup(options.get(), "session_handle_token", "&s", &sessionToken));
  EXPECT_EQ(threshold, 10U);
  EXPECT_EQ(accuracy, 5U) << "not as exactly as it can be";
  EXPECT_STRNE(sessionToken, "");
  EXPECT_NE(sessionToken, token()) << "one name for two things";
}

TEST_F(PortalLocationTest, ReportsPositionsInOrder) {
  makeUpdatingManager();
  moveTo(52.5);
  ASSERT_TRUE(isTold(2));
  EXPECT_EQ(delegate->position.coordinate.latitude, 52.5);
  EXPECT_EQ(delegate->position.altitude, 34);
  moveTo(52.6);
  ASSERT_TRUE(isTold(3));
  EXPECT_EQ(delegate->position.coordinate.latitude, 52.6);
}

TEST_F(PortalLocationTest, APositionComesAfterTheAuthorizationItNeeds) {
  makeManager();
  manager->startUpdatingLocation();
  ASSERT_TRUE(isAsked());
  moveTo(52.5);
  moveTo(91);  // is none, and takes no other's place
  portal.flush();
  respond(0);
  ASSERT_TRUE(isTold(2));
  EXPECT_EQ(delegate->events, (Events{authorized, "position"}));
  EXPECT_EQ(delegate->position.coordinate.latitude, 52.5);
}

TEST_F(PortalLocationTest, OfPositionsThatComeTooFastTheLastOneWins) {
  times.betweenPositions = std::chrono::milliseconds(300);
  makeUpdatingManager();
  moveTo(50);
  ASSERT_TRUE(isTold(2));
  const gint64 first = g_get_monotonic_time();
  for (int i = 1; i <= 20; ++i) moveTo(50 + i);
  ASSERT_TRUE(until([this] { return delegate->position.coordinate.latitude == 70; }));
  const gint64 since = g_get_monotonic_time() - first;
  EXPECT_GE(since, 290'000);
  EXPECT_LE(delegate->events.size(), 2 + static_cast<std::size_t>(since / 290'000));
}

TEST_F(PortalLocationTest, OtherSessionsAndNonsenseAreNoPositions) {
  makeUpdatingManager();
  moveTo(50, "/org/freedesktop/portal/desktop/session/1_2/other");
  portal.emit(portal::path, locationInterface, "LocationUpdated", "('here',)");
  moveTo(91);
  moveTo(52.5);
  ASSERT_TRUE(isTold(2));
  EXPECT_EQ(delegate->position.coordinate.latitude, 52.5);
  EXPECT_EQ(delegate->events, (Events{authorized, "position"}));
}

TEST_F(PortalLocationTest, AUserWhoSaysNoIsNotAskedAgain) {
  times.betweenAttempts = std::chrono::milliseconds(1);
  makeManager();
  ASSERT_TRUE(isAsked());
  respond(1);
  ASSERT_TRUE(isTold(1));
  EXPECT_EQ(delegate->events, Events{denied});
  EXPECT_TRUE(service->locationServicesEnabled());
  ASSERT_TRUE(until([this] { return portal.calls("Close") == 1; }));
  bool later = false;
  OneShotTimer timer(loop->context());
  timer.schedule(std::chrono::milliseconds(100), [&later] { later = true; });
  ASSERT_TRUE(until([&later] { return later; }));
  EXPECT_EQ(portal.calls("CreateSession"), 1);
}

TEST_F(PortalLocationTest, ServicesThatTheAdministratorHasSwitchedOffAreDisabled) {
  portal.refuse("Start", "org.freedesktop.portal.Error.NotAllowed", "Location services disabled");
  makeManager();
  ASSERT_TRUE(isTold(1));
  EXPECT_EQ(delegate->events, Events{denied});
  EXPECT_FALSE(service->locationServicesEnabled());
}

TEST_F(PortalLocationTest, APortalThatFailsIsAskedAgainAfterAWhile) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  portal.refuse("Start", "org.freedesktop.portal.Error.Failed", "no GeoClue");
  makeManager();
  ASSERT_TRUE(until([this] { return portal.calls("Start") >= 2; }));
  EXPECT_TRUE(delegate->events.empty()) << "there is nothing to tell";
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::notDetermined);
}

TEST_F(PortalLocationTest, AnAnswerThatIsNeitherYesNorNoIsAFailure) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  makeManager();
  ASSERT_TRUE(isAsked());
  respond(2);
  ASSERT_TRUE(until([this] { return portal.calls("Start") >= 2; }));
  EXPECT_TRUE(delegate->events.empty());
}

TEST_F(PortalLocationTest, ASessionThatThePortalClosesIsMadeAnewAfterAWhile) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  makeUpdatingManager();
  portal.emit(session, sessionInterface, "Closed", "(@a{sv} {},)");
  ASSERT_TRUE(isTold(2));
  EXPECT_EQ(delegate->events, (Events{authorized, notDetermined}));
  ASSERT_TRUE(until([this] { return portal.calls("Start") == 2; }));
  ASSERT_TRUE(until([this] {
    respond(0);
    return delegate->events.size() == 3;
  }));
  EXPECT_EQ(delegate->events.back(), authorized);
}

TEST_F(PortalLocationTest, NothingRunsAtThePortalWhileUpdatesAreStopped) {
  makeUpdatingManager();
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([this] { return portal.calls("Close") == 1; }));
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([this] { return portal.calls("CreateSession") == 2; }));
}

TEST_F(PortalLocationTest, ASessionThatIsNoLongerNeededWhenItHasBeenCreatedIsClosed) {
  std::atomic<bool> isFree = false;
  portal.answer("CreateSession", [&isFree](GDBusMessage *) {
    while (!isFree) g_usleep(1000);
    return g_variant_new("(o)", session);
  });
  makeManager();
  ASSERT_TRUE(until([this] { return portal.calls("CreateSession") == 1; }));
  manager.reset();
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  isFree = true;
  EXPECT_TRUE(until([this] { return portal.calls("Close") == 1; }));
  EXPECT_EQ(portal.calls("Start"), 0);
}

TEST_F(PortalLocationTest, AUserIsNotLeftWithAQuestionThatNobodyAsksAnyMore) {
  makeManager();
  ASSERT_TRUE(isAsked());
  manager.reset();
  EXPECT_TRUE(until([this] { return portal.calls("Close") == 2; })) << "the request and the session";
}

TEST_F(PortalLocationTest, APortalThatIsRestartedIsAskedAgain) {
  times.betweenAttempts = std::chrono::milliseconds(20);
  makeUpdatingManager();
  portal.vanish();
  ASSERT_TRUE(isTold(2));
  EXPECT_EQ(delegate->events.back(), notDetermined);
  portal.appear();
  ASSERT_TRUE(until([this] { return portal.calls("Start") == 2; }));
  ASSERT_TRUE(until([this] {
    respond(0);
    return delegate->events.size() == 3;
  }));
  EXPECT_EQ(delegate->events.back(), authorized);
}

}  // namespace
}  // namespace kx
