#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/location/LinuxLocationService.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/location/FakeGeoClue.h"

namespace kx {

/// What a location manager's delegate was told, in order.
class RecordingDelegate : public LocationManagerDelegate {
 public:
  void locationManager(LocationManager &manager, AuthorizationStatus status) override {
    note(manager, "authorization " + std::to_string(static_cast<int>(status)));
  }
  void locationManager(LocationManager &manager, const std::vector<Location> &locations) override {
    position = locations.back();
    note(manager, "position");
  }
  void locationManagerDidPauseLocationUpdates(LocationManager &manager) override { note(manager, "pause"); }
  void locationManagerDidResumeLocationUpdates(LocationManager &manager) override { note(manager, "resume"); }

  std::vector<std::string> events;
  std::vector<std::thread::id> threads;
  Location position;
  /// What it does then.
  std::function<void(LocationManager &manager, const std::string &event)> react;

 private:
  void note(LocationManager &manager, const std::string &event) {
    events.push_back(event);
    threads.push_back(std::this_thread::get_id());
    if (react) react(manager, event);
  }
};

constexpr const char *denied = "authorization 2";
constexpr const char *authorized = "authorization 4";
constexpr const char *notDetermined = "authorization 0";
constexpr const char *accessDenied = "org.freedesktop.DBus.Error.AccessDenied";

/// Location services on a bus of the test's own, where GeoClue is what the test makes of it. Times are short,
/// where no test says otherwise, only in so far as nothing happens the sooner by them.
class LocationTest : public testing::Test {
 protected:
  using Events = std::vector<std::string>;
  static constexpr const char *application = "org.example.Host";

  /// Makes the service and a manager, whose delegate does as the location provider does.
  void makeManager(bool withDelegate = true) {
    service = std::make_unique<LinuxLocationService>(loop, systemBus, application, nullptr, times);
    delegate->react = [this](LocationManager &told, const std::string &event) {
      if (event == "position") return;
      if (permitted() && event != "pause") {
        told.startUpdatingLocation();
      } else {
        told.stopUpdatingLocation();
      }
    };
    manager = service->makeLocationManager();
    manager->setDistanceFilter(10);
    if (withDelegate) manager->setDelegate(delegate);
  }
  /// The same, and waits until positions are on their way.
  void makeUpdatingManager() {
    makeManager();
    ASSERT_TRUE(until([this] { return delegate->events == Events{authorized}; }));
  }

  bool permitted() const {
    return service->locationServicesEnabled() && service->authorizationStatus() > AuthorizationStatus::denied;
  }
  bool until(const std::function<bool()> &condition) const { return mainThread.runUntil(condition); }
  /// Gives what must not happen the time to happen: three rounds by way of the bus.
  void settle() {
    for (int round = 0; round < 3; ++round) {
      bool answered = false;
      g_dbus_connection_call(
          ownConnection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
          "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
          [](GObject *connection, GAsyncResult *result, gpointer flag) {
            GVariant *const value =
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr);
            if (value != nullptr) g_variant_unref(value);
            *static_cast<bool *>(flag) = true;
          },
          &answered);
      ASSERT_TRUE(until([&] { return answered; }));
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
    }
  }

  PrivateBus bus;
  std::shared_ptr<GDBusConnection> ownConnection = bus.connect();
  FakeGeoClue geoclue{bus};
  MainThread mainThread;
  GeoClueTimes times{std::chrono::hours(1), std::chrono::hours(1), std::chrono::milliseconds(0)};
  const std::shared_ptr<LinuxRunLoop> loop = LinuxRunLoop::of(g_main_context_default());
  const std::shared_ptr<SystemBus> systemBus = std::make_shared<SystemBus>(loop, 1U);
  std::unique_ptr<LinuxLocationService> service;
  const std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<LocationManager> manager;
};

}  // namespace kx
