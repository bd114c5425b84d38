#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>
#include <cstddef>

#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "tests/life/AllocatedBytes.h"

namespace kx {
namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;

/// A phone that somebody uses every day and puts away every night.
class YearTest : public ::testing::Test {
 protected:
  void start() {
    device.locationService.position = Location{{52.52, 13.40}, 5, 34, 5};
    device.locationService.placemarks = {Placemark{}};
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  }

  /// Twenty minutes of each hour the host is in front; on the way its user moves and its carrier changes.
  void use(int hourOfDay) {
    device.resume();
    device.application->enterForeground();
    device.locationService.moveTo(Location{{52.0 + hourOfDay * 0.01, 13.40}, 5, 34, 5});
    device.telephonyService.changeCarrier(SimulatedCarrier{"262", hourOfDay % 2 == 0 ? "01" : "02"});
    device.advance(20 * minute);
    device.application->enterBackground();
    device.advance(minute);
    device.suspend();
    device.advance(39 * minute);
  }

  void liveThroughDay(int day) {
    for (int hourOfDay = 7; hourOfDay < 23; ++hourOfDay) {
      // Once a week there is no network for two hours, and every day the service forgets its tokens.
      if (day % 7 == 3 && hourOfDay == 9) device.reachability.changeFlags(0);
      if (hourOfDay == 11) device.reachability.changeFlags(networkReachabilityFlagsReachable);
      if (hourOfDay == 12) device.service.revokeTokens();
      use(hourOfDay);
    }
    device.advance(8 * hour);
    messages += device.service.messages().size();
    // What the device remembers for the test.
    device.service.requests.clear();
    device.consoleService.lines.clear();
  }

  SimulatedScope scope;
  SimulatedPlatform &device = scope.device;
  std::size_t messages = 0;
};

TEST_F(YearTest, TakesNoByteMoreAtItsEndThanAfterItsFirstMonths) {
  start();
  // The device remembers the last thousand background tasks, which are those of two months.
  constexpr int warmUp = 100;
  constexpr int days = 365;
  std::size_t bytes = 0;
  std::size_t blocks = 0;
  for (int day = 0; day < days; ++day) {
    liveThroughDay(day);
    if (day == warmUp) {
      bytes = allocatedBytes();
      blocks = allocatedBlocks();
    }
    if (day > warmUp) {
      ASSERT_EQ(allocatedBytes(), bytes) << "day " << day;
      ASSERT_EQ(allocatedBlocks(), blocks) << "day " << day;
    }
  }
  const auto counts = device.counts();
  EXPECT_EQ(counts.requests, 0u);
  EXPECT_EQ(counts.backgroundTasks, 0u);
  // Each hour one after the return, one each ten minutes and one on leaving, but where there was no network
  // or no token.
  EXPECT_GT(messages, 365u * 16 * 3);
  EXPECT_LT(messages, 365u * 16 * 5);
}

}  // namespace
}  // namespace kx
