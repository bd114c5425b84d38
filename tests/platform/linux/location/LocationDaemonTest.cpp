#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/location/LinuxLocationService.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/PrivateBus.h"

namespace kx {
namespace {

constexpr const char *daemonFile = "/usr/libexec/geoclue";
constexpr const char *application = "org.example.Host";
constexpr double altitude = 57;

double metresBetween(const LocationCoordinate &one, const LocationCoordinate &other) {
  constexpr double metresInDegree = 111195;
  const double north = (one.latitude - other.latitude) * metresInDegree;
  const double east =
      (one.longitude - other.longitude) * metresInDegree * std::cos(one.latitude * M_PI / 180);
  return std::hypot(north, east);
}

class Traveller : public LocationManagerDelegate {
 public:
  void locationManager(LocationManager &manager, AuthorizationStatus status) override {
    statuses.push_back(status);
    if (status > AuthorizationStatus::denied) {
      manager.startUpdatingLocation();
    } else {
      manager.stopUpdatingLocation();
    }
  }
  void locationManager(LocationManager &, const std::vector<Location> &locations) override {
    positions.insert(positions.end(), locations.begin(), locations.end());
  }
  void locationManagerDidPauseLocationUpdates(LocationManager &manager) override {
    ++pauses;
    manager.stopUpdatingLocation();
  }
  void locationManagerDidResumeLocationUpdates(LocationManager &manager) override {
    ++resumptions;
    manager.startUpdatingLocation();
  }

  std::vector<AuthorizationStatus> statuses;
  std::vector<Location> positions;
  int pauses = 0;
  int resumptions = 0;
};

/// The GeoClue daemon, with a receiver that drives to the west at 20 m/s, in a network and with a
/// configuration of its own.
class LocationDaemonTest : public testing::Test {
 protected:
  void SetUp() override {
    if (access(daemonFile, X_OK) != 0) GTEST_SKIP() << daemonFile << " is missing";
    ChildProcess trial(inNamespaces({"/bin/true"}));
    if (trial.exitCode() != 0) GTEST_SKIP() << "this user may make no namespaces: " << trial.errors();
    const std::string socket = directory.path() + "/nmea";
    drive = std::make_unique<ChildProcess>(
        std::vector<std::string>{SIMULATED_DRIVE, "--speed", "20", "--interval", "0.2", "--altitude",
                                 std::to_string(altitude), socket, "-33.5,-70.5", "-33.5,-71.5"});
    ASSERT_TRUE(eventually([&] { return drive->output().find("listening") != std::string::npos; }))
        << drive->errors();
    startDaemon(socket);

    const auto loop = LinuxRunLoop::of(g_main_context_default());
    GeoClueTimes times;
    times.betweenPositions = std::chrono::milliseconds(0);
    service = std::make_unique<LinuxLocationService>(loop, std::make_shared<SystemBus>(loop), application,
                                                     nullptr, times);
    manager = service->makeLocationManager();
    manager->setDistanceFilter(10);
    manager->setDelegate(traveller);
  }

  void TearDown() override {
    if (daemon != nullptr) daemon->sendSignal(SIGTERM);  // to its guardian, which hands it on
    if (daemon != nullptr) daemon->exitCode();
  }

  void startDaemon(const std::string &socket) {
    const std::string configuration = directory.path() + "/geoclue";
    std::filesystem::create_directory(configuration);
    std::ofstream(configuration + "/geoclue.conf")
        << "[agent]\nwhitelist=kx-location-agent\n[network-nmea]\nenable=true\nnmea-socket=" << socket
        << "\n[3g]\nenable=false\n[cdma]\nenable=false\n[modem-gps]\nenable=false\n[wifi]\nenable=false\n"
           "[compass]\nenable=false\n"
        << permissions;
    daemon = std::make_unique<ChildProcess>(inNamespaces(
        {"/bin/sh", "-c", "mount --bind \"$1\" /etc/geoclue && exec timeout --kill-after=5 110 \"$2\"", "sh",
         configuration, daemonFile}));
  }

  /// A command line that runs without any network, and may mount what it likes without anybody seeing it.
  static std::vector<std::string> inNamespaces(const std::vector<std::string> &commandLine) {
    std::vector<std::string> whole{"/usr/bin/unshare", "--map-current-user", "--keep-caps", "--net",
                                   "--mount"};
    whole.insert(whole.end(), commandLine.begin(), commandLine.end());
    return whole;
  }

  void startAgent() {
    agent = std::make_unique<ChildProcess>(std::vector<std::string>{LOCATION_AGENT, "kx-location-agent"});
  }
  void tellAgent(const std::string &command) {
    agent->write(command + "\n");
    ASSERT_TRUE(until([&] {
      return agent->output().find("location services " + command) != std::string::npos;
    })) << agent->errors();
  }
  /// Looks now and then: the condition may be about another process.
  bool until(const std::function<bool()> &condition) const {
    return eventually([&] {
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
      return condition();
    });
  }
  bool untilPositions(std::size_t count) const {
    return until([=] { return traveller->positions.size() >= count; });
  }
  /// A property of the daemon's manager; null when there is no answer.
  GLibPointer<GVariant> askManager(const char *property) const {
    const GLibPointer<GVariant> result(g_dbus_connection_call_sync(
        ownConnection.get(), "org.freedesktop.GeoClue2", "/org/freedesktop/GeoClue2/Manager",
        "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.freedesktop.GeoClue2.Manager", property), G_VARIANT_TYPE("(v)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    if (result == nullptr) return nullptr;
    GVariant *value = nullptr;
    g_variant_get(result.get(), "(v)", &value);
    return GLibPointer<GVariant>(value);
  }
  /// Whether the daemon works for anybody.
  bool isInUse() const {
    const auto inUse = askManager("InUse");
    return inUse != nullptr && g_variant_get_boolean(inUse.get()) != FALSE;
  }

  std::string permissions;  ///< more of the daemon's configuration
  const TemporaryDirectory directory;
  PrivateBus bus;
  const std::shared_ptr<GDBusConnection> ownConnection = bus.connect();
  std::unique_ptr<ChildProcess> drive;
  std::unique_ptr<ChildProcess> daemon;
  std::unique_ptr<ChildProcess> agent;
  MainThread mainThread;
  std::unique_ptr<LinuxLocationService> service;
  const std::shared_ptr<Traveller> traveller = std::make_shared<Traveller>();
  std::shared_ptr<LocationManager> manager;
};

TEST_F(LocationDaemonTest, ReportsADrive) {
  // Nobody answers for the user yet.
  ASSERT_TRUE(until([&] { return askManager("AvailableAccuracyLevel") != nullptr; })) << daemon->errors();
  const auto aWhileLater = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  ASSERT_TRUE(until([&] { return std::chrono::steady_clock::now() > aWhileLater; }));
  EXPECT_TRUE(traveller->statuses.empty());
  EXPECT_EQ(service->authorizationStatus(), AuthorizationStatus::notDetermined);
  startAgent();
  ASSERT_TRUE(untilPositions(5)) << daemon->errors() << agent->errors() << drive->output();
  EXPECT_EQ(traveller->statuses, std::vector{AuthorizationStatus::authorizedWhenInUse});
  EXPECT_TRUE(service->locationServicesEnabled());

  const auto &positions = traveller->positions;
  for (const Location &position : positions) {
    EXPECT_NEAR(position.coordinate.latitude, -33.5, 1e-5);
    EXPECT_LE(position.coordinate.longitude, -70.5);
    EXPECT_GT(position.coordinate.longitude, -71.5);
    EXPECT_GE(position.horizontalAccuracy, 0);
    EXPECT_EQ(position.verticalAccuracy, -1);
  }
  EXPECT_TRUE(std::any_of(positions.begin(), positions.end(),
                          [](const Location &position) { return position.altitude == altitude; }));
  for (std::size_t i = 1; i < positions.size(); ++i) {
    EXPECT_LT(positions[i].coordinate.longitude, positions[i - 1].coordinate.longitude) << i;
    // The daemon's earth and this test's are not quite the same.
    EXPECT_GT(metresBetween(positions[i].coordinate, positions[i - 1].coordinate), 9.9) << i;
  }

  EXPECT_TRUE(isInUse());
  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return !isInUse(); }));
  const std::size_t before = traveller->positions.size();
  manager->startUpdatingLocation();
  ASSERT_TRUE(untilPositions(before + 2));
}

TEST_F(LocationDaemonTest, FollowsTheUsersSwitch) {
  startAgent();
  ASSERT_TRUE(untilPositions(1)) << daemon->errors() << agent->errors();
  tellAgent("off");
  ASSERT_TRUE(until([&] { return traveller->pauses == 1; })) << daemon->errors();
  tellAgent("on");
  ASSERT_TRUE(until([&] { return traveller->resumptions == 1; })) << daemon->errors();
  const std::size_t before = traveller->positions.size();
  ASSERT_TRUE(untilPositions(before + 2));

  manager->stopUpdatingLocation();
  ASSERT_TRUE(until([&] { return !isInUse(); }));
  agent->write("off\n");
  manager->startUpdatingLocation();
  ASSERT_TRUE(until([&] { return !service->locationServicesEnabled(); }));
  EXPECT_EQ(traveller->statuses,
            (std::vector{AuthorizationStatus::authorizedWhenInUse, AuthorizationStatus::denied}));
}

class LocationDaemonDenialTest : public LocationDaemonTest {
 protected:
  LocationDaemonDenialTest() {
    permissions = std::string("[") + application + "]\nallowed=false\nsystem=false\nusers=\n";
  }
};

TEST_F(LocationDaemonDenialTest, SaysThatTheHostIsDenied) {
  startAgent();
  ASSERT_TRUE(until([&] { return !traveller->statuses.empty(); })) << daemon->errors() << agent->errors();
  EXPECT_EQ(traveller->statuses, std::vector{AuthorizationStatus::denied});
  EXPECT_TRUE(service->locationServicesEnabled());
  EXPECT_TRUE(traveller->positions.empty());
}

}  // namespace
}  // namespace kx
