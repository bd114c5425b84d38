#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/linux/geocoding/LinuxGeocoder.h"
#include "platform/linux/threads/LinuxDispatch.h"

namespace kx {

constexpr double january = 1768478400;  ///< 2026-01-15 12:00 UTC
constexpr double july = 1784116800;     ///< 2026-07-15 12:00 UTC

/// A wall clock that stands still.
class StandingClock : public Clock {
 public:
  double timeIntervalSince1970() override { return time; }
  std::atomic<double> time = january;
};

inline Location locationAt(double latitude, double longitude) {
  Location location;
  location.coordinate = {latitude, longitude};
  location.horizontalAccuracy = 10;
  return location;
}

/// What a geocoder finds there.
inline std::vector<Placemark> placemarksAt(Geocoder &geocoder, double latitude, double longitude) {
  const auto found = std::make_shared<std::promise<std::vector<Placemark>>>();
  geocoder.reverseGeocodeLocation(
      locationAt(latitude, longitude),
      [found](const std::vector<Placemark> &placemarks) { found->set_value(placemarks); });
  auto future = found->get_future();
  if (future.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    throw std::runtime_error("the geocoder does not answer");
  }
  return future.get();
}

/// What geocoders work with.
class GeocoderFixture : public testing::Test {
 protected:
  /// Never destroyed, as in a real process: its threads may live as long.
  static LinuxDispatch &dispatch() {
    static auto &dispatch = *new LinuxDispatch(LinuxRunLoop::of(g_main_context_default()));
    return dispatch;
  }

  StandingClock clock_;
};

}  // namespace kx
