#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/tools/fleet/FleetLife.h"

namespace kx::fleet {
namespace {

/// In shares, which run beside each other.
class FleetDeviceInManyLives : public testing::TestWithParam<std::uint64_t> {};

TEST_P(FleetDeviceInManyLives, SendsWhatTheLibrarySends) {
  std::size_t requests = 0;
  for (std::uint64_t seed = GetParam(); seed < GetParam() + KX_FLEET_LIVES; ++seed) {
    const FleetLife life = FleetLife::ofSeed(seed);
    const auto sent = sentByLibrary(life);
    requests += sent.size();
    if (sentByFleet(life) == sent) continue;
    FAIL() << difference(life) << "\nshrunk:\n" << difference(shrink(life));
  }
  RecordProperty("requests", std::to_string(requests));
  EXPECT_GT(requests, KX_FLEET_LIVES * 10u);
}

INSTANTIATE_TEST_SUITE_P(From, FleetDeviceInManyLives, testing::Values(1, 3001, 6001, 9001));

}  // namespace
}  // namespace kx::fleet
